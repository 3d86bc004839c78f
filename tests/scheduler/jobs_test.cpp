// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <fstream>
#include <thread>

#include "tests/scheduler/one_printer.h"

namespace {

using Jobs = OnePrinter;
using std::chrono::milliseconds;

/// Waits until as many filters run as expected; how many run then.
std::size_t wait_for_filters(const PrivateScheduler& scheduler, std::size_t expected) {
  for (int i = 0; i < 500 && scheduler.running_filters().size() != expected; ++i) {
    std::this_thread::sleep_for(milliseconds(20));
  }
  return scheduler.running_filters().size();
}

TEST_F(Jobs, ACancelledJobLeavesNoProcessBehindAndTheNextOneWorks) {
  printer.tell("fault silent");
  std::string commands;
  for (int i = 0; i < 100; ++i) {
    commands += "ReportStatus\n";
  }
  const int job = scheduler.send_commands("booth", commands);
  ASSERT_EQ(wait_for_filters(scheduler, 1), 1U);
  scheduler.cancel_job(job);
  EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_CANCELED);
  EXPECT_EQ(wait_for_filters(scheduler, 0), 0U);

  printer.tell("fault none");
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
}

TEST_F(Jobs, UnknownCommandsCompleteWithoutAQuery) {
  const int job = scheduler.send_commands("booth", "Clean all\nPrintSelfTestPage\n");
  EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  EXPECT_TRUE(printer.requests().empty());
}

TEST_F(Jobs, AReportAfterARestartOfTheSchedulerIsCorrect) {
  static_cast<void>(scheduler.report("booth"));
  scheduler.restart(SIGTERM);
  printer.tell("code 0; remaining 100");
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.reasons, NO_REASON);
  EXPECT_EQ(view.marker, marker("25", "Ink Ribbon = 100 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)"));
}

TEST_F(Jobs, TheQueueAcceptsTheTwoCommands) {
  const std::string ppd = scheduler.path() / "etc/ppd/booth.ppd";
  std::ifstream file(ppd);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("*cupsCommands: \"ReportLevels ReportStatus\""), std::string::npos);
}

}  // namespace
