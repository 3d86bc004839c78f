// SPDX-License-Identifier: Apache-2.0
// The report for terminals.
#pragma once

#include <cstddef>
#include <limits>
#include <string>

#include "monitor/report.h"

/// The width if the output is not a terminal: no text is cut.
inline constexpr std::size_t UNLIMITED_WIDTH = std::numeric_limits<std::size_t>::max();

/// The capabilities of the terminal.
struct TextStyle {
  bool utf8 = false;
  bool color = false;
  std::size_t width = 80;  ///< columns; fewer than 40 count as 40
};

/// The report for a person: a line that counts the queues in trouble and has the time, then the queues, the
/// worst first. A queue that is well or low on its ribbon takes one line; any other has a line or two for
/// each trouble and one for what is known of it. No byte of a queue's or printer's text reaches the terminal
/// as a control character.
[[nodiscard]] std::string text_view(const Report& report, const TextStyle& style);
