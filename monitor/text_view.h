#pragma once

#include <string>

#include "monitor/report.h"

/// What the terminal can show.
struct TextStyle {
  bool utf8 = false;
  bool color = false;
};

/// The report for a person: one to four lines a queue, aligned, 80 columns wide, ending in a line end. No
/// byte of a queue's or printer's text reaches the terminal as a control character.
[[nodiscard]] std::string text_view(const Report& report, const TextStyle& style);
