// SPDX-License-Identifier: Apache-2.0
// brenvellis-simulator: a printer's end of a raw network connection; see man/brenvellis-simulator.1.

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "command_line/command_line.h"
#include "simulator/command_words.h"
#include "simulator/control_client.h"
#include "simulator/control_command.h"
#include "simulator/control_server.h"
#include "simulator/printer_server.h"

namespace {

enum ExitStatus { DONE = 0, FAILED = 1, WRONG_USAGE = 2 };

ExitStatus fail(const std::string& message) {
  fprintf(stderr, "brenvellis-simulator: %s\n", message.c_str());
  return FAILED;
}

ExitStatus simulate(std::uint16_t port, const std::optional<std::string>& control,
                    const PrinterSettings& settings) {
  asio::io_context io(1);
  asio::signal_set ending(io, SIGINT, SIGTERM);
  ending.async_wait([&io](std::error_code, int) { io.stop(); });

  SimulatedPrinter printer{settings, {}, 0};
  PrinterServer printer_server(io, printer);
  if (const auto error = printer_server.open(port)) {
    return fail("cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + error.message() +
                "; choose another --port");
  }

  ControlServer control_server(io, [&](const std::optional<std::string>& line) -> std::string {
    const PrinterSettings before = printer.settings;
    std::string reply = execute_control_line(line, printer);
    if (const auto error = printer_server.follow_fault()) {
      printer.settings = before;
      return "error: cannot listen on port " + std::to_string(printer_server.port()) +
             " again: " + error.message() + "; free the port and try again";
    }
    return reply;
  });
  if (control) {
    if (const auto error = control_server.open(*control)) {
      return fail(*error);
    }
  }

  printf("socket://127.0.0.1:%u\n", unsigned{printer_server.port()});
  if (fflush(stdout) != 0) {
    return fail(std::string("cannot write the device URI: ") + std::strerror(errno));
  }
  io.run();
  return DONE;
}

/// An option that sets what the control command `name` sets.
Option setting(const char* name, const char* placeholder, const char* help, PrinterSettings& settings) {
  const auto store = [name, &settings](const std::string& value) {
    auto words = split_words(value);
    words.insert(words.begin(), name);
    return apply_setting(words, settings).value_or("");
  };
  return {.name = name, .placeholder = placeholder, .help = help, .value = {store, {}}};
}

std::string notes() {
  std::string text =
      "Prints the CUPS device URI as its only line when it is ready, and runs until\n"
      "SIGINT or SIGTERM. Numbers are decimal, or hexadecimal with 0x.\n"
      "\n"
      "Faults (N in bytes, MS in milliseconds; the last word limits a fault to this\n"
      "request):\n";
  for (const std::string_view form : fault_forms()) {
    text.append("  ").append(form).append("\n");
  }
  return text +
         "\n"
         "Exit status:\n"
         "  0  terminated by a signal, or the reply to --tell is \"ok\"\n"
         "  1  cannot listen or create the control socket, or the reply to --tell is an\n"
         "     error or missing\n"
         "  2  usage error\n";
}

int tell(CommandLine& line, const std::string& path) {
  std::string command;
  for (const std::string& word : line.arguments()) {
    command += (command.empty() ? "" : " ") + word;
  }
  if (line.is_given_besides("tell")) {
    return line.refuse("--tell excludes all other options (send the settings as commands)");
  }
  if (command.empty()) {
    return line.refuse("--tell: no command (try \"help\")");
  }
  if (command.find('\n') != std::string::npos) {
    return line.refuse("--tell: the command contains a line end (send one line)");
  }
  return tell_simulator(path, command) ? DONE : FAILED;
}

int run(int argc, char** argv) {
  std::uint16_t port = 0;
  std::string control;
  std::string told;
  PrinterSettings settings;
  CommandLine line(
      {.name = "brenvellis-simulator",
       .version = BRENVELLIS_VERSION,
       .summary = "Simulates a Brenvellis network printer for tests and demonstrations.",
       .arguments = "[--tell PATH COMMAND...]",
       .notes = notes(),
       .usage_error = WRONG_USAGE,
       .output_error = FAILED},
      {{.name = "port",
        .placeholder = "N",
        .help = "TCP port of 127.0.0.1 (default 0: any free port)",
        .value = number_from(0, 0xffff, [&](auto number) { port = static_cast<std::uint16_t>(number); })},
       {.name = "control",
        .placeholder = "PATH",
        .help = "Create a Unix socket for commands",
        .value = text_in(control, "a path")},
       setting("code", "CODE", "Status code (default 0: no error)", settings),
       setting("total", "N", "Prints on a new ink ribbon (default 400)", settings),
       setting("remaining", "N", "Prints left on the ribbon (default 400)", settings),
       setting("sheet", "CODE", "Ink sheet type (default 0x02)", settings),
       setting("fault", "FAULT", "Fault (default none), such as silent or \"slow 500\"", settings),
       {.name = "tell",
        .placeholder = "PATH",
        .help = "Send COMMAND to the simulator with this control socket, print the reply and exit; \"help\" "
                "lists the commands",
        .value = text_in(told, "a path")}});
  if (const auto status = line.read(argc, argv)) {
    return *status;
  }
  if (!told.empty()) {
    return tell(line, told);
  }
  if (!line.arguments().empty()) {
    return line.refuse("unexpected argument '" + line.arguments().front() + "'");
  }
  return simulate(port, control.empty() ? std::nullopt : std::optional(control), settings);
}

}  // namespace

int main(int argc, char** argv) {
  // Ignore SIGPIPE: the process that reads the URI may have exited.
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    return FAILED;
  }
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "brenvellis-simulator: %s\n", error.what());
    return FAILED;
  }
}
