#include <gtest/gtest.h>

#include "tests/scheduler/one_printer.h"
#include "tests/usb/usb_printer.h"

namespace {

class Usb : public testing::Test {
 protected:
  explicit Usb(const std::vector<std::string>& settings = {})
      : printer(scheduler, settings, {"--remaining", "200", "--total", "400", "--code", "0x2660"}) {
    scheduler.add_queue("booth", UsbPrinter::device_uri());
  }

  PrivateScheduler scheduler;
  UsbPrinter printer;
};

TEST_F(Usb, LevelsAndErrorAreWhatThePrinterHas) {
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
}

}  // namespace
