// SPDX-License-Identifier: Apache-2.0
// Parses any bytes from the process that queries a print server: they are rejected, or are exactly a message.

#include "monitor/server_messages.h"

#include "tests/fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  if (const auto answer = decode_answer(bytes)) {
    require_equal(encode(*answer), bytes, "the answer");
    if (const auto* look = std::get_if<Look>(&*answer)) {
      require(look->queues.size() <= MAX_QUEUES && look->jobs.size() <= MAX_JOBS, "a look has its limits");
      for (const auto& queue : look->queues) {
        require(queue.info.size() <= MAX_TEXT_BYTES && queue.markers.size() <= MAX_VALUES,
                "a queue has its limits");
      }
    }
  }
  if (const auto request = decode_request(bytes)) {
    require_equal(encode(*request), bytes, "the request");
  }
  return 0;
}
