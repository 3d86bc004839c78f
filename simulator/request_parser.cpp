// SPDX-License-Identifier: Apache-2.0
#include "simulator/request_parser.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr unsigned char ESC = 0x1b;
constexpr std::array<unsigned char, 6> LEAD_IN = {ESC, 0x47, 0x44, 0x30, 0x00, 0x00};
constexpr std::size_t COUNT_POSITION = LEAD_IN.size();

constexpr std::array<unsigned char, 1> STATUS_SELECTORS = {0x16};
constexpr std::array<unsigned char, 3> LEVELS_SELECTORS = {0x1e, 0x16, 0x2a};

bool is_whole(const Bytes& begun) {
  return begun.size() > COUNT_POSITION && begun.size() == COUNT_POSITION + 1 + begun[COUNT_POSITION];
}

}  // namespace

std::vector<Bytes> RequestParser::feed(std::span<const unsigned char> chunk) {
  std::vector<Bytes> packets;
  for (const unsigned char byte : chunk) {
    if (begun_.size() < LEAD_IN.size() && byte != LEAD_IN.at(begun_.size())) {
      // The lead-in has ESC only at its start, so only this byte can begin the next packet.
      finish();
      if (byte != ESC) {
        ++other_bytes_;
        continue;
      }
    }
    begun_.push_back(byte);
    if (is_whole(begun_)) {
      packets.push_back(std::exchange(begun_, {}));
    }
  }
  return packets;
}

void RequestParser::finish() {
  other_bytes_ += begun_.size();
  begun_.clear();
}

std::optional<RequestKind> identify_request(std::span<const unsigned char> packet) {
  const auto selectors = packet.subspan(COUNT_POSITION + 1);
  if (std::ranges::equal(selectors, STATUS_SELECTORS)) {
    return RequestKind::Status;
  }
  if (std::ranges::equal(selectors, LEVELS_SELECTORS)) {
    return RequestKind::Levels;
  }
  return std::nullopt;
}
