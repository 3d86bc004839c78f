// SPDX-License-Identifier: Apache-2.0
// The commands of the control socket.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/simulated_printer.h"

/// The maximum length of a control line without its line end.
constexpr std::size_t LONGEST_CONTROL_LINE = 1024;

/// ControlLineReader splits the data of a control connection into lines.
class ControlLineReader {
 public:
  /// Reads the next bytes of the connection.
  ///
  /// @return the lines that these bytes complete, without line ends; nothing for a line that is longer than
  ///         LONGEST_CONTROL_LINE.
  std::vector<std::optional<std::string>> feed(std::string_view chunk);

 private:
  std::string begun_;
};

/// Applies one setting, such as "code 0x2660" or "fault slow 500".
///
/// @return nothing on success, otherwise an error message; the settings are then unchanged.
std::optional<std::string> apply_setting(std::span<const std::string_view> words, PrinterSettings& settings);

/// Executes a control line.
///
/// @param line  a line of ControlLineReader; nothing if it was too long.
/// @return the reply without a line end: "ok", "ok TEXT", or "error: TEXT" if nothing was changed.
std::string execute_control_line(const std::optional<std::string>& line, SimulatedPrinter& printer);
