#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "tests/usb/usb_job_log.h"
#include "tests/usb/usb_printer.h"

/// A private scheduler with a queue "booth" to a printer on USB with a half-used ribbon and error 2660. The
/// printer gives an idle read no answer.
class UsbQueue : public testing::Test {
 protected:
  explicit UsbQueue(const std::vector<std::string>& settings = {})
      : printer(scheduler, settings, {"--remaining", "200", "--total", "400", "--code", "0x2660"}) {
    scheduler.add_queue("booth", UsbPrinter::device_uri());
  }

  void wait_for_log(int job, const std::string& text) const {
    EXPECT_TRUE(logs(scheduler, job, text)) << "job " << job << ": " << text;
  }

  /// The private scheduler kills what does not end within a second of a cancel; the scheduler's default
  /// is 30.
  void allow_a_backend_to_ignore_its_end() {
    std::ofstream(scheduler.path() / "etc/cupsd.conf", std::ios::app) << "JobKillDelay 30\n";
    scheduler.restart(SIGTERM);
  }

  PrivateScheduler scheduler;
  UsbPrinter printer;
};
