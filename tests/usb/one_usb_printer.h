// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

  void SetUp() override {
    if (const std::string reason = UsbPrinter::why_not(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
  }

  void wait_for_log(int job, const std::string& text) const {
    EXPECT_TRUE(logs(scheduler, job, text)) << "job " << job << ": " << text;
  }

  PrivateScheduler scheduler;
  UsbPrinter printer;
};
