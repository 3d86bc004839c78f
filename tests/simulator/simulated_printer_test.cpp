// SPDX-License-Identifier: Apache-2.0
#include "simulator/simulated_printer.h"

#include <gmock/gmock.h>

#include "tests/simulator/request_packets.h"

using testing::IsEmpty;
using testing::SizeIs;

namespace {

const Bytes UNKNOWN = {0x1b, 0x47, 0x44, 0x30, 0, 0, 1, 0x17};

}  // namespace

TEST(SimulatedPrinter, AnswersWithItsCurrentCondition) {
  SimulatedPrinter printer;
  printer.settings.condition.code = 0x2660;
  const auto pieces = answer_request(printer, STATUS);
  ASSERT_THAT(pieces, SizeIs(1));
  EXPECT_EQ(pieces[0].bytes, make_reply(RequestKind::Status, {.code = 0x2660}));
}

TEST(SimulatedPrinter, CountsTheRequestsByTheirKind) {
  SimulatedPrinter printer;
  answer_request(printer, LEVELS);
  answer_request(printer, STATUS);
  answer_request(printer, LEVELS);
  EXPECT_EQ(printer.traffic.status_requests, 1U);
  EXPECT_EQ(printer.traffic.levels_requests, 2U);
}

TEST(SimulatedPrinter, RecordsAnUnknownRequestAndDoesNotAnswerIt) {
  SimulatedPrinter printer;
  EXPECT_THAT(answer_request(printer, UNKNOWN), IsEmpty());
  EXPECT_THAT(printer.traffic.requests, testing::ElementsAre(UNKNOWN));
}

TEST(SimulatedPrinter, CountsARequestThatAFaultKeepsSilent) {
  SimulatedPrinter printer;
  printer.settings.fault.kind = Fault::Kind::Silent;
  EXPECT_THAT(answer_request(printer, STATUS), IsEmpty());
  EXPECT_EQ(printer.traffic.status_requests, 1U);
}

TEST(SimulatedPrinter, KeepsTheLast1000Requests) {
  SimulatedPrinter printer;
  answer_request(printer, UNKNOWN);
  for (int i = 0; i < 999; ++i) {
    answer_request(printer, STATUS);
  }
  EXPECT_EQ(printer.traffic.requests.front(), UNKNOWN);
  answer_request(printer, LEVELS);
  EXPECT_THAT(printer.traffic.requests, SizeIs(1000));
  EXPECT_EQ(printer.traffic.requests.front(), STATUS);
  EXPECT_EQ(printer.traffic.requests.back(), LEVELS);
}
