#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/channel/filter_run.h"

namespace {

TEST(LogStream, EveryLineLeavesInOneWrite) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {levels_reply(200, 400, 2, 512)}});
  filter.replies.push_back({.pieces = {status_reply(0x2660)}});
  filter.run_file("ReportLevels\n" + std::string(1023, 'x') + "\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.writes.size(), static_cast<std::size_t>(std::ranges::count(filter.log, '\n')));
  for (const auto& line : filter.writes) {
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
  }
}

TEST(LogStream, EveryLineCarriesALogPrefix) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {levels_reply(200, 400, 2, 512)}});
  filter.replies.push_back({.pieces = {status_reply(0x2660)}});
  filter.run_file("ReportLevels\nOther\n");
  for (const auto& line : filter.writes) {
    EXPECT_THAT(line, testing::AnyOf(testing::StartsWith("DEBUG: "), testing::StartsWith("STATE: "),
                                     testing::StartsWith("ATTR: ")));
  }
}

}  // namespace
