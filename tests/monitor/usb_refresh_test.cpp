// SPDX-License-Identifier: Apache-2.0
// The monitor and a printer on USB, with the distribution's own configuration.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/monitor/monitor_run.h"
#include "tests/usb/usb_job_log.h"
#include "tests/usb/usb_printer.h"

namespace {

using std::chrono::seconds;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

class UsbRefresh : public testing::Test {
 protected:
  UsbRefresh() { scheduler.add_queue("booth", UsbPrinter::device_uri()); }

  PrivateScheduler scheduler{{.configuration = PrivateScheduler::Configuration::DEFAULT}};
  UsbPrinter printer{scheduler, {}, {"--remaining", "200", "--total", "400"}};
};

TEST_F(UsbRefresh, APrintDoesNotWaitForTheBackend) {
  const auto watch =
      start_monitor(scheduler.server(), {"--watch", "60", "--timeout", "60", "--json=/dev/null/nowhere"});
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  const int refresh = active_jobs(scheduler).at(0);
  ASSERT_TRUE(logs(scheduler, refresh, "Waiting for read thread to exit"));
  const int print = scheduler.send_raw("booth", "a photo");
  for (int i = 0; i < 500 && testing::Value(all_jobs(scheduler), Contains(refresh)); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_THAT(all_jobs(scheduler), Not(Contains(refresh)));
  EXPECT_THAT(scheduler.job_log(refresh), Not(Contains(testing::HasSubstr("aborting the pending read"))))
      << "the backend waited for its reader";
  // Else the backend might crash after the print, and the scheduler would hold it.
  printer.answer_idle_reads(true);
  ASSERT_EQ(scheduler.wait_for_job(print, seconds(60)), IPP_JSTATE_COMPLETED);
  EXPECT_THAT(printer.take_output(), testing::HasSubstr("a photo"));
}

TEST_F(UsbRefresh, ALateReplyIsNeverShown) {
  const std::vector<std::string> patient = {"--timeout", "60"};
  ASSERT_EQ(run_json(scheduler.server(), patient).exit_status, 0);
  // Longer than the filter waits; the reply stays in the device.
  printer.inside().tell("fault slow 8000");
  EXPECT_EQ(run_json(scheduler.server(), patient).queue("booth")["ribbon"]["answered"], false);
  printer.wait_until_waiting(15);
  printer.inside().tell("fault none; remaining 150");
  printer.answer_idle_reads(true);
  const auto one = run_json(scheduler.server(), patient);
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 150);
  EXPECT_THAT(one.queue("booth")["errors"], IsEmpty());
  EXPECT_THAT(all_jobs(scheduler), IsEmpty());
}

}  // namespace
