// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "raster/full_header.h"
#include "tests/raster/raster_streams.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

/// A page whose fields differ from each other.
Page eventful_page() {
  Page page = make_page(10, 20);
  cups_page_header2_t& header = page.header;
  std::strcpy(header.MediaType, "Glossy");
  header.Duplex = CUPS_TRUE;
  set_value(header.Tumble, 2);
  set_value(header.Orientation, 9);
  header.ImagingBoundingBox[0] = 10;
  header.ImagingBoundingBox[1] = 20;
  header.ImagingBoundingBox[2] = 590;
  header.ImagingBoundingBox[3] = 820;
  header.cupsBorderlessScalingFactor = 1.1F;
  header.cupsPageSize[0] = 288.5F;
  header.cupsPageSize[1] = 432;
  header.cupsInteger[1] = 4294967295U;
  header.cupsInteger[15] = 7;
  header.cupsReal[2] = -0.25F;
  std::strcpy(header.cupsString[15], "last");
  std::strcpy(header.cupsPageSizeName, "w288h432");
  return page;
}

/// The list of the fields of version 2 of that page.
std::string other_fields(const std::vector<std::string>& meanings_of_integers) {
  const std::vector<std::string> integers = {"0", "-1", "0", "0", "0", "0", "0", "0",
                                             "0", "0",  "0", "0", "0", "0", "0", "7"};
  const auto place = [](const char* name, std::size_t i, const std::string& value) {
    return std::string("__") + name + "[" + std::to_string(i) + "]=" + value + "        /* ";
  };
  std::string text =
      "=== cups_page_header2_t ===\n"
      "__ImagingBoundingBox=(10,20,590,820)        "
      "/* Pixel region that is painted (points, left, bottom, right, top) */\n"
      "__cupsNumColors=3        /* Number of colors */\n"
      "__cupsBorderlessScalingFactor=1.1        /* Scaling that was applied to page data */\n"
      "__cupsPageSize=(288.5,432)        /* Width and length of page in points, before scaling */\n"
      "__cupsImagingBBox=(0,0,0,0)        "
      "/* Region that is painted, before scaling (points, left, bottom, right, top) */\n";
  for (std::size_t i = 0; i < 16; ++i) {
    text += place("cupsInteger", i, integers[i]) + meanings_of_integers[i] + " */\n";
  }
  for (std::size_t i = 0; i < 16; ++i) {
    text += place("cupsReal", i, i == 2 ? "-0.25" : "0") + "Floating-point number of the driver */\n";
  }
  for (std::size_t i = 0; i < 16; ++i) {
    text += place("cupsString", i, i == 15 ? "last" : "") + "String of the driver */\n";
  }
  return text +
         "__cupsMarkerType=        /* Ink or toner type */\n"
         "__cupsRenderingIntent=        /* Color rendering intent */\n"
         "__cupsPageSizeName=w288h432        /* PageSize name */\n";
}

TEST_F(Rasterdump, AllAddsTheFieldsOfVersionTwo) {
  const std::vector<Page> pages = {eventful_page()};
  const std::string stream = write_stream(pages, CUPS_RASTER_WRITE);
  const ProgramResult result = run({"--all"}, stream);
  const std::string first = headers_of(pages);
  ASSERT_THAT(result.output, testing::StartsWith(first + "=== cups_page_header2_t ===\n"));
  EXPECT_EQ(result.output.substr(first.size()),
            other_fields(std::vector<std::string>(16, "Integer of the driver")));
}

TEST(Headers, OfPwgRasterHaveNamedIntegers) {
  EXPECT_EQ(
      list_other_fields(eventful_page().header, {.format = "PWG"}),
      other_fields({"TotalPageCount", "CrossFeedTransform", "FeedTransform", "ImageBoxLeft", "ImageBoxTop",
                    "ImageBoxRight", "ImageBoxBottom", "AlternatePrimary", "PrintQuality",
                    "Integer of the driver", "Integer of the driver", "Integer of the driver",
                    "Integer of the driver", "Integer of the driver", "VendorIdentifier", "VendorLength"}));
}

TEST_F(Rasterdump, AllNamesTheIntegersOfPwgRaster) {
  const std::string output = run({"--all"}, write_stream({eventful_page()}, CUPS_RASTER_WRITE_PWG)).output;
  EXPECT_THAT(output, HasSubstr("__cupsInteger[0]=0        /* TotalPageCount */\n"));
  EXPECT_THAT(output, HasSubstr("__cupsPageSizeName=w288h432        /* PageSize name */\n"));
}

/// Every field that a header can differ in: each of its numbers, and the first byte of each string.
std::vector<std::size_t> places_of_fields() {
  std::vector<std::size_t> places;
  for (std::size_t string = 0; string < 4; ++string) {
    places.push_back(string * 64);
  }
  for (std::size_t number = 256; number < offsetof(cups_page_header2_t, cupsString); number += 4) {
    places.push_back(number);
  }
  for (std::size_t string = offsetof(cups_page_header2_t, cupsString); string < sizeof(cups_page_header2_t);
       string += 64) {
    places.push_back(string);
  }
  return places;
}

TEST(Headers, ThatDifferInAnyFieldDifferInJson) {
  const cups_page_header2_t header = make_page(10, 20).header;
  const std::string before = header_as_json(header, {}, 1);
  EXPECT_EQ(places_of_fields().size(), 4U + 81 + 19);
  for (const std::size_t place : places_of_fields()) {
    cups_page_header2_t other = header;
    reinterpret_cast<char*>(&other)[place] ^= '\x41';
    EXPECT_NE(header_as_json(other, {}, 1), before) << "byte " << place;
  }
}

TEST(Headers, ThatDifferInAFieldOfVersionTwoDifferInItsList) {
  const cups_page_header2_t header = make_page(10, 20).header;
  const std::string before = list_other_fields(header, {});
  for (const std::size_t place : places_of_fields()) {
    if (place < offsetof(cups_page_header2_t, cupsNumColors)) {
      continue;
    }
    cups_page_header2_t other = header;
    reinterpret_cast<char*>(&other)[place] ^= '\x41';
    EXPECT_NE(list_other_fields(other, {}), before) << "byte " << place;
  }
}

TEST(Headers, InJsonHaveTheNamesOfTheirFields) {
  const auto object = nlohmann::ordered_json::parse(header_as_json(make_page(10, 20).header, {}, 1));
  std::string names;
  for (const auto& [name, value] : object.items()) {
    names += (names.empty() ? "" : " ") + name;
  }
  EXPECT_EQ(names,
            "page stream MediaClass MediaColor MediaType OutputType AdvanceDistance AdvanceMedia Collate "
            "CutMedia Duplex HWResolution ImagingBoundingBox InsertSheet Jog LeadingEdge Margins ManualFeed "
            "MediaPosition MediaWeight MirrorPrint NegativePrint NumCopies Orientation OutputFaceUp PageSize "
            "Separations TraySwitch Tumble cupsWidth cupsHeight cupsMediaType cupsBitsPerColor "
            "cupsBitsPerPixel cupsBytesPerLine cupsColorOrder cupsColorSpace cupsCompression cupsRowCount "
            "cupsRowFeed cupsRowStep cupsNumColors cupsBorderlessScalingFactor cupsPageSize cupsImagingBBox "
            "cupsInteger cupsReal cupsString cupsMarkerType cupsRenderingIntent cupsPageSizeName");
}

TEST_F(Rasterdump, JsonIsOneObjectPerPage) {
  const ProgramResult result =
      run({"--json"}, write_stream({eventful_page(), make_page(13, 9)}, CUPS_RASTER_WRITE_COMPRESSED));
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  const std::size_t end = result.output.find('\n');
  const json first = json::parse(result.output.substr(0, end));
  const json second = json::parse(result.output.substr(end));
  EXPECT_EQ(first["page"], 1);
  EXPECT_EQ(second["page"], 2);
  EXPECT_EQ(first["stream"], json::parse(R"({"format": "CUPS", "version": 2, "compressed": true,
                                             "byteOrder": "little-endian"})"));
  EXPECT_EQ(first["MediaType"], "Glossy");
  EXPECT_EQ(first["Duplex"], true);
  EXPECT_EQ(first["Collate"], false);
  EXPECT_EQ(first["Tumble"], 2);
  EXPECT_EQ(first["Orientation"], "cups_orient_e(9)");
  EXPECT_EQ(first["ImagingBoundingBox"], json({10, 20, 590, 820}));
  EXPECT_EQ(first["cupsColorSpace"], "CUPS_CSPACE_SRGB");
  EXPECT_EQ(first["cupsBorderlessScalingFactor"], 1.1);
  EXPECT_EQ(first["cupsInteger"][1], 4294967295U);
  EXPECT_EQ(first["cupsReal"][2], -0.25);
  EXPECT_EQ(first["cupsString"][15], "last");
  EXPECT_EQ(second["cupsWidth"], 13);
  EXPECT_EQ(second["cupsBytesPerLine"], 39);
}

TEST_F(Rasterdump, JsonNamesPwgAndAppleRaster) {
  const json pwg =
      json::parse(run({"--json"}, write_stream({make_page(3, 2)}, CUPS_RASTER_WRITE_PWG)).output);
  EXPECT_EQ(pwg["stream"], json::parse(R"({"format": "PWG", "version": 2, "compressed": true,
                                           "byteOrder": "big-endian"})"));
  const json apple =
      json::parse(run({"--json"}, write_stream({make_page(3, 2)}, CUPS_RASTER_WRITE_APPLE)).output);
  EXPECT_EQ(apple["stream"], json::parse(R"({"format": "Apple", "version": null, "compressed": true,
                                             "byteOrder": "big-endian"})"));
}

TEST_F(Rasterdump, JsonEscapesTerminalControls) {
  Page page = make_page(3, 2);
  std::memcpy(page.header.MediaClass, "\x1b[2J\x7f\xc2\x9b\xe2\x80\xae\xff\"\n", 13);
  const std::string output = run({"--json"}, write_stream({page}, CUPS_RASTER_WRITE)).output;
  EXPECT_THAT(output, HasSubstr(R"("MediaClass":"\u001b[2J\u007f\u009b\u202e\ufffd\"\n")"));
  EXPECT_TRUE(std::all_of(output.begin(), output.end() - 1, [](char c) { return c >= ' ' && c <= '~'; }));
}

}  // namespace
