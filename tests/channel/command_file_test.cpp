// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/channel/filter_run.h"

namespace {

/// A run whose printer is in this state for all queries of a file.
FilterRun answered_status(unsigned code, int times) {
  FilterRun filter;
  for (int i = 0; i < times; ++i) {
    filter.replies.push_back({.pieces = {status_reply(code)}});
  }
  return filter;
}

const std::string STATUS_OF_2660 = exchange_lines(STATUS_REQUEST, "[STS]", status_reply(0x2660)) +
                                   state_lines("com.brenvellis-error0008_2660", "0x2660");

TEST(CommandFile, AnEmptyOneIsProbedForAndNothingElse) {
  FilterRun filter;
  filter.run_file("");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, "");
  EXPECT_EQ(filter.side_requests, 1);
}

TEST(CommandFile, ReportStatusIsOneExchangeAndOneReport) {
  FilterRun filter = answered_status(0x2660, 1);
  filter.run_file("ReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line("ReportStatus", 1) + STATUS_OF_2660);
  EXPECT_EQ(filter.requests, STATUS_REQUEST);
}

TEST(CommandFile, ReportLevelsReportsTheLevelsAndThenTheStatus) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {levels_reply(200, 400, 2)}});
  filter.replies.push_back({.pieces = {status_reply(0)}});
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line("ReportLevels", 1) +
                            exchange_lines(LEVELS_REQUEST, "[REP]", levels_reply(200, 400, 2)) +
                            marker_lines("ink ribbon 200 / 400 ink_sheet_type=0x02", 50,
                                         "Ink Ribbon = 200 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)") +
                            exchange_lines(STATUS_REQUEST, "[STS]", status_reply(0)) +
                            state_lines("", "GOOD"));
  EXPECT_EQ(filter.requests, LEVELS_REQUEST + STATUS_REQUEST);
}

class CommandWords : public testing::TestWithParam<const char*> {};

TEST_P(CommandWords, AreComparedWithoutRegardToCase) {
  FilterRun filter = answered_status(0x2660, 1);
  filter.run_file(std::string(GetParam()) + "\n");
  EXPECT_EQ(filter.log, command_line(GetParam(), 1) + STATUS_OF_2660);
}

INSTANTIATE_TEST_SUITE_P(CommandFile, CommandWords,
                         testing::Values("ReportStatus", "reportstatus", "REPORTSTATUS", "rEPORTsTATUS"));

class OtherWords : public testing::TestWithParam<const char*> {};

TEST_P(OtherWords, AreTracedAndIgnored) {
  FilterRun filter;
  filter.run_file(std::string(GetParam()) + "\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line(GetParam(), 1));
  EXPECT_EQ(filter.requests, "");
}

INSTANTIATE_TEST_SUITE_P(CommandFile, OtherWords,
                         testing::Values("ReportStatusNow", "ReportStatu", "ReportLevelsX", "ReportLevel",
                                         "Clean", "eportStatus", "%s%n%d", "R\xc3\xa9portStatus"));

TEST(CommandFile, LowerCaseReportLevelsIsAnswered) {
  FilterRun filter;
  filter.run_file("reportlevels\n");
  EXPECT_EQ(filter.requests, LEVELS_REQUEST + STATUS_REQUEST);
}

TEST(CommandFile, TheRestOfTheLineIsIgnored) {
  FilterRun filter = answered_status(0x2660, 2);
  filter.run_file("ReportStatus all the rest\nReportStatus\tReportLevels\n");
  EXPECT_EQ(filter.log, command_line("ReportStatus", 1) + STATUS_OF_2660 + command_line("ReportStatus", 2) +
                            STATUS_OF_2660);
}

TEST(CommandFile, CommentsAndBlankLinesAreCountedButNotCommands) {
  FilterRun filter = answered_status(0x2660, 1);
  filter.run_file("#CUPS-COMMAND\n\n  \t\n# ReportLevels\n  ReportStatus  # now\nOther");
  EXPECT_EQ(filter.log, command_line("ReportStatus", 5) + STATUS_OF_2660 + command_line("Other", 6));
}

TEST(CommandFile, LineEndsOfOtherSystemsAreAccepted) {
  FilterRun filter = answered_status(0x2660, 1);
  filter.run_file("Other\r\nReportStatus\r\n");
  EXPECT_EQ(filter.log, command_line("Other", 1) + command_line("ReportStatus", 2) + STATUS_OF_2660);
}

TEST(CommandFile, ALineLongerThanTheBufferIsReadInPieces) {
  FilterRun filter;
  filter.run_file(std::string(1500, 'x') + "\nOther\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line(std::string(1023, 'x'), 1) + command_line(std::string(477, 'x'), 2) +
                            command_line("Other", 3));
}

TEST(CommandFile, NulAndControlBytesDoNotEndTheRun) {
  FilterRun filter = answered_status(0x2660, 1);
  filter.run_file(std::string("Re\0port\n", 8) + "\x01\x02\x7f\x1b[31m\nReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line("Re", 1) + command_line("\x01\x02\x7f\x1b[31m", 2) +
                            command_line("ReportStatus", 3) + STATUS_OF_2660);
}

TEST(CommandFile, ResultsAreNotCached) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {status_reply(0x2660)}});
  filter.replies.push_back({.pieces = {status_reply(0)}});
  filter.replies.push_back({.pieces = {status_reply(0x2100)}});
  filter.run_file("ReportStatus\nReportStatus\nReportStatus\n");
  EXPECT_EQ(filter.log, command_line("ReportStatus", 1) + STATUS_OF_2660 + command_line("ReportStatus", 2) +
                            exchange_lines(STATUS_REQUEST, "[STS]", status_reply(0)) +
                            state_lines("", "GOOD") + command_line("ReportStatus", 3) +
                            exchange_lines(STATUS_REQUEST, "[STS]", status_reply(0x2100)) +
                            state_lines("com.brenvellis-error0007_2100", "0x2100"));
}

TEST(CommandFile, TenThousandCommandsAreAllAnswered) {
  constexpr int COUNT = 10000;
  FilterRun filter;
  filter.probe = SideAnswer{CUPS_SC_STATUS_NOT_IMPLEMENTED, ""};
  std::string commands;
  std::string expected = no_bidirectional_line("CUPS_SC_STATUS_NOT_IMPLEMENTED", 7);
  for (int i = 1; i <= COUNT; ++i) {
    commands += "ReportLevels\n";
    expected += command_line("ReportLevels", i) + marker_lines("UNAVAILABLE", -2, " ", "InkSheetType: 00");
  }
  filter.run_file(commands);
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_TRUE(filter.log == expected);
}

TEST(CommandFile, AThousandExchangesInOneRunAreAllAnswered) {
  constexpr int COUNT = 1000;
  FilterRun filter;
  std::string commands;
  std::string expected;
  std::string requests;
  for (int i = 1; i <= COUNT; ++i) {
    const auto code = static_cast<unsigned>(0x8000 + i);
    filter.replies.push_back({.pieces = {status_reply(code)}});
    commands += "ReportStatus\n";
    requests += STATUS_REQUEST;
    std::array<char, 8> text{};
    snprintf(text.data(), text.size(), "0x%04x", code);
    expected += command_line("ReportStatus", i) +
                exchange_lines(STATUS_REQUEST, "[STS]", status_reply(code)) + state_lines("", text.data());
  }
  filter.run_file(commands);
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.requests, requests);
  EXPECT_TRUE(filter.log == expected);
}

}  // namespace
