// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/channel/filter_run.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

namespace {

const std::vector<std::string> FIVE = {"1", "user", "title", "1", ""};

class WrongArgumentCount : public testing::TestWithParam<int> {};

TEST_P(WrongArgumentCount, IsTheUsageTextWithoutALineEndAndNothingElse) {
  FilterRun filter;
  filter.input = "ReportStatus\n";
  filter.run(std::vector<std::string>(static_cast<std::size_t>(GetParam() - 1), "x"));
  EXPECT_EQ(filter.exit_status, 1);
  EXPECT_EQ(filter.log, "ERROR: Usage: " FILTER_PROGRAM " job-id user title copies options [file]");
  EXPECT_EQ(filter.requests, "");
  EXPECT_EQ(filter.side_requests, 0);
}

INSTANTIATE_TEST_SUITE_P(Arguments, WrongArgumentCount, testing::Values(1, 2, 3, 4, 5, 8, 9));

TEST(Arguments, TheUsageTextNamesTheProgramAsItWasCalled) {
  const TemporaryFolder folder;
  FilterRun filter;
  filter.program = folder.path() / "another name";
  std::filesystem::create_symlink(FILTER_PROGRAM, filter.program);
  filter.run({});
  EXPECT_EQ(filter.exit_status, 1);
  EXPECT_EQ(filter.log, "ERROR: Usage: " + filter.program + " job-id user title copies options [file]");
}

TEST(Arguments, AClosedStandardInputHoldsNoCommands) {
  FilterRun filter;
  filter.input_closed = true;
  filter.run(FIVE);
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, "");
  EXPECT_EQ(filter.side_requests, 1);
}

TEST(Arguments, AFileIsReadWithoutAStandardInput) {
  FilterRun filter;
  filter.input_closed = true;
  filter.run_file("Other\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line("Other", 1));
  EXPECT_EQ(filter.side_requests, 1);
}

TEST(Arguments, SixReadTheCommandsFromStandardInput) {
  FilterRun filter;
  filter.probe = SideAnswer{CUPS_SC_STATUS_NOT_IMPLEMENTED, ""};
  filter.input = "ReportStatus\n";
  filter.run(FIVE);
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, no_bidirectional_line("CUPS_SC_STATUS_NOT_IMPLEMENTED", 7) +
                            command_line("ReportStatus", 1) + state_lines("", "UNAVAILABLE"));
}

TEST(Arguments, SevenReadTheFileAndNotStandardInput) {
  FilterRun filter;
  filter.probe = SideAnswer{CUPS_SC_STATUS_NOT_IMPLEMENTED, ""};
  filter.input = "ReportStatus\n";
  filter.run_file("Other\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log,
            no_bidirectional_line("CUPS_SC_STATUS_NOT_IMPLEMENTED", 7) + command_line("Other", 1));
}

TEST(Arguments, OtherArgumentsAreNotRead) {
  FilterRun filter;
  filter.input = "Other\n";
  filter.run({"not a number", "", "%s%n", "-1", "a=b c=d"});
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, command_line("Other", 1));
}

TEST(Arguments, AMissingFileIsNamedByTheSystemsErrorAndNothingIsProbed) {
  FilterRun filter;
  filter.run({"1", "user", "title", "1", "", "/nonexistent/commands"});
  EXPECT_EQ(filter.exit_status, 1);
  EXPECT_EQ(filter.log, "ERROR: Unable to open command file - : No such file or directory\n");
  EXPECT_EQ(filter.side_requests, 0);
}

TEST(Arguments, AnUnreadableFileIsNamedByTheSystemsError) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "commands";
  std::ofstream(path) << "ReportStatus\n";
  chmod(path.c_str(), 0);
  // Root can read any file, so run the filter as another user.
  const std::vector<std::string> filter = {FILTER_PROGRAM, "1", "user", "title", "1", "", path};
  std::vector<std::string> command = filter;
  if (geteuid() == 0) {
    command = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    // Other users may be unable to enter the build folder, so run a copy.
    const std::string copy = folder.path() / "filter";
    std::filesystem::copy_file(FILTER_PROGRAM, copy);
    command.push_back(copy);
    command.insert(command.end(), filter.begin() + 1, filter.end());
  }
  const auto result = run_program(command);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.errors, "ERROR: Unable to open command file - : Permission denied\n");
}

TEST(Arguments, AFolderHoldsNoCommands) {
  FilterRun filter;
  filter.run({"1", "user", "title", "1", "", "/"});
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.log, "");
  EXPECT_EQ(filter.side_requests, 1);
}

}  // namespace
