// SPDX-License-Identifier: Apache-2.0
// The command line of brenvellis-monitor.
#pragma once

#include <cups/cups.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "monitor/queue_watch.h"
#include "monitor/server_name.h"

/// Exit status for a usage error.
inline constexpr int WRONG_USAGE = 64;

/// The path that stands for standard output.
inline constexpr const char* STANDARD_OUTPUT = "-";

enum class View : std::uint8_t { Text, Json, Prometheus, Html, Plugin, Ready };

/// A view and where it goes.
struct Output {
  View view;
  std::string path;  ///< "-" for standard output
};

/// A print server and the name under which it is shown.
struct NamedServer {
  std::string label;
  ServerName name;
};

/// Arguments is what a command line asks for.
struct Arguments {
  std::vector<NamedServer> servers;
  std::vector<std::string> queues;  ///< empty: all Brenvellis queues
  http_encryption_t encryption = HTTP_ENCRYPTION_IF_REQUESTED;
  WatchRules rules;
  std::vector<Output> outputs;
  int page_interval = 60;  ///< seconds between two runs, without a watch
  std::string color;       ///< always, auto or never
  std::string on_change;   ///< a command for each change of a watch; empty: none
  bool on_change_at_start = false;
};

/// Whether the view is among the outputs.
[[nodiscard]] bool has_view(const Arguments& arguments, View view);

/// Reads the command line.
/// @return the exit status instead if there is nothing to do: after --help or --version, which are written to
///         standard output, or an error, which is written to standard error.
[[nodiscard]] std::variant<Arguments, int> read_arguments(int argc, char** argv);
