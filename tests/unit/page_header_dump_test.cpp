// SPDX-License-Identifier: Apache-2.0
#include "raster/page_header_dump.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace {

std::string dumped(const cups_page_header_t& header) {
  testing::internal::CaptureStderr();
  dump(&header);
  return testing::internal::GetCapturedStderr();
}

/// The values of a header as text: strings, and a different number for each field.
struct Texts {
  std::map<std::string, std::string> fields;
  /// The field's text with its place in the line, or `otherwise`.
  [[nodiscard]] std::string of(const std::string& field, const std::string& otherwise) const {
    const auto found = fields.find(field);
    return found != fields.end() ? found->second : otherwise;
  }
};

/// Returns the whole dump of a header in which all fields of a type except `own` have the same text.
struct Expected {
  std::string text, number, advance, boolean, cut, jog, edge, orientation, order, color_space;
  Texts own;

  [[nodiscard]] std::string dump() const {
    const auto line = [this](const std::string& field, const std::string& value, const std::string& comment) {
      return "__" + field + "=" + own.of(field, value) + "        /* " + comment + " */\n";
    };
    const std::string pair = "(" + number + "," + number + ")";
    return "=== cups_page_header_t ===\n"
           "Standard Page Device Dictionary String Values\n" +
           line("MediaClass", text, "MediaClass string") + line("MediaColor", text, "MediaColor string") +
           line("MediaType", text, "MediaType string") + line("OutputType", text, "OutputType string") +
           "Standard Page Device Dictionary Integer Values\n" +
           line("AdvanceDistance", number, "AdvanceDistance value in points") +
           line("AdvanceMedia", advance, "AdvanceMedia value (@link cups_adv_t@)") +
           line("Collate", boolean, "Collated copies value") +
           line("CutMedia", cut, "CutMedia value (@link cups_cut_t@)") +
           line("Duplex", boolean, "Duplexed (double-sided) value") +
           line("HWResolution", pair, "Resolution in dots-per-inch") +
           line("ImagingBoundingBox", pair,
                "Pixel region that is painted (points, left, bottom, right, top)") +
           line("InsertSheet", boolean, "InsertSheet value") +
           line("Jog", jog, "Jog value (@link cups_jog_t@)") +
           line("LeadingEdge", edge, "LeadingEdge value (@link cups_edge_t@)") +
           line("Margins", pair, "Lower-lefthand margins in points") +
           line("ManualFeed", boolean, "ManualFeed value") +
           line("MediaPosition", number, "MediaPosition value") +
           line("MediaWeight", number, "MediaWeight value in grams/m^2") +
           line("MirrorPrint", boolean, "MirrorPrint value") +
           line("NegativePrint", boolean, "NegativePrint value") +
           line("NumCopies", number, "Number of copies to produce") +
           line("Orientation", orientation, "Orientation value (@link cups_orient_t@)") +
           line("OutputFaceUp", boolean, "OutputFaceUp value") +
           line("PageSize", pair, "Width and length of page in points") +
           line("Separations", boolean, "Separations value") +
           line("TraySwitch", boolean, "TraySwitch value") + line("Tumble", boolean, "Tumble value") +
           "CUPS Page Device Dictionary Values\n" +
           line("cupsWidth", number, "Width of page image in pixels") +
           line("cupsHeight", number, "Height of page image in pixels") +
           line("cupsMediaType", number, "Media type code") +
           line("cupsBitsPerColor", number, "Number of bits for each color") +
           line("cupsBitsPerPixel", number, "Number of bits for each pixel") +
           line("cupsBytesPerLine", number, "Number of bytes per line") +
           line("cupsColorOrder", order, "Order of colors") +
           line("cupsColorSpace", color_space, "True colorspace") +
           line("cupsCompression", number, "Device compression to use") +
           line("cupsRowCount", number, "Rows per band") + line("cupsRowFeed", number, "Feed between bands") +
           line("cupsRowStep", number, "Spacing between lines");
  }
};

Expected unnamed(const std::string& number) {
  const std::string value = "(" + number + ")";
  return {.text = "A",
          .number = number,
          .advance = "cups_adv_e" + value,
          .boolean = "cups_bool_e" + value,
          .cut = "cups_cut_e" + value,
          .jog = "cups_jog_e" + value,
          .edge = "cups_edge_e" + value,
          .orientation = "cups_orient_e" + value,
          .order = "cups_order_e" + value,
          .color_space = "cups_cspace_e" + value,
          .own = {}};
}

/// A header whose strings are "A" and whose other fields all hold `value`.
cups_page_header_t filled(std::uint32_t value) {
  cups_page_header_t header{};
  header.MediaClass[0] = header.MediaColor[0] = header.MediaType[0] = header.OutputType[0] = 'A';
  constexpr std::size_t STRINGS = offsetof(cups_page_header_t, AdvanceDistance);
  std::array<std::uint32_t, (sizeof(cups_page_header_t) - STRINGS) / sizeof(std::uint32_t)> fields{};
  fields.fill(value);
  std::memcpy(reinterpret_cast<char*>(&header) + STRINGS, fields.data(), sizeof fields);
  return header;
}

struct FilledCase {
  const char* name;
  std::uint32_t value;
  Expected expected;
};

void PrintTo(const FilledCase& filled_case, std::ostream* out) {
  *out << filled_case.value;
}

class FilledHeader : public testing::TestWithParam<FilledCase> {};

TEST_P(FilledHeader, IsDumpedWhole) {
  EXPECT_EQ(dumped(filled(GetParam().value)), GetParam().expected.dump());
}

INSTANTIATE_TEST_SUITE_P(PageHeaderDump, FilledHeader,
                         testing::Values(FilledCase{"WithZeros",
                                                    0,
                                                    {"A",
                                                     "0",
                                                     "CUPS_ADVANCE_NONE",
                                                     "CUPS_FALSE",
                                                     "CUPS_CUT_NONE",
                                                     "CUPS_JOG_NONE",
                                                     "CUPS_EDGE_TOP",
                                                     "CUPS_ORIENT_0",
                                                     "CUPS_ORDER_CHUNKED",
                                                     "CUPS_CSPACE_W",
                                                     {}}},
                                         FilledCase{"WithOnes",
                                                    1,
                                                    {"A",
                                                     "1",
                                                     "CUPS_ADVANCE_FILE",
                                                     "CUPS_TRUE",
                                                     "CUPS_CUT_FILE",
                                                     "CUPS_JOG_FILE",
                                                     "CUPS_EDGE_RIGHT",
                                                     "CUPS_ORIENT_90",
                                                     "CUPS_ORDER_BANDED",
                                                     "CUPS_CSPACE_RGB",
                                                     {}}},
                                         FilledCase{"WithTheSignBit", 2147483648U, unnamed("-2147483648")},
                                         FilledCase{"WithAllBits", 4294967295U, unnamed("-1")}),
                         [](const auto& the_case) { return the_case.param.name; });

/// Returns a header in which each field has a different value, except one that is not dumped.
cups_page_header_t distinct() {
  cups_page_header_t header{};
  std::strcpy(header.MediaClass, "PwgRaster");
  std::strcpy(header.MediaColor, "white");
  std::strcpy(header.MediaType, "PhotographicGlossy");
  std::strcpy(header.OutputType, "Photo");
  header.AdvanceDistance = 101;
  header.AdvanceMedia = CUPS_ADVANCE_PAGE;
  header.Collate = CUPS_TRUE;
  header.CutMedia = CUPS_CUT_SET;
  header.Duplex = std::bit_cast<cups_bool_e>(2);
  header.HWResolution[0] = 300;
  header.HWResolution[1] = 600;
  header.ImagingBoundingBox[0] = 10;
  header.ImagingBoundingBox[1] = 20;
  header.ImagingBoundingBox[2] = 590;
  header.ImagingBoundingBox[3] = 820;
  header.InsertSheet = std::bit_cast<cups_bool_e>(3);
  header.Jog = CUPS_JOG_JOB;
  header.LeadingEdge = CUPS_EDGE_LEFT;
  header.Margins[0] = 11;
  header.Margins[1] = 12;
  header.ManualFeed = std::bit_cast<cups_bool_e>(4);
  header.MediaPosition = 102;
  header.MediaWeight = 103;
  header.MirrorPrint = std::bit_cast<cups_bool_e>(5);
  header.NegativePrint = std::bit_cast<cups_bool_e>(6);
  header.NumCopies = 104;
  header.Orientation = std::bit_cast<cups_orient_e>(-1);
  header.OutputFaceUp = std::bit_cast<cups_bool_e>(7);
  header.PageSize[0] = 288;
  header.PageSize[1] = 432;
  header.Separations = std::bit_cast<cups_bool_e>(8);
  header.TraySwitch = std::bit_cast<cups_bool_e>(9);
  header.Tumble = std::bit_cast<cups_bool_e>(10);
  header.cupsWidth = 1200;
  header.cupsHeight = 1800;
  header.cupsMediaType = 105;
  header.cupsBitsPerColor = 8;
  header.cupsBitsPerPixel = 24;
  header.cupsBytesPerLine = 3600;
  header.cupsColorOrder = CUPS_ORDER_PLANAR;
  header.cupsColorSpace = std::bit_cast<cups_cspace_e>(47);
  header.cupsCompression = 106;
  header.cupsRowCount = 107;
  header.cupsRowFeed = 108;
  header.cupsRowStep = 109;
  return header;
}

TEST(PageHeaderDump, EveryLineIsFedFromItsOwnField) {
  Expected expected{};
  expected.own.fields = {
      {"MediaClass", "PwgRaster"},
      {"MediaColor", "white"},
      {"MediaType", "PhotographicGlossy"},
      {"OutputType", "Photo"},
      {"AdvanceDistance", "101"},
      {"AdvanceMedia", "CUPS_ADVANCE_PAGE"},
      {"Collate", "CUPS_TRUE"},
      {"CutMedia", "CUPS_CUT_SET"},
      {"Duplex", "cups_bool_e(2)"},
      {"HWResolution", "(300,600)"},
      {"ImagingBoundingBox", "(10,20)"},
      {"InsertSheet", "cups_bool_e(3)"},
      {"Jog", "CUPS_JOG_JOB"},
      {"LeadingEdge", "CUPS_EDGE_LEFT"},
      {"Margins", "(11,12)"},
      {"ManualFeed", "cups_bool_e(4)"},
      {"MediaPosition", "102"},
      {"MediaWeight", "103"},
      {"MirrorPrint", "cups_bool_e(5)"},
      {"NegativePrint", "cups_bool_e(6)"},
      {"NumCopies", "104"},
      {"Orientation", "cups_orient_e(-1)"},
      {"OutputFaceUp", "cups_bool_e(7)"},
      {"PageSize", "(288,432)"},
      {"Separations", "cups_bool_e(8)"},
      {"TraySwitch", "cups_bool_e(9)"},
      {"Tumble", "cups_bool_e(10)"},
      {"cupsWidth", "1200"},
      {"cupsHeight", "1800"},
      {"cupsMediaType", "105"},
      {"cupsBitsPerColor", "8"},
      {"cupsBitsPerPixel", "24"},
      {"cupsBytesPerLine", "3600"},
      {"cupsColorOrder", "CUPS_ORDER_PLANAR"},
      {"cupsColorSpace", "cups_cspace_e(47)"},
      {"cupsCompression", "106"},
      {"cupsRowCount", "107"},
      {"cupsRowFeed", "108"},
      {"cupsRowStep", "109"},
  };
  EXPECT_EQ(dumped(distinct()), expected.dump());
}

TEST(PageHeaderDump, AStringWithoutTerminatorEndsWithItsField) {
  cups_page_header_t header = filled(0);
  std::memset(header.MediaClass, 'a', sizeof header.MediaClass);
  std::memset(header.MediaColor, 'b', sizeof header.MediaColor);
  std::memset(header.MediaType, 'c', sizeof header.MediaType);
  std::memset(header.OutputType, 'd', sizeof header.OutputType);
  header.AdvanceDistance = 0x41414141;
  const std::string text = dumped(header);
  const std::string strings = "__MediaClass=" + std::string(64, 'a') + "        /* MediaClass string */\n" +
                              "__MediaColor=" + std::string(64, 'b') + "        /* MediaColor string */\n" +
                              "__MediaType=" + std::string(64, 'c') + "        /* MediaType string */\n" +
                              "__OutputType=" + std::string(64, 'd') + "        /* OutputType string */\n";
  EXPECT_NE(text.find(strings), std::string::npos) << text;
}

TEST(PageHeaderDump, EveryLineIsOneWrite) {
  // A read of such a socket gives what one write wrote.
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
  const int saved = dup(STDERR_FILENO);
  dup2(ends[1], STDERR_FILENO);
  const cups_page_header_t header = distinct();
  dump(&header);
  dup2(saved, STDERR_FILENO);
  close(saved);

  std::vector<std::string> writes;
  std::array<char, 4096> buffer{};
  for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
    writes.emplace_back(buffer.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  close(ends[1]);
  EXPECT_EQ(writes.size(), 43U);
  EXPECT_TRUE(std::ranges::all_of(writes, [](const std::string& text) {
    return std::ranges::count(text, '\n') == 1 && text.back() == '\n';
  }));
}

}  // namespace
