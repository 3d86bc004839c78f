#include "filter/printer_levels.h"

#include <array>
#include <cstdio>

PrinterLevels PrinterLevels::Parse(const char* reply) {
  const auto byte = [reply](int position) { return static_cast<std::uint8_t>(reply[position]); };
  const auto word = [byte](int position) {
    return static_cast<std::uint16_t>(byte(position) << 8 | byte(position + 1));
  };
  PrinterLevels levels(Type::Good);
  levels.total = word(20);
  levels.remaining = word(22);
  levels.ink_sheet_type = byte(17);
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
