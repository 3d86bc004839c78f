// SPDX-License-Identifier: Apache-2.0
#include "tests/scheduler/one_printer.h"

namespace {

using Reports = OnePrinter;

TEST_F(Reports, ReportLevelsShowsTheRibbonAndTheError) {
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
}

TEST_F(Reports, ReportStatusShowsTheErrorAndNoRibbon) {
  const auto view = scheduler.report("booth", "ReportStatus\n");
  EXPECT_EQ(view.reasons, ERROR_2660);
  EXPECT_EQ(view.marker.count("marker-levels"), 0U);
}

TEST_F(Reports, AHealthyPrinterHasNoReason) {
  printer.tell("code 0");
  EXPECT_EQ(scheduler.report("booth").reasons, NO_REASON);
}

TEST_F(Reports, AnErrorIsRaisedThenClearedThenAnotherIsRaised) {
  EXPECT_EQ(scheduler.report("booth", "ReportStatus\n").reasons, ERROR_2660);
  printer.tell("code 0");
  EXPECT_EQ(scheduler.report("booth", "ReportStatus\n").reasons, NO_REASON);
  printer.tell("code 0x7552");
  EXPECT_EQ(scheduler.report("booth", "ReportStatus\n").reasons, Reasons{"com.brenvellis-error0018_7552"});
}

TEST_F(Reports, OneErrorReplacesTheOther) {
  EXPECT_EQ(scheduler.report("booth", "ReportStatus\n").reasons, ERROR_2660);
  printer.tell("code 0x0001");
  EXPECT_EQ(scheduler.report("booth", "ReportStatus\n").reasons, Reasons{"com.brenvellis-error0001"});
}

TEST_F(Reports, AnUnknownCodeIsTheFallback) {
  printer.tell("code 0x1234");
  EXPECT_EQ(scheduler.report("booth", "ReportStatus\n").reasons, FALLBACK);
}

TEST_F(Reports, TheRibbonOverItsLife) {
  const std::vector<std::pair<std::string, Marker>> life = {
      {"total 400; remaining 400; sheet 2",
       marker("100", "Ink Ribbon = 400 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)")},
      {"remaining 4", marker("1", "Ink Ribbon = 4 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)")},
      {"remaining 3", marker("0", "Ink Ribbon = 3 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)")},
      {"remaining 0", marker("0", "Ink Ribbon = 0 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)")},
      {"total 350; remaining 350; sheet 4",
       marker("100", "Ink Ribbon = 350 / 350", "InkSheetType: 13x18(5x7\xe2\x80\xb3)")},
      {"total 200; remaining 201; sheet 0x0f",
       marker("100", "Ink Ribbon = 201 / 200", "InkSheetType: 15x20(6x8\xe2\x80\xb3)")},
      {"remaining 65535", marker("-1", " ", "InkSheetType: 15x20(6x8\xe2\x80\xb3)")},
      {"remaining 100; total 0", marker("-1", " ", "InkSheetType: 15x20(6x8\xe2\x80\xb3)")},
      {"total 65535; sheet 0xff", marker("-1", " ", " ")},
      {"total 200; sheet 0x10", marker("50", "Ink Ribbon = 100 / 200", "InkSheetType: 10")},
  };
  for (const auto& [setting, expected] : life) {
    printer.tell(setting);
    EXPECT_EQ(scheduler.report("booth").marker, expected) << setting;
  }
}

TEST_F(Reports, AFileMayHoldBothCommands) {
  const auto view = scheduler.report("booth", "ReportStatus\nReportLevels\n");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
  EXPECT_EQ(printer.requests(),
            (std::vector<std::string>{"1b47443000000116", "1b4744300000031e162a", "1b47443000000116"}));
}

TEST_F(Reports, TwoQueuesAtOnceAreNotCrossed) {
  const NetworkPrinter other({"--remaining", "7", "--total", "350", "--sheet", "4", "--fault", "slow 200"});
  scheduler.add_queue("kiosk", other.device_uri());
  const int booth = scheduler.send_commands("booth", "ReportLevels\n");
  const int kiosk = scheduler.send_commands("kiosk", "ReportLevels\n");
  ASSERT_EQ(scheduler.wait_for_job(booth), IPP_JSTATE_COMPLETED);
  ASSERT_EQ(scheduler.wait_for_job(kiosk), IPP_JSTATE_COMPLETED);
  EXPECT_EQ(scheduler.view("booth").marker, HALF_USED);
  EXPECT_EQ(scheduler.view("booth").reasons, ERROR_2660);
  EXPECT_EQ(scheduler.view("kiosk").marker,
            marker("2", "Ink Ribbon = 7 / 350", "InkSheetType: 13x18(5x7\xe2\x80\xb3)"));
  EXPECT_EQ(scheduler.view("kiosk").reasons, NO_REASON);
}

TEST_F(Reports, TheJobLogTracesBothExchanges) {
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  ASSERT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  const auto log = scheduler.job_log(job);
  EXPECT_NE(std::ranges::find(log, "[CMD] 0000: 1b 47 44 30 00 00 03 1e 16 2a"), log.end());
  EXPECT_NE(std::ranges::find(log, "[REP] size=26"), log.end());
  EXPECT_NE(std::ranges::find(log, "[CMD] 0000: 1b 47 44 30 00 00 01 16"), log.end());
  EXPECT_NE(std::ranges::find(log, "[STS] size=15"), log.end());
  EXPECT_NE(std::ranges::find(log, "CUPS_SC_CMD_DRAIN_OUTPUT=CUPS_SC_STATUS_OK(1)"), log.end());
}

TEST_F(Reports, ReportLevelsThroughABackendThatIsNotBidirectionalLeavesTheReasonsAlone) {
  scheduler.add_queue("lpd", "lpd://127.0.0.1:" + std::to_string(printer.port()) + "/queue");
  const auto view = scheduler.report("lpd", "ReportLevels\n");
  EXPECT_EQ(view.marker, UNKNOWN_LEVEL);
  EXPECT_EQ(view.reasons, NO_REASON);
}

TEST_F(Reports, ABackendThatIsNotBidirectionalGetsNothingToSend) {
  scheduler.add_queue("lpd", "lpd://127.0.0.1:" + std::to_string(printer.port()) + "/queue");
  const int job = scheduler.send_commands("lpd", "ReportLevels\nReportStatus\n");
  ASSERT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  const auto view = scheduler.view("lpd");
  EXPECT_EQ(view.marker, UNKNOWN_LEVEL);
  EXPECT_EQ(view.reasons, FALLBACK);
  EXPECT_TRUE(printer.requests().empty());
}

}  // namespace
