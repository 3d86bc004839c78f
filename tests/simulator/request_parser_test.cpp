// SPDX-License-Identifier: Apache-2.0
#include "simulator/request_parser.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include "tests/simulator/request_packets.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes whole;
  for (const Bytes& part : parts) {
    whole.insert(whole.end(), part.begin(), part.end());
  }
  return whole;
}

Bytes packet_of(std::size_t selectors, unsigned char filler) {
  Bytes packet(7 + selectors, filler);
  std::copy(STATUS.begin(), STATUS.begin() + 6, packet.begin());
  packet[6] = static_cast<unsigned char>(selectors);
  return packet;
}

/// Looks like requests much more often than plain random bytes do.
Bytes random_stream(std::mt19937& random, std::size_t size) {
  const Bytes likely = {0x1b, 0x1b, 0x47, 0x44, 0x30, 0, 0, 1, 3, 0x16, 0x1e, 0x2a, 0xff};
  Bytes stream;
  while (stream.size() < size) {
    switch (random() % 4) {
      case 0:
        stream.insert(stream.end(), STATUS.begin(), STATUS.end());
        break;
      case 1:
        stream.insert(stream.end(), LEVELS.begin(), LEVELS.begin() + static_cast<long>(random() % 11));
        break;
      default:
        stream.push_back(likely[random() % likely.size()]);
    }
  }
  return stream;
}

}  // namespace

TEST(RequestParser, APacketInOneChunkIsFound) {
  RequestParser parser;
  EXPECT_THAT(parser.feed(STATUS), ElementsAre(STATUS));
  EXPECT_EQ(parser.other_bytes(), 0U);
}

TEST(RequestParser, APacketFedByteByByteIsFoundAtItsLastByte) {
  RequestParser parser;
  for (std::size_t i = 0; i + 1 < LEVELS.size(); ++i) {
    EXPECT_THAT(parser.feed(std::span(LEVELS).subspan(i, 1)), IsEmpty()) << i;
  }
  EXPECT_THAT(parser.feed(std::span(LEVELS).last(1)), ElementsAre(LEVELS));
}

TEST(RequestParser, PacketsInOneChunkComeOutInTheirOrder) {
  RequestParser parser;
  EXPECT_THAT(parser.feed(join({LEVELS, STATUS, LEVELS})), ElementsAre(LEVELS, STATUS, LEVELS));
}

TEST(RequestParser, APacketWithoutSelectorsIsAPacket) {
  RequestParser parser;
  EXPECT_THAT(parser.feed(packet_of(0, 0)), ElementsAre(packet_of(0, 0)));
}

TEST(RequestParser, TheLongestPacketHas255Selectors) {
  RequestParser parser;
  EXPECT_THAT(parser.feed(join({packet_of(255, 0x1b), STATUS})), ElementsAre(packet_of(255, 0x1b), STATUS));
}

TEST(RequestParser, ACountThatEqualsEscIsACount) {
  RequestParser parser;
  EXPECT_THAT(parser.feed(packet_of(0x1b, 7)), ElementsAre(packet_of(0x1b, 7)));
}

TEST(RequestParser, JunkBeforeBetweenAndAfterPacketsIsSkippedAndCounted) {
  RequestParser parser;
  EXPECT_THAT(parser.feed(join({{1, 2, 3}, STATUS, {0x47}, LEVELS, {0, 0}})), ElementsAre(STATUS, LEVELS));
  EXPECT_EQ(parser.other_bytes(), 6U);
}

TEST(RequestParser, AnEscInsideABrokenLeadInBeginsAnew) {
  for (std::size_t length = 1; length <= 5; ++length) {
    RequestParser parser;
    const Bytes broken(STATUS.begin(), STATUS.begin() + static_cast<long>(length));
    EXPECT_THAT(parser.feed(join({broken, STATUS})), ElementsAre(STATUS)) << length;
    EXPECT_EQ(parser.other_bytes(), length);
  }
}

TEST(RequestParser, AWrongByteInTheLeadInMakesItJunk) {
  for (std::size_t position = 0; position < 6; ++position) {
    RequestParser parser;
    Bytes broken = STATUS;
    broken[position] = 0x99;
    EXPECT_THAT(parser.feed(broken), IsEmpty()) << position;
    EXPECT_EQ(parser.other_bytes(), broken.size()) << position;
  }
}

TEST(RequestParser, APacketCutOffByTheEndOfTheStreamIsJunk) {
  RequestParser parser;
  parser.feed(std::span(LEVELS).first(9));
  EXPECT_EQ(parser.other_bytes(), 0U);
  parser.finish();
  EXPECT_EQ(parser.other_bytes(), 9U);
}

TEST(RequestParser, ChunkingChangesNothing) {
  std::mt19937 random(20261120);
  for (int round = 0; round < 200; ++round) {
    const Bytes stream = random_stream(random, 2000);
    RequestParser whole;
    const auto expected = whole.feed(stream);
    RequestParser parser;
    std::vector<Bytes> packets;
    for (std::span<const unsigned char> rest(stream); !rest.empty();) {
      const std::size_t size = std::min<std::size_t>(rest.size(), 1 + random() % 20);
      std::ranges::move(parser.feed(rest.first(size)), std::back_inserter(packets));
      rest = rest.subspan(size);
    }
    ASSERT_EQ(packets, expected) << "round " << round;
    ASSERT_EQ(parser.other_bytes(), whole.other_bytes()) << "round " << round;
  }
}

TEST(RequestParser, EveryByteIsInAPacketOrCounted) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    const Bytes stream = random_stream(random, 2000);
    RequestParser parser;
    std::size_t in_packets = 0;
    for (const Bytes& packet : parser.feed(stream)) {
      in_packets += packet.size();
    }
    parser.finish();
    ASSERT_EQ(in_packets + parser.other_bytes(), stream.size()) << "round " << round;
  }
}

TEST(IdentifyRequest, OnlyTheTwoKnownSelectorsAreAnswered) {
  EXPECT_EQ(identify_request(STATUS), RequestKind::Status);
  EXPECT_EQ(identify_request(LEVELS), RequestKind::Levels);
  EXPECT_EQ(identify_request(packet_of(0, 0)), std::nullopt);
  EXPECT_EQ(identify_request(packet_of(1, 0x17)), std::nullopt);
  EXPECT_EQ(identify_request(packet_of(2, 0x16)), std::nullopt);
  EXPECT_EQ(identify_request(packet_of(3, 0x16)), std::nullopt);
}
