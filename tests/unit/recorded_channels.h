// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/sidechannel.h>

#include <deque>
#include <string>
#include <vector>

/// A request of the code under test on the side channel.
struct SideChannelCall {
  cups_sc_command_t command;
  int length;
  double timeout;
  bool operator==(const SideChannelCall&) const = default;
};

/// A read of the code under test from the back channel.
struct BackChannelCall {
  std::size_t bytes;
  double timeout;
  bool operator==(const BackChannelCall&) const = default;
};

/// RecordedChannels replaces libcups' two channel functions in this program. It returns the given answers and
/// records the requests.
struct RecordedChannels {
  cups_sc_status_t status = CUPS_SC_STATUS_OK;
  std::string answer = "\x01";    ///< the side channel's data
  std::deque<std::string> reads;  ///< each read takes one; none left: -1
  std::vector<SideChannelCall> side_calls;
  std::vector<BackChannelCall> back_calls;
};

extern RecordedChannels channels;
