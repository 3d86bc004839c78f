// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/arbitrary_channels.h"

#include <cups/cups.h>

#include <algorithm>

#include "tests/fuzz/require.h"

ArbitraryChannels channels;

namespace {

/// The status is a byte of the backend's, a signed one on some processors.
cups_sc_status_t arbitrary_status() {
  return static_cast<cups_sc_status_t>(channels.input->ConsumeIntegral<signed char>());
}

}  // namespace

extern "C" {

cups_sc_status_t cupsSideChannelDoRequest(cups_sc_command_t command, char* data, int* datalen,
                                          double /*timeout*/) {
  require(*datalen == 512, "the side channel is offered the whole buffer");
  const auto status = arbitrary_status();
  const auto length = channels.input->ConsumeIntegralInRange<std::size_t>(0, 512);
  const std::string answer = channels.input->ConsumeBytesAsString(length);
  std::ranges::copy(answer, data);
  *datalen = static_cast<int>(answer.size());
  if (command == CUPS_SC_CMD_GET_BIDI) {
    require(channels.probing, "the probe is made once");
    channels.probing = false;
    channels.probe_status = status;
    channels.probe_answer = answer;
  } else {
    require(command == CUPS_SC_CMD_DRAIN_OUTPUT && !channels.probing, "a drain comes after the probe");
    channels.exchanges.push_back({status, {}});
  }
  return status;
}

ssize_t cupsBackChannelRead(char* buffer, size_t bytes, double /*timeout*/) {
  require(!channels.exchanges.empty(), "a read comes after a drain");
  require(bytes >= 1 && bytes <= 512, "a read has room, and no more than the buffer");
  auto& exchange = channels.exchanges.back();
  if (channels.input->remaining_bytes() == 0 || channels.input->ConsumeProbability<float>() < 0.1F) {
    exchange.failed_read = channels.input->ConsumeIntegralInRange<int>(-1, 0);
    return exchange.failed_read;
  }
  const std::string piece =
      channels.input->ConsumeBytesAsString(channels.input->ConsumeIntegralInRange<std::size_t>(1, bytes));
  if (piece.empty()) {
    return exchange.failed_read = 0;
  }
  std::ranges::copy(piece, buffer);
  exchange.reads.push_back(piece);
  return static_cast<ssize_t>(piece.size());
}
}
