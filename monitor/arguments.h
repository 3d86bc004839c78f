#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "monitor/refresh.h"

/// The exit status for a command line that is none.
inline constexpr int WRONG_USAGE = 64;

/// The path that stands for standard output.
inline constexpr const char* STANDARD_OUTPUT = "-";

enum class View : std::uint8_t { Text, Json, Prometheus, Html };

/// A view and where it goes.
struct Output {
  View view;
  std::string path;  ///< "-" for standard output
};

/// Arguments is what a command line asks for.
struct Arguments {
  RefreshOptions refresh;
  std::vector<Output> outputs;
  std::optional<int> watch_seconds;
  std::string color;  ///< always, auto or never
};

/// Reads the command line.
/// @return the exit status instead if there is nothing to do: after --help or --version, which are written to
///         standard output, or an error, which is written to standard error.
[[nodiscard]] std::variant<Arguments, int> read_arguments(int argc, char** argv);
