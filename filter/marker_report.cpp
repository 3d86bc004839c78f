// SPDX-License-Identifier: Apache-2.0
#include "filter/marker_report.h"

#include <array>
#include <cstdio>
#include <string>

void report_printer_levels(const PrinterLevels& levels) {
  fprintf(stderr, "DEBUG: [ReportLevels] %s\n", levels.to_string().c_str());

  int marker_level = -2;
  std::array<char, 128> marker_message = {" "};
  if (levels.isGood()) {
    if (levels.remaining == 0xFFFF || levels.total == 0xFFFF || levels.total == 0) {
      marker_level = -1;
    } else {
      // On purpose, the percentage is truncated and may exceed 100.
      marker_level = static_cast<int>(levels.remaining * 100U / levels.total);
      snprintf(marker_message.data(), marker_message.size(), "Ink Ribbon = %d / %d", levels.remaining,
               levels.total);
    }
  }

  // On purpose, an unavailable record is named after its sheet code, 00, and a blank replaces an empty text.
  std::string marker_name = " ";
  if (levels.ink_sheet_type != 0xFF) {
    marker_name = "InkSheetType: " + levels.InkSheetTypeName();
  }

  fprintf(stderr, "ATTR: marker-colors=#00FF00\n");
  fprintf(stderr, "ATTR: marker-levels=%d\n", marker_level);
  fprintf(stderr, "ATTR: marker-message=\"%s\"\n", marker_message.data());
  fprintf(stderr, "ATTR: marker-names=\"%s\"\n", marker_name.c_str());
  fprintf(stderr, "ATTR: marker-types=ink-ribbon\n");
}
