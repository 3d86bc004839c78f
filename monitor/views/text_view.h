// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <string>

#include "monitor/report.h"

/// The width of what is no terminal: no text is cut.
inline constexpr std::size_t UNLIMITED_WIDTH = std::numeric_limits<std::size_t>::max();

/// What the terminal can show.
struct TextStyle {
  bool utf8 = false;
  bool color = false;
  std::size_t width = 80;  ///< columns; a text that 40 do not hold is wider nevertheless
};

/// The report for a person: one to four lines a queue, aligned, cut to the width, ending in a line end. No
/// byte of a queue's or printer's text reaches the terminal as a control character.
[[nodiscard]] std::string text_view(const Report& report, const TextStyle& style);
