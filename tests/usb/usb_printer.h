// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"

/// UsbPrinter is a simulated printer on a simulated USB device, behind the `usb` backend of the distribution
/// in a private scheduler. It must end before the scheduler. A scheduler can have one.
class UsbPrinter {
 public:
  /// Starts the printer and plugs it in.
  /// @param settings  commands for the USB device before it is plugged in, for example "protocol 1".
  /// @param options   options of the printer in it, as brenvellis-simulator takes them.
  explicit UsbPrinter(const PrivateScheduler& scheduler, const std::vector<std::string>& settings = {},
                      const std::vector<std::string>& options = {});
  ~UsbPrinter();
  UsbPrinter(const UsbPrinter&) = delete;
  UsbPrinter& operator=(const UsbPrinter&) = delete;

  /// Why the backend cannot be shown a simulated device here; empty if it can.
  static std::string why_not();

  /// The device URI for a queue, as `lpinfo -v` lists it.
  [[nodiscard]] static std::string device_uri() {
    return "usb://Brenvellis/Photo%20Printer?serial=SIMULATED";
  }

  /// Plugs the printer in again, as a new device.
  void plug() const { tell("plug"); }
  /// Pulls the cable. The replies that wait in the device are lost.
  void unplug() const { tell("unplug"); }
  /// A busy printer takes no data.
  void set_busy(bool busy) const { tell(busy ? "busy on" : "busy off"); }
  /// Whether an idle read gets an empty packet. At first it gets no answer: every job then takes 8 s longer,
  /// and once in a while the backend crashes at its end, which makes the scheduler hold the job.
  void answer_idle_reads(bool answer) const { tell(answer ? "idle empty" : "idle silent"); }

  /// 1: the computer can only write; 2: it can also read. From the next plug() on.
  void set_protocol(int protocol) const { tell("protocol " + std::to_string(protocol)); }

  /// Waits until a backend has opened the printer, or has closed it. A backend that was killed counts until
  /// another one opens the printer. Throws after 30 s.
  void wait_until_claimed(bool claimed = true) const;
  /// Waits until so many bytes wait in the device for a reader. Throws after 30 s.
  void wait_until_waiting(std::size_t bytes) const;
  /// All bytes that the printer got since the start or the last call.
  [[nodiscard]] std::string take_output() const;
  /// A value of the device's state: plugged, protocol, idle, busy, claimed, received, waiting.
  [[nodiscard]] std::string value(const std::string& name) const;

  /// The printer itself: its condition and its faults.
  [[nodiscard]] const NetworkPrinter& inside() const { return inside_; }

 private:
  [[nodiscard]] std::string ask(const std::string& line) const;
  void tell(const std::string& line) const { static_cast<void>(ask(line)); }

  NetworkPrinter inside_;
  std::string control_;
  std::unique_ptr<ChildProcess> process_;
};
