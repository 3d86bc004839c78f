// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_levels.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <type_traits>

namespace {

/// A reply in which all bytes but those set are `filler`.
std::array<char, 26> reply(unsigned char filler) {
  std::array<char, 26> bytes{};
  bytes.fill(static_cast<char>(filler));
  return bytes;
}

TEST(PrinterLevels, FieldsHaveTheirOrderAndWidths) {
  EXPECT_EQ(sizeof(PrinterLevels::Type), 4U);
  EXPECT_EQ(offsetof(PrinterLevels, type), 0U);
  EXPECT_EQ(offsetof(PrinterLevels, total), 4U);
  EXPECT_EQ(offsetof(PrinterLevels, remaining), 6U);
  EXPECT_EQ(offsetof(PrinterLevels, ink_sheet_type), 8U);
  EXPECT_EQ(sizeof(PrinterLevels::ink_sheet_type), 1U);
  EXPECT_TRUE(std::is_trivially_copyable_v<PrinterLevels>);
}

TEST(PrinterLevels, UnavailableIsAllZero) {
  const auto levels = PrinterLevels::Unavailable();
  EXPECT_EQ(static_cast<int>(levels.type), 0);
  EXPECT_EQ(levels.total, 0);
  EXPECT_EQ(levels.remaining, 0);
  EXPECT_EQ(levels.ink_sheet_type, 0);
  EXPECT_FALSE(levels.isGood());
  EXPECT_EQ(levels.to_string(), "UNAVAILABLE");
  EXPECT_EQ(levels.InkSheetTypeName(), "00");
}

TEST(PrinterLevels, ATypeAloneMeansZeroCounters) {
  const PrinterLevels levels(PrinterLevels::Type::Good);
  EXPECT_TRUE(levels.isGood());
  EXPECT_EQ(levels.to_string(), "ink ribbon 0 / 0 ink_sheet_type=0x00");
}

TEST(PrinterLevels, ParsesCountersAndSheet) {
  auto bytes = reply(0);
  bytes[17] = 0x02;
  bytes[20] = 0x01;
  bytes[21] = static_cast<char>(0x90);
  bytes[22] = 0x00;
  bytes[23] = static_cast<char>(0xC8);
  const auto levels = PrinterLevels::Parse(bytes.data());
  EXPECT_TRUE(levels.isGood());
  EXPECT_EQ(levels.total, 400);
  EXPECT_EQ(levels.remaining, 200);
  EXPECT_EQ(levels.ink_sheet_type, 0x02);
  EXPECT_EQ(levels.to_string(), "ink ribbon 200 / 400 ink_sheet_type=0x02");
  EXPECT_EQ(levels.InkSheetTypeName(), "10x15(4x6″)");
}

TEST(PrinterLevels, HighBytesNeverMakeACounterNegative) {
  auto bytes = reply(0);
  bytes[20] = static_cast<char>(0x80);
  bytes[21] = 0x01;
  bytes[22] = static_cast<char>(0xFF);
  bytes[23] = static_cast<char>(0xFF);
  bytes[17] = static_cast<char>(0xFF);
  const auto levels = PrinterLevels::Parse(bytes.data());
  EXPECT_EQ(levels.total, 32769);
  EXPECT_EQ(levels.remaining, 65535);
  EXPECT_EQ(levels.ink_sheet_type, 0xFF);
  EXPECT_TRUE(levels.isGood());
  EXPECT_EQ(levels.to_string(), "ink ribbon 65535 / 32769 ink_sheet_type=0xff");
}

TEST(PrinterLevels, LowBytesAreNotSignExtendedIntoHighOnes) {
  auto bytes = reply(0);
  bytes[20] = 0x12;
  bytes[21] = static_cast<char>(0xFE);
  bytes[22] = 0x34;
  bytes[23] = static_cast<char>(0x80);
  const auto levels = PrinterLevels::Parse(bytes.data());
  EXPECT_EQ(levels.total, 0x12FE);
  EXPECT_EQ(levels.remaining, 0x3480);
}

TEST(PrinterLevels, OtherBytesOfTheReplyChangeNothing) {
  for (std::size_t position = 0; position < 26; ++position) {
    auto bytes = reply(0x11);
    bytes[position] = 0x22;
    const auto levels = PrinterLevels::Parse(bytes.data());
    const bool decoded = position == 17 || (position >= 20 && position <= 23);
    EXPECT_EQ(levels.to_string() != "ink ribbon 4369 / 4369 ink_sheet_type=0x11", decoded)
        << "byte " << position << " gives " << levels.to_string();
  }
}

TEST(PrinterLevels, SheetNamesForAll256Codes) {
  for (unsigned code = 0; code <= 0xFF; ++code) {
    PrinterLevels levels(PrinterLevels::Type::Good);
    levels.ink_sheet_type = static_cast<std::uint8_t>(code);
    std::string expected;
    if (code == 2) {
      expected = "10x15(4x6\xe2\x80\xb3)";
    } else if (code == 4) {
      expected = "13x18(5x7\xe2\x80\xb3)";
    } else if (code == 15) {
      expected = "15x20(6x8\xe2\x80\xb3)";
    } else {
      const char* digits = "0123456789abcdef";
      expected = {digits[code / 16], digits[code % 16]};
    }
    EXPECT_EQ(levels.InkSheetTypeName(), expected);
  }
}

TEST(PrinterLevels, TheLongestTextIsWhole) {
  auto bytes = reply(0xFF);
  EXPECT_EQ(PrinterLevels::Parse(bytes.data()).to_string(), "ink ribbon 65535 / 65535 ink_sheet_type=0xff");
}

TEST(PrinterLevels, AnInvalidTypeIsUnknownAndNotGood) {
  const PrinterLevels levels(static_cast<PrinterLevels::Type>(2));
  EXPECT_EQ(levels.to_string(), "UNKNOWN");
  EXPECT_FALSE(levels.isGood());
}

}  // namespace
