// SPDX-License-Identifier: Apache-2.0
#include "filter/marker_report.h"

#include <gtest/gtest.h>

#include "tests/unit/captured_stream.h"

namespace {

PrinterLevels good(unsigned remaining, unsigned total, unsigned sheet) {
  PrinterLevels levels(PrinterLevels::Type::Good);
  levels.remaining = static_cast<std::uint16_t>(remaining);
  levels.total = static_cast<std::uint16_t>(total);
  levels.ink_sheet_type = static_cast<std::uint8_t>(sheet);
  return levels;
}

std::string report(const PrinterLevels& levels) {
  return captured_log([&] { report_printer_levels(levels); });
}

struct MarkerCase {
  PrinterLevels levels;
  const char* text;
  const char* level;
  const char* message;
  const char* name;
};

TEST(MarkerReport, EachLineIsOneWrite) {
  const auto [writes, before_close] =
      log_writes(_IONBF, [] { report_printer_levels(PrinterLevels::Unavailable()); });
  EXPECT_EQ(writes, (std::vector<std::string>{
                        "DEBUG: [ReportLevels] UNAVAILABLE\n", "ATTR: marker-colors=#00FF00\n",
                        "ATTR: marker-levels=-2\n", "ATTR: marker-message=\" \"\n",
                        "ATTR: marker-names=\"InkSheetType: 00\"\n", "ATTR: marker-types=ink-ribbon\n"}));
  EXPECT_EQ(before_close, writes.size());
}

TEST(MarkerReport, IsNotFlushed) {
  const auto result = log_writes(_IOFBF, [] { report_printer_levels(PrinterLevels::Unavailable()); });
  EXPECT_EQ(result.before_close, 0U);
}

class MarkerReports : public testing::TestWithParam<MarkerCase> {};

TEST_P(MarkerReports, AreOneTraceLineAndFiveAttributes) {
  const auto& [levels, text, level, message, name] = GetParam();
  EXPECT_EQ(report(levels), std::string("DEBUG: [ReportLevels] ") + text +
                                "\n"
                                "ATTR: marker-colors=#00FF00\n"
                                "ATTR: marker-levels=" +
                                level +
                                "\n"
                                "ATTR: marker-message=\"" +
                                message +
                                "\"\n"
                                "ATTR: marker-names=\"" +
                                name +
                                "\"\n"
                                "ATTR: marker-types=ink-ribbon\n");
}

INSTANTIATE_TEST_SUITE_P(
    MarkerReport, MarkerReports,
    testing::Values(MarkerCase{PrinterLevels::Unavailable(), "UNAVAILABLE", "-2", " ", "InkSheetType: 00"},
                    MarkerCase{good(200, 400, 0x02), "ink ribbon 200 / 400 ink_sheet_type=0x02", "50",
                               "Ink Ribbon = 200 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)"},
                    MarkerCase{good(1, 3, 0x04), "ink ribbon 1 / 3 ink_sheet_type=0x04", "33",
                               "Ink Ribbon = 1 / 3", "InkSheetType: 13x18(5x7\xe2\x80\xb3)"},
                    MarkerCase{good(2, 3, 0x0F), "ink ribbon 2 / 3 ink_sheet_type=0x0f", "66",
                               "Ink Ribbon = 2 / 3", "InkSheetType: 15x20(6x8\xe2\x80\xb3)"},
                    MarkerCase{good(0, 400, 0x10), "ink ribbon 0 / 400 ink_sheet_type=0x10", "0",
                               "Ink Ribbon = 0 / 400", "InkSheetType: 10"},
                    MarkerCase{good(500, 400, 0x02), "ink ribbon 500 / 400 ink_sheet_type=0x02", "125",
                               "Ink Ribbon = 500 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)"},
                    MarkerCase{good(65534, 1, 0x02), "ink ribbon 65534 / 1 ink_sheet_type=0x02", "6553400",
                               "Ink Ribbon = 65534 / 1", "InkSheetType: 10x15(4x6\xe2\x80\xb3)"},
                    MarkerCase{good(200, 0, 0x02), "ink ribbon 200 / 0 ink_sheet_type=0x02", "-1", " ",
                               "InkSheetType: 10x15(4x6\xe2\x80\xb3)"},
                    MarkerCase{good(65535, 400, 0x02), "ink ribbon 65535 / 400 ink_sheet_type=0x02", "-1",
                               " ", "InkSheetType: 10x15(4x6\xe2\x80\xb3)"},
                    MarkerCase{good(200, 65535, 0x02), "ink ribbon 200 / 65535 ink_sheet_type=0x02", "-1",
                               " ", "InkSheetType: 10x15(4x6\xe2\x80\xb3)"},
                    MarkerCase{good(200, 400, 0xFF), "ink ribbon 200 / 400 ink_sheet_type=0xff", "50",
                               "Ink Ribbon = 200 / 400", " "},
                    MarkerCase{good(65534, 65534, 0xFE), "ink ribbon 65534 / 65534 ink_sheet_type=0xfe",
                               "100", "Ink Ribbon = 65534 / 65534", "InkSheetType: fe"},
                    MarkerCase{PrinterLevels(static_cast<PrinterLevels::Type>(2)), "UNKNOWN", "-2", " ",
                               "InkSheetType: 00"}));

TEST(MarkerReport, TheSheetNameDoesNotDependOnAReading) {
  PrinterLevels levels = PrinterLevels::Unavailable();
  levels.ink_sheet_type = 0xFF;
  EXPECT_NE(report(levels).find("ATTR: marker-names=\" \"\n"), std::string::npos);
  levels.ink_sheet_type = 0x04;
  EXPECT_NE(report(levels).find("ATTR: marker-names=\"InkSheetType: 13x18(5x7\xe2\x80\xb3)\"\n"),
            std::string::npos);
}

TEST(MarkerReport, CountersWithoutAReadingAreNotReported) {
  PrinterLevels levels = PrinterLevels::Unavailable();
  levels.remaining = 200;
  levels.total = 400;
  EXPECT_NE(report(levels).find("ATTR: marker-levels=-2\nATTR: marker-message=\" \"\n"), std::string::npos);
}

TEST(MarkerReport, TheLevelForAllPairsOfBoundaries) {
  const std::array<unsigned, 16> boundaries = {0,   1,   2,     99,    100,   101,   254,   255,
                                               256, 257, 32767, 32768, 32769, 65533, 65534, 65535};
  for (const unsigned remaining : boundaries) {
    for (const unsigned total : boundaries) {
      std::int64_t level = -1;
      if (remaining != 65535 && total != 65535 && total != 0) {
        const std::int64_t step = total;
        const std::int64_t hundredfold = std::int64_t{100} * remaining;
        level = 0;
        while ((level + 1) * step <= hundredfold) {
          ++level;  // the truncated quotient, counted instead of divided
          if (step < 3 && level * step + 1'000'000 < hundredfold) {
            level += 1'000'000 / step - 1;
          }
        }
      }
      const std::string expected = "ATTR: marker-levels=" + std::to_string(level) + "\n";
      EXPECT_NE(report(good(remaining, total, 2)).find(expected), std::string::npos)
          << remaining << " / " << total << " should be " << level;
    }
  }
}

}  // namespace
