// SPDX-License-Identifier: Apache-2.0
// usb_printer: a printer on USB in user space, for the tests. It plugs the printer in, prints the folder for
// UMOCKDEV_DIR and runs until SIGTERM.
//
//   usb_printer PORT CONTROL [COMMAND]...
//
// PORT     where brenvellis-simulator listens: the inside of the printer.
// CONTROL  the path of a Unix socket that takes one command per line; brenvellis-simulator --tell can send
// them. COMMAND  is carried out before the printer is plugged in.

#include <asio.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/control_server.h"
#include "tests/usb/usb_device.h"

namespace {

constexpr std::string_view COMMANDS =
    "plug, unplug, busy on|off, idle silent|empty (how an idle read is answered), "
    "protocol 1|2 (at the next plug), output (in hexadecimal, since the last time), show";

std::string execute(UsbDevice& device, const std::string& line) {
  if (line == "plug") {
    device.plug();
  } else if (line == "unplug") {
    device.unplug();
  } else if (line == "busy on" || line == "busy off") {
    device.set_busy(line == "busy on");
  } else if (line == "idle silent" || line == "idle empty") {
    device.set_answers_idle_read(line == "idle empty");
  } else if (line == "protocol 1" || line == "protocol 2") {
    device.set_protocol(line == "protocol 1" ? 1 : 2);
  } else if (line == "output") {
    return "ok " + hexadecimal(device.take_output());
  } else if (line == "show") {
    return "ok " + device.show();
  } else {
    return "error: unknown command \"" + line + "\" (expected: " + std::string(COMMANDS) + ")";
  }
  return "ok";
}

int run(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "Usage: usb_printer PORT CONTROL [COMMAND]...\nCommands: %s\n",
            std::string(COMMANDS).c_str());
    return 2;
  }
  asio::io_context io(1);
  asio::signal_set ending(io, SIGINT, SIGTERM);
  ending.async_wait([&io](std::error_code, int) { io.stop(); });

  UsbDevice device(io, static_cast<std::uint16_t>(std::atoi(argv[1])), {});
  ControlServer control(io, [&](const std::optional<std::string>& line) {
    return line ? execute(device, *line) : "error: the line is too long";
  });
  if (const auto error = control.open(argv[2])) {
    fprintf(stderr, "usb_printer: %s\n", error->c_str());
    return 1;
  }
  for (int i = 3; i < argc; ++i) {
    if (const std::string reply = execute(device, argv[i]); reply != "ok") {
      fprintf(stderr, "usb_printer: %s\n", reply.c_str());
      return 2;
    }
  }
  device.plug();
  printf("%s\n", device.folder().c_str());
  fflush(stdout);
  io.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "usb_printer: %s\n", error.what());
    return 1;
  }
}
