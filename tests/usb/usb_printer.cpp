// SPDX-License-Identifier: Apache-2.0
#include "tests/usb/usb_printer.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

void wait_until(const std::function<bool()>& condition, const std::string& what) {
  const auto deadline = steady_clock::now() + seconds(30);
  while (!condition()) {
    if (steady_clock::now() > deadline) {
      throw std::runtime_error("timed out waiting until " + what);
    }
    std::this_thread::sleep_for(milliseconds(10));
  }
}

}  // namespace

UsbPrinter::UsbPrinter(const PrivateScheduler& scheduler, const std::vector<std::string>& settings,
                       const std::vector<std::string>& options)
    : inside_(options), control_((scheduler.path() / "usb" / "control").string()) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2() failed");
  }
  std::vector<std::string> arguments = {"/bin/sh", START_USB_PRINTER_SCRIPT, scheduler.path().string(),
                                        USB_PRINTER_PROGRAM, std::to_string(inside_.port())};
  arguments.insert(arguments.end(), settings.begin(), settings.end());
  process_ = std::make_unique<ChildProcess>(ChildProcess::Options{arguments, {{1, ends[1]}}, {}});
  close(ends[1]);
  char first = 0;
  const bool ready = read(ends[0], &first, 1) == 1;
  close(ends[0]);
  if (!ready) {
    throw std::runtime_error("the simulated USB printer did not start");
  }
}

std::string UsbPrinter::why_not() {
  // The loader names a library that it cannot use, and goes on without it.
  return run_program({"/bin/sh", "-c", "LD_PRELOAD=libumockdev-preload.so.0 exec cat /dev/null"}).errors;
}

UsbPrinter::~UsbPrinter() {
  process_->signal(SIGTERM);
  process_->wait(seconds(5));
}

std::string UsbPrinter::ask(const std::string& line) const {
  return ask_control_socket(control_, line);
}

std::string UsbPrinter::value(const std::string& name) const {
  std::istringstream words(ask("show"));
  for (std::string word; words >> word;) {
    if (word.starts_with(name + "=")) {
      return word.substr(name.size() + 1);
    }
  }
  throw std::runtime_error("the simulated USB printer has no " + name);
}

std::string UsbPrinter::take_output() const {
  const std::string hexadecimal = ask("output");
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hexadecimal.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hexadecimal.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

void UsbPrinter::wait_until_claimed(bool claimed) const {
  wait_until([&] { return (value("claimed") == "1") == claimed; },
             claimed ? "a backend opens the printer" : "no backend has the printer open");
}

void UsbPrinter::wait_until_waiting(std::size_t bytes) const {
  wait_until([&] { return value("waiting") == std::to_string(bytes); },
             std::to_string(bytes) + " bytes wait in the printer");
}
