// SPDX-License-Identifier: Apache-2.0
// Compares the decoding and reporting of any levels reply and record with a model.

#include <cstdint>
#include <cstring>
#include <memory>

#include "filter/marker_report.h"
#include "tests/fuzz/require.h"
#include "tests/support/expected_log.h"
#include "tests/unit/captured_stream.h"

namespace {

std::string sheet_name(unsigned sheet) {
  switch (sheet) {
    case 0x02:
      return "10x15(4x6\xe2\x80\xb3)";
    case 0x04:
      return "13x18(5x7\xe2\x80\xb3)";
    case 0x0f:
      return "15x20(6x8\xe2\x80\xb3)";
    default:
      return {"0123456789abcdef"[sheet / 16], "0123456789abcdef"[sheet % 16]};
  }
}

std::string expected_report(const PrinterLevels& levels) {
  const std::string counters = std::to_string(levels.remaining) + " / " + std::to_string(levels.total);
  const unsigned sheet = levels.ink_sheet_type;
  const std::string digits = {"0123456789abcdef"[sheet / 16], "0123456789abcdef"[sheet % 16]};
  const std::string name = sheet == 0xff ? " " : "InkSheetType: " + sheet_name(sheet);
  if (levels.type == PrinterLevels::Type::Unavailable) {
    return marker_lines("UNAVAILABLE", -2, " ", name);
  }
  if (levels.type != PrinterLevels::Type::Good) {
    return marker_lines("UNKNOWN", -2, " ", name);
  }
  const std::string text = "ink ribbon " + counters + " ink_sheet_type=0x" + digits;
  if (levels.remaining == 65535 || levels.total == 65535 || levels.total == 0) {
    return marker_lines(text, -1, " ", name);
  }
  // The percentage rounded down.
  const long long left = levels.remaining * 100LL;
  long long level = left / levels.total + 1;
  while (level * levels.total > left) {
    --level;
  }
  return marker_lines(text, static_cast<int>(level), "Ink Ribbon = " + counters, name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 26) {
    return 0;
  }
  // Exactly 26 bytes, so that the sanitizer detects a read beyond the reply.
  const auto reply = std::make_unique<char[]>(26);
  std::memcpy(reply.get(), data, 26);
  PrinterLevels levels = PrinterLevels::Parse(reply.get());
  require(levels.isGood() && levels.total == data[20] * 256U + data[21] &&
              levels.remaining == data[22] * 256U + data[23] && levels.ink_sheet_type == data[17],
          "the record is the reply's");
  require_equal(captured_log([&] { report_printer_levels(levels); }), expected_report(levels), "the report");

  if (size > 26) {
    levels.type = static_cast<PrinterLevels::Type>(data[26]);
    require_equal(captured_log([&] { report_printer_levels(levels); }), expected_report(levels),
                  "the report of a record of any type");
  }
  return 0;
}
