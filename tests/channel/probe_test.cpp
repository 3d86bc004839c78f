// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/channel/filter_run.h"

namespace {

struct ProbeCase {
  SideAnswer answer;
  bool bidirectional;
  const char* name;  ///< of the status, as the log line has it
};

class Probes : public testing::TestWithParam<ProbeCase> {};

TEST_P(Probes, DecideWhetherThePrinterIsQueried) {
  const auto& [answer, bidirectional, name] = GetParam();
  FilterRun filter;
  filter.probe = answer;
  filter.replies.push_back({.pieces = {status_reply(0)}});
  filter.run_file("ReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  if (bidirectional) {
    EXPECT_EQ(filter.log, command_line("ReportStatus", 1) +
                              exchange_lines(STATUS_REQUEST, "[STS]", status_reply(0)) +
                              state_lines("", "GOOD"));
    EXPECT_EQ(filter.requests, STATUS_REQUEST);
  } else {
    EXPECT_EQ(filter.log, no_bidirectional_line(name, answer.status) + command_line("ReportStatus", 1) +
                              state_lines("", "UNAVAILABLE"));
    EXPECT_EQ(filter.requests, "");
    EXPECT_EQ(filter.side_requests, 1);
  }
}

const std::string YES = "\x01";

// libcups takes the status from a char, so the last number's sign is the platform's.
INSTANTIATE_TEST_SUITE_P(Probe, Probes,
                         testing::Values(ProbeCase{{1, YES}, true, ""},                                     //
                                         ProbeCase{{1, std::string(1, '\0')}, false, "CUPS_SC_STATUS_OK"},  //
                                         ProbeCase{{1, "\x02"}, false, "CUPS_SC_STATUS_OK"},                //
                                         ProbeCase{{1, "\xff"}, false, "CUPS_SC_STATUS_OK"},                //
                                         ProbeCase{{1, ""}, false, "CUPS_SC_STATUS_OK"},                    //
                                         ProbeCase{{1, YES + YES}, false, "CUPS_SC_STATUS_OK"},             //
                                         ProbeCase{
                                             {1, std::string(512, '\1')}, false, "CUPS_SC_STATUS_OK"},  //
                                         ProbeCase{{0, YES}, false, "CUPS_SC_STATUS_NONE"},             //
                                         ProbeCase{{2, YES}, false, "CUPS_SC_STATUS_IO_ERROR"},         //
                                         ProbeCase{{3, YES}, false, "CUPS_SC_STATUS_TIMEOUT"},          //
                                         ProbeCase{{4, YES}, false, "CUPS_SC_STATUS_NO_RESPONSE"},      //
                                         ProbeCase{{5, YES}, false, "CUPS_SC_STATUS_BAD_MESSAGE"},      //
                                         ProbeCase{{6, YES}, false, "CUPS_SC_STATUS_TOO_BIG"},          //
                                         ProbeCase{{7, YES}, false, "CUPS_SC_STATUS_NOT_IMPLEMENTED"},  //
                                         ProbeCase{{8, YES}, false, "UNKNOWN"},
                                         ProbeCase{{static_cast<char>(0xC8), YES}, false, "UNKNOWN"}));

TEST(Probe, ThatFailsIsLoggedForAnEmptyFileToo) {
  FilterRun filter;
  filter.probe = SideAnswer{CUPS_SC_STATUS_NOT_IMPLEMENTED, ""};
  filter.run_file("");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, no_bidirectional_line("CUPS_SC_STATUS_NOT_IMPLEMENTED", 7));
}

TEST(Probe, AnAnswerThatIsTooBigForTheBufferIsNotBidirectional) {
  FilterRun filter;
  filter.probe = SideAnswer{CUPS_SC_STATUS_OK, std::string(513, '\1')};
  filter.run_file("");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, no_bidirectional_line("CUPS_SC_STATUS_TOO_BIG", 6));
}

TEST(Probe, ThatIsNeverAnsweredTimesOutAndTheRunContinues) {
  FilterRun filter;
  filter.probe.reset();
  filter.run_file("ReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, no_bidirectional_line("CUPS_SC_STATUS_TIMEOUT", 3) + command_line("ReportStatus", 1) +
                            state_lines("", "UNAVAILABLE"));
}

TEST(Probe, WithoutBidirectionalConnectionReportLevelsLeavesTheReasonsAlone) {
  FilterRun filter;
  filter.probe = SideAnswer{CUPS_SC_STATUS_OK, std::string(1, '\0')};
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.log, no_bidirectional_line("CUPS_SC_STATUS_OK", 1) + command_line("ReportLevels", 1) +
                            marker_lines("UNAVAILABLE", -2, " ", "InkSheetType: 00"));
  EXPECT_EQ(filter.requests, "");
}

}  // namespace
