// SPDX-License-Identifier: Apache-2.0
// The filter behind the distribution's usb backend, with a simulated device.

#include <csignal>
#include <fstream>
#include <thread>

#include "tests/scheduler/one_printer.h"
#include "tests/support/expected_log.h"
#include "tests/usb/one_usb_printer.h"

namespace {

using testing::HasSubstr;

TEST_F(UsbQueue, LevelsAndErrorAreThoseOfThePrinter) {
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  EXPECT_EQ(end_of(scheduler, job), "completed");
  const auto view = scheduler.view("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
  EXPECT_THAT(scheduler.job_log(job),
              testing::Contains(HasSubstr("Read thread still active, aborting the pending read")))
      << "the device leaves an idle read without an answer";
}

TEST_F(UsbQueue, AnEmptyPacketForAnIdleReadEndsTheJob) {
  printer.answer_idle_reads(true);
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  const auto view = scheduler.view("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
  EXPECT_THAT(scheduler.job_log(job),
              testing::Not(testing::Contains(HasSubstr("aborting the pending read"))));
}

TEST_F(UsbQueue, LpinfoListsThePrinter) {
  const auto result = run_program({"/bin/sh", "-c", "PATH=$PATH:/usr/sbin lpinfo --include-schemes usb -v"},
                                  {}, {{"CUPS_SERVER", scheduler.server()}});
  EXPECT_EQ(result.output, "direct " + UsbPrinter::device_uri() + "\n") << result.errors;
}

TEST_F(UsbQueue, TheDriverIsFoundByTheIdThatThePrinterReports) {
  // The scheduler's own data, with this driver in place of the installed ones.
  const auto data = scheduler.path() / "data";
  std::filesystem::create_directories(data / "model");
  for (const auto& entry : std::filesystem::directory_iterator(CUPS_DATA_FOLDER)) {
    const auto name = entry.path().filename();
    if (name != "model" && name != "drv") {
      std::filesystem::create_symlink(entry.path(), data / name);
    }
  }
  std::filesystem::copy_file(PPD_FILE, data / "model" / "brenvell.ppd");
  std::ofstream(scheduler.path() / "etc/cups-files.conf", std::ios::app)
      << "DataDir " << data.string() << '\n';
  scheduler.restart(SIGTERM);

  const std::string script = R"(PATH=$PATH:/usr/sbin
id=$(lpinfo -l --include-schemes usb -v | sed -n 's/.*device-id = //p')
lpinfo --device-id "$id" --exclude-schemes driverless,driverless-fax -m
)";
  const auto result = run_program({"/bin/sh", "-c", script}, {}, {{"CUPS_SERVER", scheduler.server()}});
  EXPECT_THAT(result.output, testing::StartsWith("brenvell.ppd Brenvellis Photo Printer")) << result.errors;
}

TEST_F(UsbQueue, TenReportsInARowAreRight) {
  printer.answer_idle_reads(true);
  for (unsigned remaining = 400; remaining > 360; remaining -= 4) {
    printer.inside().tell("remaining " + std::to_string(remaining));
    const auto view = scheduler.report("booth");
    EXPECT_EQ(view.marker.at("marker-levels"), std::to_string(remaining / 4));
    EXPECT_EQ(view.reasons, ERROR_2660);
  }
}

TEST_F(UsbQueue, APrintBetweenTwoReportsArrivesByteForByte) {
  printer.answer_idle_reads(true);
  std::string print;
  for (int i = 0; i < 40000; ++i) {
    print += static_cast<char>(i * 7 + i / 256);
  }
  const int before = scheduler.send_commands("booth", "ReportLevels\n");
  const int between = scheduler.send_raw("booth", print);
  const int after = scheduler.send_commands("booth", "ReportStatus\n");
  for (const int job : {before, between, after}) {
    EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  }
  EXPECT_TRUE(printer.take_output() == LEVELS_REQUEST + STATUS_REQUEST + print + STATUS_REQUEST);
}

TEST_F(UsbQueue, TwoQueuesOnOnePrinterTakeTurns) {
  printer.answer_idle_reads(true);
  scheduler.add_queue("kiosk", UsbPrinter::device_uri());
  const int one = scheduler.send_commands("booth", "ReportLevels\n");
  const int other = scheduler.send_commands("kiosk", "ReportLevels\n");
  for (const int job : {one, other}) {
    EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  }
  for (const char* queue : {"booth", "kiosk"}) {
    const auto view = scheduler.view(queue);
    EXPECT_EQ(view.marker, HALF_USED) << queue;
    EXPECT_EQ(view.reasons, ERROR_2660) << queue;
  }
}

TEST_F(UsbQueue, APurgedJobFreesTheQueueThatItsBackendHolds) {
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  wait_for_log(job, "Waiting for read thread to exit");
  scheduler.purge_job(job);
  printer.inside().tell("remaining 100");
  printer.answer_idle_reads(true);
  EXPECT_EQ(scheduler.report("booth").marker.at("marker-levels"), "25");
  EXPECT_THAT(scheduler.job_log(job), testing::Not(testing::Contains(HasSubstr("aborting the pending read"))))
      << "the backend was ended while it waited";
}

TEST_F(UsbQueue, ACancelledJobKeepsTheQueueUntilItsBackendHasWaited) {
  // The private scheduler kills after a second what does not end; this is the scheduler's default.
  std::ofstream(scheduler.path() / "etc/cupsd.conf", std::ios::app) << "JobKillDelay 30\n";
  scheduler.restart(SIGTERM);
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  wait_for_log(job, "Waiting for read thread to exit");
  scheduler.cancel_job(job);
  EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_CANCELED);
  printer.wait_until_claimed(false);
  wait_for_log(job, "aborting the pending read");
}

TEST_F(UsbQueue, APulledCableFailsTheJobAndTheNextReportIsCorrect) {
  printer.answer_idle_reads(true);
  printer.set_busy(true);
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  wait_for_log(job, "Read 10 bytes of print data");
  printer.unplug();
  wait_for_log(job, "Unable to send data to printer");
  printer.set_busy(false);
  printer.plug();
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
  EXPECT_LT(scheduler.job_state(job), IPP_JSTATE_CANCELED) << "the job waits to be tried again";
}

TEST_F(UsbQueue, ALateReplyReachesTheNextJobAndTheFollowingOneIsCorrect) {
  // Longer than the filter waits for anything; the first reply finds the backend waiting for its reader.
  printer.inside().tell("fault slow 8000");
  const int late = scheduler.send_commands("booth", "ReportLevels\n");
  EXPECT_EQ(end_of(scheduler, late), "completed");
  printer.wait_until_waiting(15);
  printer.inside().tell("fault none; remaining 100");
  printer.answer_idle_reads(true);

  const auto next = scheduler.report("booth");
  EXPECT_EQ(next.marker.at("marker-levels"), "0");
  EXPECT_EQ(next.marker.at("marker-message"), "Ink Ribbon = 0 / 24576");

  const auto after = scheduler.report("booth");
  EXPECT_EQ(after.marker.at("marker-message"), "Ink Ribbon = 100 / 400");
  EXPECT_EQ(after.reasons, ERROR_2660);
}

class OneWayUsbQueue : public UsbQueue {
 protected:
  OneWayUsbQueue() : UsbQueue({"protocol 1"}) {}
};

TEST_F(OneWayUsbQueue, IsNotQueriedAndItsLevelIsUnknown) {
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, UNKNOWN_LEVEL);
  EXPECT_EQ(view.reasons, NO_REASON);
  EXPECT_EQ(printer.take_output(), "");
}

TEST(UsbWrapper, ItsEnvironmentDoesNotReachFilters) {
  if (const std::string reason = UsbPrinter::why_not(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  const TemporaryFolder folder;
  const auto filter = folder.path() / "filter";
  std::ofstream(filter) << "#!/bin/sh\nenv | sed 's/^/DEBUG: environment /' >&2\n";
  const PrivateScheduler scheduler({.filter = filter.string()});
  const UsbPrinter printer(scheduler, {"idle empty"});
  scheduler.add_queue("booth", UsbPrinter::device_uri());
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_COMPLETED);
  EXPECT_THAT(scheduler.job_log(job), testing::Contains("environment PRINTER=booth"));
  EXPECT_THAT(scheduler.job_log(job),
              testing::Not(testing::Contains(testing::ContainsRegex("LD_PRELOAD|UMOCKDEV"))));
}

}  // namespace
