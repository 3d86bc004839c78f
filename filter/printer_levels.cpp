// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_levels.h"

#include <array>
#include <cstdio>

#include "filter/printer_packets.h"

// The values are not checked on purpose: report_printer_levels() decides which of them are meaningful.
PrinterLevels PrinterLevels::Parse(const char* reply) {
  PrinterLevels levels(Type::Good);
  levels.total = reply_word(reply, LEVELS_REPLY_TOTAL);
  levels.remaining = reply_word(reply, LEVELS_REPLY_REMAINING);
  levels.ink_sheet_type = reply_byte(reply, LEVELS_REPLY_SHEET);
  return levels;
}

std::string PrinterLevels::InkSheetTypeName() const {
  switch (ink_sheet_type) {
    case 0x02:
      return "10x15(4x6\u2033)";
    case 0x04:
      return "13x18(5x7\u2033)";
    case 0x0F:
      return "15x20(6x8\u2033)";
    default: {
      std::array<char, sizeof "ff"> text{};
      snprintf(text.data(), text.size(), "%02x", ink_sheet_type);
      return text.data();
    }
  }
}

std::string PrinterLevels::to_string() const {
  switch (type) {
    case Type::Unavailable:
      return "UNAVAILABLE";
    case Type::Good: {
      std::array<char, sizeof "ink ribbon 65535 / 65535 ink_sheet_type=0xff"> text{};
      snprintf(text.data(), text.size(), "ink ribbon %d / %d ink_sheet_type=0x%02x", remaining, total,
               ink_sheet_type);
      return text.data();
    }
  }
  return "UNKNOWN";
}
