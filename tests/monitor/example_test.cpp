// SPDX-License-Identifier: Apache-2.0
// The example that reads the monitor's JSON.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using testing::MatchesRegex;
using testing::StartsWith;

ProgramResult run_example(const std::string& server, const std::vector<std::string>& queues = {}) {
  auto environment = monitor_environment(server);
  environment["PATH"] =
      std::filesystem::path(MONITOR_PROGRAM).parent_path().string() + ":" + std::getenv("PATH");
  std::vector<std::string> arguments = {PYTHON3, EXAMPLE_PROGRAM};
  arguments.insert(arguments.end(), queues.begin(), queues.end());
  return run_program(arguments, {}, environment);
}

TEST(PythonExample, TellsPrintsAndErrorsOfEachQueue) {
  const NetworkPrinter booth({"--remaining", "200"});
  const NetworkPrinter hall({"--remaining", "12", "--code", "0x2660"});
  const PrivateScheduler scheduler;
  scheduler.add_queue("booth", booth.device_uri());
  scheduler.add_queue("hall", hall.device_uri());
  scheduler.add_queue("paused", booth.device_uri());
  scheduler.pause("paused");
  const std::string time = "20[0-9-]*T[0-9:]*Z";
  auto result = run_example(scheduler.server());
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output, MatchesRegex("booth: 200 prints left, ready, read " + time +
                                          "\nhall: 12 prints left, not ready, read " + time +
                                          "\n  error 0008, code 2660\n"
                                          "paused: \\? prints left, not ready, read never\n"));
  result = run_example(scheduler.server(), {"booth"});
  EXPECT_THAT(result.output, MatchesRegex("booth: 200 prints left, ready, read " + time + "\n"));
}

TEST(PythonExample, TellsWhyAServerCannotBeRead) {
  const auto result = run_example("/nonexistent/cups.sock");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.errors, StartsWith("localhost: it cannot be reached"));
}

}  // namespace
