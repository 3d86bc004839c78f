// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "raster/page_picture.h"
#include "raster/raster_names.h"
#include "tests/raster/raster_streams.h"

namespace {

using testing::HasSubstr;

/// A page with these bytes for pixels, given as "04 ff".
Page page_of(unsigned width, unsigned height, unsigned bits, unsigned colors, cups_order_t order,
             cups_cspace_t space, const std::string& pixels) {
  Page page = make_page(width, height, bits, colors, order, space);
  EXPECT_EQ(pixels.size(), page.pixels.size());
  page.pixels = pixels;
  return page;
}

class Pictures : public Rasterdump {
 protected:
  [[nodiscard]] std::string picture(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  [[nodiscard]] std::string picture_of(const Page& page, const std::string& name = "page.pnm") const {
    const ProgramResult result =
        run({"--quiet", "--pnm", path(name)}, write_stream({page}, CUPS_RASTER_WRITE));
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    return picture(name);
  }
};

TEST_F(Pictures, InksBecomeLightAsPostScriptDefinesIt) {
  const Page page = page_of(4, 1, 8, 4, CUPS_ORDER_CHUNKED, CUPS_CSPACE_CMYK,
                            {"\x01\x02\x03\x00"
                             "\x10\x20\x30\x40"
                             "\xff\x00\x80\x7f"
                             "\x00\x00\x00\xff",
                             16});
  EXPECT_EQ(picture_of(page), std::string("P6\n4 1\n255\n"
                                          "\xfe\xfd\xfc"
                                          "\xaf\x9f\x8f"
                                          "\x00\x80\x00"
                                          "\x00\x00\x00",
                                          11 + 12));
}

TEST_F(Pictures, SixteenBitsOfCmykBecomeSixteenBitsOfRgb) {
  Page page = make_page(1, 1, 16, 4, CUPS_ORDER_CHUNKED, CUPS_CSPACE_CMYK);
  const std::array<std::uint16_t, 4> inks = {0x1234, 0xfff0, 0x0000, 0x0100};
  std::memcpy(page.pixels.data(), inks.data(), sizeof inks);
  EXPECT_EQ(picture_of(page), std::string("P6\n1 1\n65535\n\xec\xcb\x00\x00\xfe\xff", 13 + 6));
}

TEST_F(Pictures, SingleBitsOfThreeColorsMayHaveNoGap) {
  // Writers other than Ghostscript may use three bits per pixel.
  Page page = page_of(4, 1, 1, 3, CUPS_ORDER_CHUNKED, CUPS_CSPACE_RGB, "\x8d\x70");  // 100 011 010 111
  EXPECT_EQ(page.header.cupsBitsPerPixel, 3U);
  EXPECT_EQ(picture_of(page), std::string("P6\n4 1\n255\n"
                                          "\xff\x00\x00"
                                          "\x00\xff\xff"
                                          "\x00\xff\x00"
                                          "\xff\xff\xff",
                                          11 + 12));
}

TEST_F(Pictures, ALineLongerThanABlockIsWhole) {
  const Page page = make_page(2500, 2, 8, 3, CUPS_ORDER_BANDED, CUPS_CSPACE_RGB);
  std::string expected = "P6\n2500 2\n255\n";
  for (std::size_t y = 0; y < 2; ++y) {
    for (std::size_t x = 0; x < 2500; ++x) {
      for (std::size_t plane = 0; plane < 3; ++plane) {
        expected += page.pixels[(y * 3 + plane) * 2500 + x];
      }
    }
  }
  EXPECT_TRUE(picture_of(page) == expected);
}

TEST_F(Pictures, ABitmapLongerThanABlockIsWhole) {
  const Page page = make_page(2051, 2, 1, 1, CUPS_ORDER_CHUNKED, CUPS_CSPACE_K);
  std::string expected = page.pixels;
  // No byte follows the last pixel.
  for (const std::size_t end : {256U, 513U}) {
    expected[end] = static_cast<char>(expected[end] & '\xe0');
  }
  EXPECT_TRUE(picture_of(page) == "P4\n2051 2\n" + expected);
}

TEST_F(Pictures, APamOfRgbOrGrayHasThem) {
  EXPECT_THAT(picture_of(make_page(3, 2), "rgb.pam"),
              testing::StartsWith("P7\nWIDTH 3\nHEIGHT 2\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n"));
  EXPECT_EQ(
      picture_of(page_of(3, 1, 1, 1, CUPS_ORDER_CHUNKED, CUPS_CSPACE_W, "\x40"), "gray.pam"),
      std::string("P7\nWIDTH 3\nHEIGHT 1\nDEPTH 1\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n\0\xff\0", 68));
}

TEST_F(Pictures, EachIsNamed) {
  const ProgramResult result = run({"--quiet", "--page", "2-", "--pnm", path("%P_%Wx%H.pnm")},
                                   write_stream({make_page(3, 2), make_page(5, 4),
                                                 make_page(9, 2, 1, 1, CUPS_ORDER_CHUNKED, CUPS_CSPACE_K)},
                                                CUPS_RASTER_WRITE));
  EXPECT_EQ(result.output, "saved " + path("2_5x4.pnm") + ": page 2, PPM, 5 x 4 pixels\n" +  //
                               "saved " + path("3_9x2.pnm") + ": page 3, PBM, 9 x 2 pixels\n");
}

TEST_F(Pictures, JsonStaysJsonBesideThem) {
  const std::string stream = write_stream({make_page(3, 2)}, CUPS_RASTER_WRITE);
  const ProgramResult result = run({"--json", "--pnm", path("x")}, stream);
  EXPECT_EQ(result.output, run({"--json"}, stream).output);
  EXPECT_EQ(result.errors, "saved " + path("x") + ": page 1, PPM, 3 x 2 pixels\n");
}

TEST_F(Pictures, OneNameIsEnoughForOnePage) {
  const std::string stream = write_stream({make_page(3, 2), make_page(5, 4)}, CUPS_RASTER_WRITE);
  const ProgramResult result = run({"--quiet", "--pnm", path("page.pnm")}, stream);
  EXPECT_EQ(result.exit_status, USAGE);
  EXPECT_EQ(result.errors,
            "brenvellis-rasterdump: page 2: '" + path("page.pnm") + "' names only one file (add %P)\n");
  EXPECT_THAT(picture("page.pnm"), testing::StartsWith("P6\n3 2\n"));
}

TEST_F(Pictures, AnIncompletePageHasTheReceivedLines) {
  const Page page = make_page(10, 20);
  std::string stream = write_stream({page}, CUPS_RASTER_WRITE);
  stream.resize(stream.size() - 12 * 30 - 1);
  const ProgramResult result = run({"--quiet", "--pnm", path("x")}, stream);
  EXPECT_EQ(result.exit_status, INPUT);
  EXPECT_EQ(result.errors,
            "brenvellis-rasterdump: page 1, after 7 of 20 lines: unexpected end of the stream; " + path("x") +
                " has 7 lines\n");
  EXPECT_EQ(picture("x"), "P6\n10  7\n255\n" + page.pixels.substr(0, 7UL * 30));
}

TEST_F(Pictures, AnIncompletePlaneGivesTheLinesThatAllPlanesHave) {
  const Page page = make_page(10, 20, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB);
  const std::string whole = picture_of(page, "whole");
  std::string stream = write_stream({page}, CUPS_RASTER_WRITE);
  stream.resize(stream.size() - 13 * 10);
  EXPECT_EQ(run({"--quiet", "--pnm", path("x")}, stream).exit_status, INPUT);
  EXPECT_EQ(picture("x"), "P6\n10  7\n255\n" + whole.substr(13, 7UL * 30));
}

TEST_F(Pictures, AreNotSavedIfAPlaneIsMissing) {
  std::string stream =
      write_stream({make_page(10, 20, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB)}, CUPS_RASTER_WRITE);
  stream.resize(stream.size() - 200);
  const ProgramResult result = run({"--quiet", "--pnm", path("x")}, stream);
  EXPECT_EQ(result.exit_status, INPUT);
  EXPECT_EQ(result.errors,
            "brenvellis-rasterdump: page 1, after 40 of 60 lines: unexpected end of the stream; nothing was "
            "saved\n");
  EXPECT_NE(access(path("x").c_str(), F_OK), 0);
}

struct RefusedCase {
  const char* name;
  void (*change)(cups_page_header2_t& header);
  const char* why;
};

void PrintTo(const RefusedCase& refused, std::ostream* out) {
  *out << refused.name;
}

class Refused : public Pictures, public testing::WithParamInterface<RefusedCase> {};

TEST_P(Refused, PageIsNamedAndTheOthersArePictures) {
  Page bad = make_page(10, 4);
  GetParam().change(bad.header);
  const std::uint64_t lines = std::uint64_t{bad.header.cupsHeight} *
                              (bad.header.cupsColorOrder == CUPS_ORDER_PLANAR ? bad.header.cupsNumColors : 1);
  bad.pixels.assign(lines * bad.header.cupsBytesPerLine, 'x');
  const ProgramResult result = run({"--quiet", "--pnm", path("%P")},
                                   write_stream({make_page(3, 2), bad, make_page(3, 2)}, CUPS_RASTER_WRITE));
  EXPECT_EQ(result.exit_status, INPUT);
  EXPECT_EQ(result.errors,
            std::string("brenvellis-rasterdump: page 2: cannot make a picture: ") + GetParam().why + "\n");
  EXPECT_FALSE(picture("1").empty());
  EXPECT_TRUE(picture("2").empty());
  EXPECT_FALSE(picture("3").empty());
}

TEST_F(Pictures, OfAnUnsupportedLastPageAreAnError) {
  const std::string stream = write_stream(
      {make_page(3, 2), make_page(10, 4, 8, 3, CUPS_ORDER_CHUNKED, CUPS_CSPACE_CIELab)}, CUPS_RASTER_WRITE);
  EXPECT_EQ(run({"--quiet", "--page", "1-2", "--pnm", path("%P")}, stream).exit_status, INPUT);
  EXPECT_EQ(run({"--quiet", "--page", "1", "--pnm", path("%P")}, stream).exit_status, 0);
}

TEST_F(Pictures, CanBeNumbered) {
  const std::string stream = write_stream({make_page(3, 2), make_page(5, 4)}, CUPS_RASTER_WRITE);
  EXPECT_EQ(run({"--quiet", "--pnm", path("%C")}, stream).output,
            "saved " + path("0000") + ": page 1, PPM, 3 x 2 pixels\n" +  //
                "saved " + path("0001") + ": page 2, PPM, 5 x 4 pixels\n");
}

INSTANTIATE_TEST_SUITE_P(
    Pictures, Refused,
    testing::Values(
        RefusedCase{"ColorSpace",
                    [](cups_page_header2_t& header) { header.cupsColorSpace = CUPS_CSPACE_CIELab; },
                    "unsupported cupsColorSpace=CUPS_CSPACE_CIELab"},
        RefusedCase{"Bits",
                    [](cups_page_header2_t& header) {
                      header.cupsBitsPerColor = 4;
                      header.cupsBitsPerPixel = 12;
                    },
                    "unsupported cupsBitsPerColor=4 (expected 1, 8 or 16)"},
        RefusedCase{"BitsOfAPixel", [](cups_page_header2_t& header) { header.cupsBitsPerPixel = 8; },
                    "unsupported cupsBitsPerPixel=8 (expected 24)"},
        RefusedCase{"Order", [](cups_page_header2_t& header) { set_value(header.cupsColorOrder, 7); },
                    "invalid cupsColorOrder=cups_order_e(7)"},
        RefusedCase{"Line", [](cups_page_header2_t& header) { header.cupsWidth = 11; },
                    "cupsBytesPerLine=30 is too small for cupsWidth=11"},
        RefusedCase{"LineOfColors",
                    [](cups_page_header2_t& header) {
                      header.cupsColorOrder = CUPS_ORDER_BANDED;
                      header.cupsBitsPerPixel = 8;
                      header.cupsBytesPerLine = 29;
                    },
                    "cupsBytesPerLine=29 is too small for cupsWidth=10"}),
    [](const auto& the_case) { return the_case.param.name; });

TEST(PictureRefusal, PlanesThatAreNotThoseOfTheColorSpaceAreNamed) {
  cups_page_header2_t header = make_page(10, 4, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB).header;
  EXPECT_EQ(picture_refusal(header), "");
  header.cupsNumColors = 4;
  EXPECT_EQ(picture_refusal(header), "invalid cupsNumColors=4 (expected 3)");
}

TEST(PictureRefusal, NoWidthIsNamed) {
  cups_page_header2_t header = make_page(10, 4).header;
  header.cupsWidth = 0;
  EXPECT_EQ(picture_refusal(header), "invalid cupsWidth=0");
}

TEST(PictureRefusal, WidthsThatOverflow32BitsAreTooLong) {
  cups_page_header2_t header = make_page(10, 4).header;
  header.cupsWidth = 0x20000000 + 10;
  EXPECT_NE(picture_refusal(header), "");
}

TEST(PictureRefusal, OfBitsDependsOnTheColors) {
  struct Case {
    cups_cspace_t space;
    unsigned bits_per_color;
    std::vector<unsigned> accepted;  ///< bits per pixel
  };
  for (const auto& [space, bits, accepted] :
       {Case{CUPS_CSPACE_K, 1, {1}}, Case{CUPS_CSPACE_RGB, 1, {3, 4, 5, 6, 7, 8}},
        Case{CUPS_CSPACE_CMYK, 1, {4, 5, 6, 7, 8}}, Case{CUPS_CSPACE_K, 8, {8}},
        Case{CUPS_CSPACE_RGB, 8, {24}}, Case{CUPS_CSPACE_CMYK, 16, {64}}, Case{CUPS_CSPACE_K, 2, {}},
        Case{CUPS_CSPACE_K, 15, {}}}) {
    for (unsigned pixel = 0; pixel <= 65; ++pixel) {
      cups_page_header2_t header = make_page(1, 1).header;
      header.cupsColorSpace = space;
      header.cupsBitsPerColor = bits;
      header.cupsBitsPerPixel = pixel;
      header.cupsBytesPerLine = 9;
      EXPECT_EQ(picture_refusal(header).empty(), std::ranges::find(accepted, pixel) != accepted.end())
          << to_string(space) << ", " << bits << " bits, " << pixel << " bits per pixel";
    }
  }
}

TEST(PictureRefusal, OfLinesDependsOnTheirOrder) {
  struct Case {
    cups_order_t order;
    unsigned bits_per_color;
    unsigned bytes;  ///< the fewest for a line of 9 pixels
  };
  for (const auto& [order, bits, bytes] :
       {Case{CUPS_ORDER_CHUNKED, 1, 5}, Case{CUPS_ORDER_CHUNKED, 8, 36}, Case{CUPS_ORDER_CHUNKED, 16, 72},
        Case{CUPS_ORDER_BANDED, 1, 8}, Case{CUPS_ORDER_BANDED, 8, 36}, Case{CUPS_ORDER_BANDED, 16, 72},
        Case{CUPS_ORDER_PLANAR, 1, 2}, Case{CUPS_ORDER_PLANAR, 8, 9}, Case{CUPS_ORDER_PLANAR, 16, 18}}) {
    cups_page_header2_t header = make_page(9, 1, bits, 4, order, CUPS_CSPACE_CMYK).header;
    header.cupsBytesPerLine = bytes;
    EXPECT_EQ(picture_refusal(header), "");
    header.cupsBytesPerLine = bytes - 1;
    EXPECT_EQ(picture_refusal(header),
              "cupsBytesPerLine=" + std::to_string(bytes - 1) + " is too small for cupsWidth=9");
  }
}

TEST(PagePicture, HasTheColorsOfEverySpaceInItsOrder) {
  struct Case {
    cups_cspace_t space;
    std::vector<int> pixel;    ///< in the stream
    std::vector<int> picture;  ///< in a PGM or PPM
    std::vector<int> pam;      ///< in a PAM, if it is different
  };
  for (const auto& [space, pixel, picture, pam] : {
           Case{CUPS_CSPACE_W, {16}, {16}, {}},
           Case{CUPS_CSPACE_SW, {16}, {16}, {}},
           Case{CUPS_CSPACE_K, {16}, {239}, {}},
           Case{CUPS_CSPACE_WHITE, {16}, {239}, {}},
           Case{CUPS_CSPACE_GOLD, {16}, {239}, {}},
           Case{CUPS_CSPACE_SILVER, {16}, {239}, {}},
           Case{CUPS_CSPACE_RGB, {1, 2, 3}, {1, 2, 3}, {}},
           Case{CUPS_CSPACE_SRGB, {1, 2, 3}, {1, 2, 3}, {}},
           Case{CUPS_CSPACE_ADOBERGB, {1, 2, 3}, {1, 2, 3}, {}},
           Case{CUPS_CSPACE_CMY, {1, 2, 3}, {254, 253, 252}, {}},
           Case{CUPS_CSPACE_YMC, {1, 2, 3}, {252, 253, 254}, {}},
           Case{CUPS_CSPACE_CMYK, {1, 2, 4, 8}, {246, 245, 243}, {1, 2, 4, 8}},
           Case{CUPS_CSPACE_YMCK, {1, 2, 4, 8}, {243, 245, 246}, {4, 2, 1, 8}},
           Case{CUPS_CSPACE_KCMY, {1, 2, 4, 8}, {252, 250, 246}, {2, 4, 8, 1}},
       }) {
    for (const auto order : {CUPS_ORDER_CHUNKED, CUPS_ORDER_BANDED, CUPS_ORDER_PLANAR}) {
      const auto header = make_page(1, 1, 8, static_cast<unsigned>(pixel.size()), order, space).header;
      EXPECT_EQ(picture_refusal(header), "");
      const std::vector<unsigned char> bytes(pixel.begin(), pixel.end());
      for (const bool as_pam : {false, true}) {
        const PagePicture page_picture(header, as_pam);
        const std::vector<int>& expected = as_pam && !pam.empty() ? pam : picture;
        ASSERT_EQ(page_picture.line_size(), expected.size());
        std::vector<unsigned char> line(expected.size());
        page_picture.convert(bytes.data(), line.data());
        EXPECT_EQ(std::vector<int>(line.begin(), line.end()), expected) << to_string(space) << as_pam;
        EXPECT_STREQ(page_picture.format(), as_pam ? "PAM" : picture.size() == 1 ? "PGM" : "PPM");
      }
    }
  }
}

TEST_F(Pictures, OfPlanesMayHaveLinesOfOneByte) {
  const Page page = make_page(1, 3, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB);
  std::string expected = "P6\n1 3\n255\n";
  for (const int place : {0, 3, 6, 1, 4, 7, 2, 5, 8}) {
    expected += page.pixels[static_cast<std::size_t>(place)];
  }
  EXPECT_EQ(picture_of(page), expected);
}

TEST_F(Pictures, LargerThanTheLargestFileAreAnError) {
  // A picture, and its planes, of more than 2^63 bytes, whose lines may fit into the memory.
  Page wide = make_page(10, 1, 1, 3, CUPS_ORDER_CHUNKED, CUPS_CSPACE_RGB);
  wide.header.cupsWidth = 715827883;
  wide.header.cupsBitsPerPixel = 4;
  wide.header.cupsBytesPerLine = 357913942;
  Page planes = make_page(10, 1, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB);
  planes.header.cupsBytesPerLine = 715827883;
  for (Page& page : std::array{wide, planes}) {
    page.header.cupsHeight = 4294967295U;
    const ProgramResult result = run({"--quiet", "--pnm", path("x")}, write_first_version({page}));
    EXPECT_EQ(result.exit_status, INPUT);
    EXPECT_EQ(result.errors, "brenvellis-rasterdump: page 1: cannot make a picture: the page is too large\n");
  }
}

TEST_F(Pictures, InAFolderThatDoesNotExistAreAnError) {
  const ProgramResult result =
      run({"--quiet", "--pnm", path("no/x")}, write_stream({make_page(3, 2)}, CUPS_RASTER_WRITE));
  EXPECT_EQ(result.exit_status, OUTPUT);
  EXPECT_EQ(result.errors,
            "brenvellis-rasterdump: page 1: cannot save " + path("no/x") + ": No such file or directory\n");
}

}  // namespace
