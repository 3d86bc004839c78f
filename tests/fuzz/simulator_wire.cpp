// SPDX-License-Identifier: Apache-2.0
// Parses any bytes in any chunks: the packets do not depend on the chunks, no byte is lost, and replies are
// within bounds.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

#include "simulator/request_parser.h"
#include "simulator/simulated_printer.h"
#include "tests/fuzz/require.h"

namespace {

/// Finds the packets of a whole stream by searching at each byte.
std::vector<Bytes> model(const Bytes& stream) {
  static const Bytes lead_in = {0x1b, 'G', 'D', '0', 0, 0};
  std::vector<Bytes> packets;
  for (std::size_t at = 0; at + lead_in.size() < stream.size();) {
    const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
    const std::size_t size = lead_in.size() + 1 + stream[at + lead_in.size()];
    if (!std::equal(lead_in.begin(), lead_in.end(), begin)) {
      ++at;
    } else if (at + size > stream.size()) {
      break;
    } else {
      packets.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
      at += size;
    }
  }
  return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  SimulatedPrinter printer;
  printer.settings.fault.kind = static_cast<Fault::Kind>(input.ConsumeIntegralInRange(0, 9));
  printer.settings.fault.count = input.ConsumeIntegralInRange<std::size_t>(0, 4096);
  const int only = input.ConsumeIntegralInRange(0, 2);
  if (only < 2) {
    printer.settings.fault.only = only == 0 ? RequestKind::Status : RequestKind::Levels;
  }

  RequestParser parser;
  Bytes stream;
  std::vector<Bytes> packets;
  while (input.remaining_bytes() > 0) {
    const auto chunk = input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(1, 64));
    stream.insert(stream.end(), chunk.begin(), chunk.end());
    for (auto& packet : parser.feed(chunk)) {
      packets.push_back(std::move(packet));
    }
  }
  parser.finish();

  require(packets == model(stream), "the packets are those of the stream");
  std::size_t bytes = parser.other_bytes();
  for (auto& packet : packets) {
    bytes += packet.size();
    const auto kind = identify_request(packet);
    std::size_t answered = 0;
    for (const auto& piece : answer_request(printer, packet)) {
      answered += piece.bytes.size();
    }
    require(kind || answered == 0, "an unknown request is not answered");
    require(answered <= 4096, "an answer has its bounds");
  }
  require(bytes == stream.size(), "every byte is in a packet or counted");
  require(printer.traffic.requests.size() <= 1000, "no more requests are kept than can be shown");
  return 0;
}
