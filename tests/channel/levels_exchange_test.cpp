// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/channel/filter_run.h"

namespace {

const std::string GOOD_STATUS =
    exchange_lines(STATUS_REQUEST, "[STS]", status_reply(0)) + state_lines("", "GOOD");
const std::string NO_LEVELS = marker_lines("UNAVAILABLE", -2, " ", "InkSheetType: 00");
const std::string HALF_USED_REPLY = levels_reply(200, 400, 2);
const std::string MARKER = marker_lines("ink ribbon 200 / 400 ink_sheet_type=0x02", 50,
                                        "Ink Ribbon = 200 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)");

/// Returns the log of one ReportLevels with this reply to the levels request and a good status reply.
std::string levels_log(const PrinterReply& reply) {
  FilterRun filter;
  filter.replies.push_back(reply);
  filter.replies.push_back({.pieces = {status_reply(0)}});
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.requests, LEVELS_REQUEST + STATUS_REQUEST);
  return filter.log;
}

std::string answered(const std::string& reply) {
  return command_line("ReportLevels", 1) + exchange_lines(LEVELS_REQUEST, "[REP]", reply) + MARKER +
         GOOD_STATUS;
}

std::string levels_unanswered(int read_result) {
  return command_line("ReportLevels", 1) + request_lines(LEVELS_REQUEST) + read_failure_line(read_result) +
         NO_LEVELS;
}

TEST(LevelsExchange, TwentySixBytesAreAReading) {
  EXPECT_EQ(levels_log({.pieces = {HALF_USED_REPLY}}), answered(HALF_USED_REPLY));
}

TEST(LevelsExchange, ALateSecondReadCompletesTheReply) {
  EXPECT_EQ(levels_log({.pieces = {HALF_USED_REPLY.substr(0, 10), HALF_USED_REPLY.substr(10)}}),
            answered(HALF_USED_REPLY));
}

TEST(LevelsExchange, AReplyMayDripByteByByte) {
  std::vector<std::string> bytes;
  for (const char byte : HALF_USED_REPLY) {
    bytes.emplace_back(1, byte);
  }
  EXPECT_EQ(levels_log({.pieces = bytes}), answered(HALF_USED_REPLY));
}

TEST(LevelsExchange, TwentyFiveBytesAndSilenceAreNoReading) {
  EXPECT_EQ(levels_log({.pieces = {HALF_USED_REPLY.substr(0, 25)}}), levels_unanswered(-1) + GOOD_STATUS);
}

TEST(LevelsExchange, WithoutALevelsReplyTheStatusIsStillQueried) {
  EXPECT_EQ(levels_log({}), levels_unanswered(-1) + GOOD_STATUS);
}

TEST(LevelsExchange, AClosedBackChannelEndsBothQueries) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {HALF_USED_REPLY.substr(0, 10)}, .hang_up = true});
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, levels_unanswered(0) + request_lines(STATUS_REQUEST) + read_failure_line(0) +
                            state_lines("", "UNAVAILABLE"));
}

class LongLevelsReplies : public testing::TestWithParam<std::size_t> {};

TEST_P(LongLevelsReplies, AreTracedWholeAndDecodedAsUsual) {
  const std::string reply = levels_reply(200, 400, 2, GetParam());
  EXPECT_EQ(levels_log({.pieces = {reply}}), answered(reply));
}

INSTANTIATE_TEST_SUITE_P(LevelsExchange, LongLevelsReplies, testing::Values(27, 40, 512));

TEST(LevelsExchange, AFailedDrainIsLoggedAndTheReplyIsStillRead) {
  EXPECT_EQ(levels_log({.drain = SideAnswer{CUPS_SC_STATUS_IO_ERROR, ""}, .pieces = {HALF_USED_REPLY}}),
            command_line("ReportLevels", 1) + trace_lines("[CMD]", LEVELS_REQUEST) +
                drain_line("CUPS_SC_STATUS_IO_ERROR", 2) + trace_lines("[REP]", HALF_USED_REPLY) + MARKER +
                GOOD_STATUS);
}

TEST(LevelsExchange, ADrainThatNeverComesTimesOutAndTheReplyIsRead) {
  EXPECT_EQ(levels_log({.drain = std::nullopt, .pieces = {HALF_USED_REPLY}}),
            command_line("ReportLevels", 1) + trace_lines("[CMD]", LEVELS_REQUEST) +
                drain_line("CUPS_SC_STATUS_TIMEOUT", 3) + trace_lines("[REP]", HALF_USED_REPLY) + MARKER +
                GOOD_STATUS);
}

TEST(LevelsExchange, AnUnansweredStatusAfterGoodLevelsRaisesTheFallback) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {HALF_USED_REPLY}});
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.log, command_line("ReportLevels", 1) +
                            exchange_lines(LEVELS_REQUEST, "[REP]", HALF_USED_REPLY) + MARKER +
                            request_lines(STATUS_REQUEST) + read_failure_line(-1) +
                            state_lines("", "UNAVAILABLE"));
}

TEST(LevelsExchange, BytesLeftOverFromTheLevelsAreReadByTheStatusQuery) {
  FilterRun filter;
  const std::string rest = status_reply(0x2660, 20);
  filter.replies.push_back({.pieces = {HALF_USED_REPLY.substr(0, 25)}});
  filter.replies.push_back({.pieces = {rest}});
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.log, levels_unanswered(-1) + exchange_lines(STATUS_REQUEST, "[STS]", rest) +
                            state_lines("com.brenvellis-error0008_2660", "0x2660"));
}

TEST(LevelsExchange, AFullOutputFailsBothQueries) {
  FilterRun filter;
  filter.output = Output::Full;
  filter.run_file("ReportLevels\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line("ReportLevels", 1) + trace_lines("[CMD]", LEVELS_REQUEST) +
                            "DEBUG: fflush() failed.\n" + NO_LEVELS + trace_lines("[CMD]", STATUS_REQUEST) +
                            "DEBUG: fflush() failed.\n" + state_lines("", "UNAVAILABLE"));
}

}  // namespace
