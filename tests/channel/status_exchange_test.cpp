// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/channel/filter_run.h"

namespace {

/// Returns the log of one ReportStatus with this reply.
std::string status_log(const PrinterReply& reply) {
  FilterRun filter;
  filter.replies.push_back(reply);
  filter.run_file("ReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.requests, STATUS_REQUEST);
  return filter.log;
}

std::string answered(const std::string& reply, const std::string& raised, const std::string& state_text) {
  return command_line("ReportStatus", 1) + exchange_lines(STATUS_REQUEST, "[STS]", reply) +
         state_lines(raised, state_text);
}

std::string status_unanswered(int read_result) {
  return command_line("ReportStatus", 1) + request_lines(STATUS_REQUEST) + read_failure_line(read_result) +
         state_lines("", "UNAVAILABLE");
}

const std::string ERROR_REPLY = status_reply(0x2660);
const std::string REASON = "com.brenvellis-error0008_2660";

TEST(StatusExchange, TheCodeComesFromBytesFourAndFive) {
  std::string reply;
  for (char i = 0; i < 15; ++i) {
    reply += i;
  }
  EXPECT_EQ(status_log({.pieces = {reply}}), answered(reply, "", "0x0405"));
}

TEST(StatusExchange, CodeZeroIsGood) {
  EXPECT_EQ(status_log({.pieces = {status_reply(0)}}), answered(status_reply(0), "", "GOOD"));
}

TEST(StatusExchange, HighBytesAreUnsigned) {
  EXPECT_EQ(status_log({.pieces = {status_reply(0xff80)}}), answered(status_reply(0xff80), "", "0xff80"));
}

TEST(StatusExchange, ALateSecondReadCompletesTheReply) {
  EXPECT_EQ(status_log({.pieces = {ERROR_REPLY.substr(0, 10), ERROR_REPLY.substr(10)}}),
            answered(ERROR_REPLY, REASON, "0x2660"));
}

TEST(StatusExchange, AReplyMayDripByteByByte) {
  std::vector<std::string> bytes;
  for (const char byte : ERROR_REPLY) {
    bytes.emplace_back(1, byte);
  }
  EXPECT_EQ(status_log({.pieces = bytes}), answered(ERROR_REPLY, REASON, "0x2660"));
}

TEST(StatusExchange, FourteenBytesAndSilenceAreNoReply) {
  EXPECT_EQ(status_log({.pieces = {ERROR_REPLY.substr(0, 14)}}), status_unanswered(-1));
}

TEST(StatusExchange, SilenceIsNoReply) {
  EXPECT_EQ(status_log({}), status_unanswered(-1));
}

TEST(StatusExchange, AClosedBackChannelIsNoReply) {
  EXPECT_EQ(status_log({.hang_up = true}), status_unanswered(0));
}

TEST(StatusExchange, ABackChannelClosedInTheMiddleIsNoReply) {
  EXPECT_EQ(status_log({.pieces = {ERROR_REPLY.substr(0, 14)}, .hang_up = true}), status_unanswered(0));
}

class LongStatusReplies : public testing::TestWithParam<std::size_t> {};

TEST_P(LongStatusReplies, AreTracedWholeAndDecodedAsUsual) {
  const std::string reply = status_reply(0x2660, GetParam());
  EXPECT_EQ(status_log({.pieces = {reply}}), answered(reply, REASON, "0x2660"));
}

INSTANTIATE_TEST_SUITE_P(StatusExchange, LongStatusReplies,
                         testing::Values(15, 16, 17, 26, 32, 40, 511, 512));

TEST(StatusExchange, TheLastReadMayFillTheBuffer) {
  const std::string reply = status_reply(0x2660, 512);
  EXPECT_EQ(status_log({.pieces = {reply.substr(0, 14), reply.substr(14)}}),
            answered(reply, REASON, "0x2660"));
}

TEST(StatusExchange, ExcessBytesAreReadByTheNextQuery) {
  FilterRun filter;
  const std::string reply = status_reply(0x2660, 512);
  const std::string rest = status_reply(0x2100, 15);
  filter.replies.push_back({.pieces = {reply + rest}});
  filter.run_file("ReportStatus\nReportStatus\n");
  EXPECT_EQ(filter.log, answered(reply, REASON, "0x2660") + command_line("ReportStatus", 2) +
                            exchange_lines(STATUS_REQUEST, "[STS]", rest) +
                            state_lines("com.brenvellis-error0007_2100", "0x2100"));
}

struct DrainCase {
  int status;
  const char* name;
};

class Drains : public testing::TestWithParam<DrainCase> {};

TEST_P(Drains, AreLoggedAndTheReplyIsStillRead) {
  const auto& [status, name] = GetParam();
  EXPECT_EQ(status_log({.drain = SideAnswer{status, ""}, .pieces = {ERROR_REPLY}}),
            command_line("ReportStatus", 1) + trace_lines("[CMD]", STATUS_REQUEST) +
                drain_line(name, status) + trace_lines("[STS]", ERROR_REPLY) + state_lines(REASON, "0x2660"));
}

INSTANTIATE_TEST_SUITE_P(
    StatusExchange, Drains,
    testing::Values(DrainCase{0, "CUPS_SC_STATUS_NONE"}, DrainCase{1, "CUPS_SC_STATUS_OK"},
                    DrainCase{2, "CUPS_SC_STATUS_IO_ERROR"}, DrainCase{3, "CUPS_SC_STATUS_TIMEOUT"},
                    DrainCase{4, "CUPS_SC_STATUS_NO_RESPONSE"}, DrainCase{5, "CUPS_SC_STATUS_BAD_MESSAGE"},
                    DrainCase{6, "CUPS_SC_STATUS_TOO_BIG"}, DrainCase{7, "CUPS_SC_STATUS_NOT_IMPLEMENTED"},
                    DrainCase{8, "UNKNOWN"}));

TEST(StatusExchange, ADrainThatNeverComesTimesOutAndTheReplyIsRead) {
  EXPECT_EQ(status_log({.drain = std::nullopt, .pieces = {ERROR_REPLY}}),
            command_line("ReportStatus", 1) + trace_lines("[CMD]", STATUS_REQUEST) +
                drain_line("CUPS_SC_STATUS_TIMEOUT", 3) + trace_lines("[STS]", ERROR_REPLY) +
                state_lines(REASON, "0x2660"));
}

TEST(StatusExchange, TheDrainsAnswerIsNoPartOfTheReply) {
  EXPECT_EQ(status_log({.drain = SideAnswer{1, std::string(512, 'd')}, .pieces = {ERROR_REPLY}}),
            answered(ERROR_REPLY, REASON, "0x2660"));
}

TEST(StatusExchange, ACommandAfterAFailedQueryWorksAgain) {
  FilterRun filter;
  filter.replies.push_back({});
  filter.replies.push_back({.pieces = {ERROR_REPLY}});
  filter.run_file("ReportStatus\nReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.requests, STATUS_REQUEST + STATUS_REQUEST);
  EXPECT_EQ(filter.log, status_unanswered(-1) + command_line("ReportStatus", 2) +
                            exchange_lines(STATUS_REQUEST, "[STS]", ERROR_REPLY) +
                            state_lines(REASON, "0x2660"));
}

TEST(StatusExchange, ALateReplyIsReadByTheNextQuery) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {ERROR_REPLY.substr(0, 14)}});
  filter.replies.push_back({.pieces = {ERROR_REPLY}});
  filter.run_file("ReportStatus\nReportStatus\n");
  EXPECT_EQ(filter.log, status_unanswered(-1) + command_line("ReportStatus", 2) +
                            exchange_lines(STATUS_REQUEST, "[STS]", ERROR_REPLY) +
                            state_lines(REASON, "0x2660"));
}

TEST(StatusExchange, AFullOutputIsAFailedFlush) {
  FilterRun filter;
  filter.output = Output::Full;
  filter.run_file("ReportStatus\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.side_requests, 1);
  EXPECT_EQ(filter.log, command_line("ReportStatus", 1) + trace_lines("[CMD]", STATUS_REQUEST) +
                            "DEBUG: fflush() failed.\n" + state_lines("", "UNAVAILABLE"));
}

TEST(StatusExchange, AFullOutputFailsEachQueryAndTheRunContinues) {
  FilterRun filter;
  filter.output = Output::Full;
  std::string commands;
  for (int i = 0; i < 2000; ++i) {
    commands += "ReportStatus\n";
  }
  filter.run_file(commands);
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.side_requests, 1);
  std::size_t failures = 0;
  for (const auto& line : filter.writes) {
    failures += line == "DEBUG: fflush() failed.\n" || line.starts_with("DEBUG: fwrite() failed. ret=");
  }
  EXPECT_EQ(failures, 2000U);
}

TEST(StatusExchange, AClosedOutputTerminatesTheFilterWithSigpipe) {
  FilterRun filter;
  filter.output = Output::Closed;
  filter.run_file("ReportStatus\n");
  EXPECT_EQ(filter.exit_status, -1);
  EXPECT_EQ(filter.log, command_line("ReportStatus", 1) + trace_lines("[CMD]", STATUS_REQUEST));
}

}  // namespace
