// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/simulated_printer.h"

/// The longest control line, its line end not counted.
constexpr std::size_t LONGEST_CONTROL_LINE = 1024;

/// ControlLineReader cuts what one control connection sends into lines.
class ControlLineReader {
 public:
  /// Takes the next bytes of the connection.
  ///
  /// @return the lines that these bytes completed, without their line ends; nothing in place of a line that
  ///         was longer than LONGEST_CONTROL_LINE.
  std::vector<std::optional<std::string>> feed(std::string_view chunk);

 private:
  std::string begun_;
};

/// Makes one setting from its words: "code 0x2660", "fault slow 500".
///
/// @return nothing on success; otherwise what is wrong and what to do, and the settings are as they were.
std::optional<std::string> apply_setting(std::span<const std::string_view> words, PrinterSettings& settings);

/// Carries out one control line.
///
/// @param line as ControlLineReader gave it; nothing stands for an over-long line.
/// @return the reply without a line end: "ok", "ok TEXT", or "error: TEXT" when nothing was changed.
std::string execute_control_line(const std::optional<std::string>& line, SimulatedPrinter& printer);
