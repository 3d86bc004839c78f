// SPDX-License-Identifier: Apache-2.0
// brenvellis-simulator: a printer's end of a raw network connection; see man/brenvellis-simulator.1.

#include <CLI/CLI.hpp>
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

#include "simulator/command_words.h"
#include "simulator/control_client.h"
#include "simulator/control_command.h"
#include "simulator/control_server.h"
#include "simulator/printer_server.h"

namespace {

enum ExitStatus { DONE = 0, FAILED = 1, WRONG_USAGE = 2 };

struct SettingOption {
  std::string_view command;
  const char* placeholder;
  const char* help;
  std::string value;
};

struct Options {
  std::string port = "0";
  std::optional<std::string> control;
  std::vector<std::string> tell;
  std::array<SettingOption, 5> settings = {{
      {"code", "CODE", "Status code (default 0: no error)", ""},
      {"total", "N", "Prints of a new ink ribbon (default 400)", ""},
      {"remaining", "N", "Prints left on the ribbon (default 400)", ""},
      {"sheet", "CODE", "Ink sheet type (default 0x02)", ""},
      {"fault", "FAULT", "What goes wrong (default none), e.g. silent or \"slow 500\"", ""},
  }};
};

ExitStatus refuse_usage(const std::string& message) {
  fprintf(stderr, "brenvellis-simulator: %s\nRun with --help for more information.\n", message.c_str());
  return WRONG_USAGE;
}

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

ExitStatus run(int argc, char** argv) {
  Options options;
  CLI::App app(
      "The printer's end of a raw network connection, for tests and demonstrations without a printer.",
      "brenvellis-simulator");
  // Newer releases of CLI11 wrap lines of 80 columns and more.
  app.footer(
      "Prints the CUPS device URI as its only line when it is ready, and runs until\n"
      "SIGINT or SIGTERM. Numbers are decimal or hexadecimal with 0x.\n"
      "Faults: none, silent, short N, drip [MS], split N [MS], long N, garbage,\n"
      "slow MS, close N, refuse; all but none and refuse take a last word \"status\" or\n"
      "\"levels\" that limits them to this request. Send the command \"help\" for the\n"
      "control commands.\n\n"
      "Exit status: 0 ended by a signal, or told \"ok\"; 1 cannot listen, cannot make the\n"
      "control socket, told \"error\", or nobody answers; 2 wrong usage.");
  app.set_version_flag("--version", "brenvellis-simulator " BRENVELLIS_VERSION);
  auto* tell =
      app.add_option("--tell", options.tell,
                     "Send COMMAND to the simulator with the control socket PATH, print the reply, end")
          ->type_name("PATH COMMAND")
          ->expected(2, CLI::detail::expected_max_vector_size);
  app.add_option("--port", options.port, "TCP port of 127.0.0.1 (default 0: a free one)")->type_name("N");
  app.add_option("--control", options.control, "Make a Unix socket that takes commands")->type_name("PATH");
  for (SettingOption& setting : options.settings) {
    app.add_option("--" + std::string(setting.command), setting.value, setting.help)
        ->type_name(setting.placeholder);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app.exit(error);
      return DONE;
    }
    return refuse_usage(error.what());
  }

  if (!options.tell.empty()) {
    const auto& given = app.parse_order();
    if (!std::all_of(given.begin(), given.end(),
                     [tell](const CLI::Option* option) { return option == tell; })) {
      return refuse_usage("--tell goes with no other option; send the settings as commands");
    }
    std::string line;
    std::for_each(options.tell.begin() + 1, options.tell.end(),
                  [&line](const std::string& word) { line += (line.empty() ? "" : " ") + word; });
    if (line.find('\n') != std::string::npos) {
      return refuse_usage("--tell: the command holds a line end; send one line");
    }
    return tell_simulator(options.tell.front(), line) ? DONE : FAILED;
  }

  const auto port = parse_number(options.port, 0xffff);
  if (!port) {
    return refuse_usage("--port: '" + options.port + "' is no number from 0 to 65535");
  }
  PrinterSettings settings;
  for (const SettingOption& setting : options.settings) {
    const std::string option = "--" + std::string(setting.command);
    if (app.count(option) == 0) {
      continue;
    }
    auto words = split_words(setting.value);
    words.insert(words.begin(), setting.command);
    if (const auto error = apply_setting(words, settings)) {
      return refuse_usage(option + ": " + *error);
    }
  }
  return simulate(static_cast<std::uint16_t>(*port), options.control, settings);
}

}  // namespace

int main(int argc, char** argv) {
  // A reader of the URI that has gone is no reason to end.
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
