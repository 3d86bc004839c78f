// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/sidechannel.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <string>
#include <vector>

/// ArbitraryChannels replaces libcups' two channel functions. The fuzzer's input determines all statuses,
/// lengths and bytes within the range of the real functions.
struct ArbitraryChannels {
  FuzzedDataProvider* input = nullptr;
  bool probing = false;  ///< the next side channel request is the probe
  /// The answer to each drain, and the reads that followed it.
  struct Exchange {
    cups_sc_status_t drain;
    std::vector<std::string> reads;
    long failed_read = 1;  ///< what the last read returned if it failed
  };
  std::vector<Exchange> exchanges;
  cups_sc_status_t probe_status = CUPS_SC_STATUS_NONE;
  std::string probe_answer;
};

extern ArbitraryChannels channels;
