// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/recorded_channels.h"

#include <cups/cups.h>

#include <algorithm>

RecordedChannels channels;

extern "C" {

cups_sc_status_t cupsSideChannelDoRequest(cups_sc_command_t command, char* data, int* datalen,
                                          double timeout) {
  channels.side_calls.push_back({command, *datalen, timeout});
  std::ranges::copy(channels.answer, data);
  *datalen = static_cast<int>(channels.answer.size());
  return channels.status;
}

ssize_t cupsBackChannelRead(char* buffer, size_t bytes, double timeout) {
  channels.back_calls.push_back({bytes, timeout});
  if (channels.reads.empty()) {
    return -1;
  }
  const auto count = static_cast<ssize_t>(channels.reads.front().size());
  std::ranges::copy(channels.reads.front(), buffer);
  channels.reads.pop_front();
  return count;
}
}
