// SPDX-License-Identifier: Apache-2.0
#include "filter/channel_trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/unit/captured_stream.h"

namespace {

std::string trace(const char* label, const std::vector<unsigned char>& bytes) {
  return captured_log([&] { dump_mem(label, bytes.data(), static_cast<int>(bytes.size())); });
}

TEST(ChannelTrace, ARequestIsASizeLineAndADataLine) {
  EXPECT_EQ(trace("[CMD]", {0x1b, 0x47, 0x44, 0x30, 0x00, 0x00, 0x01, 0x16}),
            "DEBUG: [CMD] size=8\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 01 16\n");
}

TEST(ChannelTrace, SixteenBytesLeaveNoEmptyLine) {
  EXPECT_EQ(trace("[STS]", std::vector<unsigned char>(16, 0xff)),
            "DEBUG: [STS] size=16\nDEBUG: [STS] 0000: ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n");
}

TEST(ChannelTrace, TheSeventeenthByteOpensALineWithItsOffset) {
  EXPECT_EQ(trace("[REP]", std::vector<unsigned char>(17, 0x80)),
            "DEBUG: [REP] size=17\nDEBUG: [REP] 0000: 80 80 80 80 80 80 80 80 80 80 80 80 80 80 80 80\n"
            "DEBUG: [REP] 0010: 80\n");
}

TEST(ChannelTrace, TwentyBytesAreTwoDataLines) {
  EXPECT_EQ(trace("[STS]", std::vector<unsigned char>(20, 0)),
            "DEBUG: [STS] size=20\nDEBUG: [STS] 0000: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n"
            "DEBUG: [STS] 0010: 00 00 00 00\n");
}

TEST(ChannelTrace, OffsetsHaveFourHexadecimalDigits) {
  const std::string log = trace("[STS]", std::vector<unsigned char>(512, 1));
  EXPECT_NE(log.find("\nDEBUG: [STS] 00a0: 01"), std::string::npos);
  EXPECT_NE(log.find("\nDEBUG: [STS] 01f0: 01"), std::string::npos);
  EXPECT_EQ(log.find("0200:"), std::string::npos);
}

TEST(ChannelTrace, OffsetsHaveMoreDigitsWhereFourAreTooFew) {
  const std::string log = trace("[REP]", std::vector<unsigned char>(0x10011, 1));
  EXPECT_NE(log.find("\nDEBUG: [REP] fff0: 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01\n"
                     "DEBUG: [REP] 10000: 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01\n"
                     "DEBUG: [REP] 10010: 01\n"),
            std::string::npos);
}

class LongBuffers : public testing::TestWithParam<int> {};

TEST_P(LongBuffers, AreDumpedWhole) {
  const int size = GetParam();
  const std::string log = trace("[REP]", std::vector<unsigned char>(static_cast<std::size_t>(size), 0xab));
  EXPECT_TRUE(log.starts_with("DEBUG: [REP] size=" + std::to_string(size) + "\n"));
  int bytes = 0;
  for (auto at = log.find(" ab"); at != std::string::npos; at = log.find(" ab", at + 1)) {
    ++bytes;
  }
  EXPECT_EQ(bytes, size);
  EXPECT_EQ(std::ranges::count(log, '\n'), 1 + (size + 15) / 16);
}

INSTANTIATE_TEST_SUITE_P(ChannelTrace, LongBuffers, testing::Values(512, 513, 600, 1024, 4097));

TEST(ChannelTrace, NoBytesGiveADataLineWithoutBytes) {
  EXPECT_EQ(captured_log([] { dump_mem("[REP]", "x", 0); }), "DEBUG: [REP] size=0\nDEBUG: [REP] 0000:\n");
}

TEST(ChannelTrace, ANegativeSizeGivesTheSizeLineAlone) {
  EXPECT_EQ(captured_log([] { dump_mem("[REP]", "x", -1); }), "DEBUG: [REP] size=-1\n");
  EXPECT_EQ(captured_log([] { dump_mem("[REP]", "x", -16); }), "DEBUG: [REP] size=-16\n");
}

struct StatusName {
  int status;
  const char* name;
};

class SideChannelStatuses : public testing::TestWithParam<StatusName> {};

TEST_P(SideChannelStatuses, HaveTheirNameInTheCupsHeader) {
  EXPECT_STREQ(to_string(static_cast<cups_sc_status_e>(GetParam().status)), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    ChannelTrace, SideChannelStatuses,
    testing::Values(StatusName{0, "CUPS_SC_STATUS_NONE"}, StatusName{1, "CUPS_SC_STATUS_OK"},
                    StatusName{2, "CUPS_SC_STATUS_IO_ERROR"}, StatusName{3, "CUPS_SC_STATUS_TIMEOUT"},
                    StatusName{4, "CUPS_SC_STATUS_NO_RESPONSE"}, StatusName{5, "CUPS_SC_STATUS_BAD_MESSAGE"},
                    StatusName{6, "CUPS_SC_STATUS_TOO_BIG"}, StatusName{7, "CUPS_SC_STATUS_NOT_IMPLEMENTED"},
                    StatusName{8, "UNKNOWN"}, StatusName{255, "UNKNOWN"}, StatusName{-1, "UNKNOWN"}));

}  // namespace
