// SPDX-License-Identifier: Apache-2.0
// Dumps any page header: 43 lines, and a name for each enumeration.

#include <algorithm>
#include <cstring>

#include "raster/page_header_dump.h"
#include "raster/raster_names.h"
#include "tests/fuzz/require.h"
#include "tests/unit/captured_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  cups_page_header_t header;
  std::memset(&header, 0, sizeof header);
  std::memcpy(&header, data, std::min(size, sizeof header));
  const cups_page_header_t before = header;
  const std::string log = captured_log([&] { dump(&header); });
  require(std::memcmp(&header, &before, sizeof header) == 0, "the header is only read");

  // Each line end in one of the four strings adds a line.
  long line_ends = 43;
  for (const char* text : {header.MediaClass, header.MediaColor, header.MediaType, header.OutputType}) {
    line_ends += std::count(text, text + strnlen(text, 64), '\n');
  }
  require(std::ranges::count(log, '\n') == line_ends, "43 lines");
  require(log.starts_with("=== cups_page_header_t ===\n") && log.ends_with("/* Spacing between lines */\n"),
          "from the first field to the last");
  require(log.find("__cupsWidth=" + std::to_string(static_cast<int>(header.cupsWidth)) + " ") !=
              std::string::npos,
          "a number as it is");
  for (const char* name : {to_string(header.AdvanceMedia), to_string(header.CutMedia), to_string(header.Jog),
                           to_string(header.LeadingEdge), to_string(header.Orientation),
                           to_string(header.cupsColorOrder), to_string(header.cupsColorSpace)}) {
    require(log.find(std::string("=") + name + " ") != std::string::npos, "an enumeration by its name");
  }
  return 0;
}
