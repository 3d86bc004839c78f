// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/temporary_folder.h"
#include "tests/unit/captured_stream.h"
#include "tests/unit/recorded_channels.h"

int filter_main(int argc, char* argv[]);

namespace {

/// Runs the filter's main function in this process on a command file with the given text.
std::string log_of_filter(const std::string& commands) {
  const TemporaryFolder folder;
  std::string path = folder.path() / "commands";
  std::ofstream(path) << commands;
  std::array<std::string, 7> words = {"commandtobrenvellis", "1", "user", "title", "1", "", path};
  std::array<char*, 8> argv{};
  std::ranges::transform(words, argv.begin(), [](std::string& word) { return word.data(); });
  return captured_log([&] { EXPECT_EQ(filter_main(7, argv.data()), 0); });
}

TEST(CommandFile, IsClosedAtTheEnd) {
  channels = {};
  const auto open_files = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  };
  const auto before = open_files();
  log_of_filter("Other\n");
  EXPECT_EQ(open_files(), before);
}

TEST(Probe, IsMadeOnceWith512BytesAndThirtySeconds) {
  channels = {};
  log_of_filter("");
  EXPECT_EQ(channels.side_calls, (std::vector<SideChannelCall>{{CUPS_SC_CMD_GET_BIDI, 512, 30.0}}));
}

TEST(Probe, IsNotRepeatedForTheCommands) {
  channels = {};
  channels.answer = "";  // not bidirectional: the commands ask nothing themselves
  log_of_filter("ReportStatus\nReportLevels\nReportStatus\n");
  EXPECT_EQ(channels.side_calls.size(), 1U);
}

}  // namespace
