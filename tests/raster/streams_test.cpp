// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/raster/raster_streams.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

constexpr const char* VERSION_2 = "CUPS raster version 2, compressed, little-endian";
constexpr const char* VERSION_3 = "CUPS raster version 3, uncompressed, little-endian";
constexpr const char* VERSION_3_REVERSED = "CUPS raster version 3, uncompressed, big-endian";

struct Kind {
  const char* name;
  std::string stream;
  std::vector<Page> pages;
  const char* described;
};

void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

Page layout(unsigned bits_per_color, unsigned colors, cups_order_t order, cups_cspace_t space) {
  return make_page(24, 10, bits_per_color, colors, order, space);
}

std::vector<Kind> kinds() {
  const std::vector<Page> deep = {layout(16, 3, CUPS_ORDER_CHUNKED, CUPS_CSPACE_SRGB)};
  const std::vector<Page> planar = {layout(8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB), make_page(10, 20)};
  const std::vector<Page> banded = {layout(8, 4, CUPS_ORDER_BANDED, CUPS_CSPACE_CMYK), make_page(10, 20)};
  const std::vector<Page> mono = {layout(1, 1, CUPS_ORDER_CHUNKED, CUPS_CSPACE_K), make_page(10, 20)};
  const std::string v1 = write_first_version(TWO_PAGES);
  const std::string v3 = write_stream(TWO_PAGES, CUPS_RASTER_WRITE);
  std::vector<Kind> all = {
      {"Version1", v1, TWO_PAGES, "CUPS raster version 1, uncompressed, little-endian"},
      {"Version1OfTheOtherByteOrder", other_byte_order(v1, TWO_PAGES), TWO_PAGES,
       "CUPS raster version 1, uncompressed, big-endian"},
      {"Version2", write_stream(TWO_PAGES, CUPS_RASTER_WRITE_COMPRESSED), TWO_PAGES, VERSION_2},
      {"Version3", v3, TWO_PAGES, VERSION_3},
      {"Version3OfTheOtherByteOrder", other_byte_order(v3, TWO_PAGES), TWO_PAGES, VERSION_3_REVERSED},
      {"PlanarVersion1", write_first_version(planar), planar,
       "CUPS raster version 1, uncompressed, little-endian"},
  };
  const std::vector<std::pair<const char*, std::vector<Page>>> layouts = {
      {"Deep", deep}, {"Planar", planar}, {"Banded", banded}, {"Mono", mono}};
  for (const auto& [name, pages] : layouts) {
    static std::vector<std::string> names;
    names.reserve(100);
    const std::string uncompressed = write_stream(pages, CUPS_RASTER_WRITE);
    names.push_back(std::string(name) + "Version2");
    all.push_back(
        {names.back().c_str(), write_stream(pages, CUPS_RASTER_WRITE_COMPRESSED), pages, VERSION_2});
    names.push_back(std::string(name) + "Version3");
    all.push_back({names.back().c_str(), uncompressed, pages, VERSION_3});
    names.push_back(std::string(name) + "Version3OfTheOtherByteOrder");
    all.push_back({names.back().c_str(), other_byte_order(uncompressed, pages), pages, VERSION_3_REVERSED});
  }
  return all;
}

class EveryKind : public Rasterdump, public testing::WithParamInterface<Kind> {};

std::string pixels_of(const std::vector<Page>& pages) {
  std::string all;
  for (const Page& page : pages) {
    all += page.pixels;
  }
  return all;
}

TEST_P(EveryKind, JoinedBandsAreThePixels) {
  const ProgramResult result =
      run({"--quiet", "--bands", "7", "--capture", path("%C.raw"), file(GetParam().stream)});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(joined_bands(), pixels_of(GetParam().pages));
}

TEST_P(EveryKind, EveryHeaderIsDumped) {
  const ProgramResult result = run({file(GetParam().stream)});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, headers_of(GetParam().pages, GetParam().described));
}

INSTANTIATE_TEST_SUITE_P(Streams, EveryKind, testing::ValuesIn(kinds()),
                         [](const auto& the_case) { return the_case.param.name; });

// These two formats do not store all fields of a header.
class PwgKind : public Rasterdump, public testing::WithParamInterface<cups_mode_t> {};

TEST_P(PwgKind, JoinedBandsAreThePixels) {
  const std::string stream = write_stream(TWO_PAGES, GetParam());
  const ProgramResult result = run({"--quiet", "--bands", "7", "--capture", path("%C.raw"), file(stream)});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(joined_bands(), pixels_of(TWO_PAGES));
}

TEST_P(PwgKind, TheSizesAreDumped) {
  const ProgramResult result = run({file(write_stream({TWO_PAGES[1]}, GetParam()))});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output,
              testing::StartsWith(GetParam() == CUPS_RASTER_WRITE_PWG
                                      ? "page 1: PWG raster version 2, compressed, big-endian\n"
                                      : "page 1: Apple raster, compressed, big-endian\n"));
  EXPECT_THAT(result.output,
              testing::HasSubstr("__cupsWidth=13        /* Width of page image in pixels */\n"
                                 "__cupsHeight=9        /* Height of page image in pixels */\n"));
}

INSTANTIATE_TEST_SUITE_P(Streams, PwgKind, testing::Values(CUPS_RASTER_WRITE_PWG, CUPS_RASTER_WRITE_APPLE));

TEST_F(Rasterdump, TheLastBandOfAPageIsShorter) {
  run({"--bands", "8", "--capture", path("%C_%Wx%H_%B.raw"),
       file(write_stream(TWO_PAGES, CUPS_RASTER_WRITE))});
  EXPECT_THAT(bands(), ElementsAre(Key("0000_10x8_24.raw"), Key("0001_10x8_24.raw"), Key("0002_10x4_24.raw"),
                                   Key("0003_13x8_24.raw"), Key("0004_13x1_24.raw")));
}

TEST_F(Rasterdump, ABandHigherThanThePageIsThePage) {
  run({"--bands", "4294967295", "--capture", path("%C_%H.raw"),
       file(write_stream(TWO_PAGES, CUPS_RASTER_WRITE))});
  EXPECT_THAT(bands(), ElementsAre(Key("0000_20.raw"), Key("0001_9.raw")));
}

TEST_F(Rasterdump, EverySavedBandIsNamed) {
  const ProgramResult result = run({"--quiet", "--bands", "8", "--capture", path("%C.raw"), "--page", "1",
                                    file(write_stream(TWO_PAGES, CUPS_RASTER_WRITE))});
  EXPECT_EQ(result.output, "saved " + path("0000.raw") + ": page 1, lines 0 to 7, 240 bytes\n" +  //
                               "saved " + path("0001.raw") + ": page 1, lines 8 to 15, 240 bytes\n" +
                               "saved " + path("0002.raw") + ": page 1, lines 16 to 19, 120 bytes\n");
}

TEST_F(Rasterdump, ABandBeginsAtEachPlane) {
  const std::vector<Page> pages = {make_page(24, 10, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB)};
  const ProgramResult result = run({"--quiet", "--bands", "6", "--capture", path("%C_%L_%H.raw"),
                                    file(write_stream(pages, CUPS_RASTER_WRITE))});
  EXPECT_THAT(bands(), ElementsAre(Key("0000_1_6.raw"), Key("0001_1_4.raw"), Key("0002_2_6.raw"),
                                   Key("0003_2_4.raw"), Key("0004_3_6.raw"), Key("0005_3_4.raw")));
  EXPECT_EQ(joined_bands(), pages[0].pixels);
  EXPECT_THAT(result.output, testing::HasSubstr("saved " + path("0003_2_4.raw") +
                                                ": page 1, plane 2 of 3, lines 6 to 9, 96 bytes\n"));
}

TEST_F(Rasterdump, ABandHigherThanAPlaneIsThePlane) {
  const std::vector<Page> pages = {make_page(24, 10, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB)};
  EXPECT_EQ(run({"--quiet", "--bands", "4294967295", "--capture", path("%P_%L_%H.raw"),
                 file(write_stream(pages, CUPS_RASTER_WRITE))})
                .exit_status,
            0);
  EXPECT_THAT(bands(), ElementsAre(Key("1_1_10.raw"), Key("1_2_10.raw"), Key("1_3_10.raw")));
}

TEST_F(Rasterdump, ANameMayHoldThePage) {
  EXPECT_EQ(run({"--quiet", "--bands", "20", "--capture", path("%P_%H%%P.raw"),
                 file(write_stream(TWO_PAGES, CUPS_RASTER_WRITE))})
                .exit_status,
            0);
  EXPECT_THAT(bands(), ElementsAre(Key("1_20P.raw"), Key("2_9P.raw")));
}

TEST_F(Rasterdump, OnePageCanBeChosen) {
  const ProgramResult result = run({"--page", "2", file(write_stream(TWO_PAGES, CUPS_RASTER_WRITE))});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, headers_of({TWO_PAGES[1]}, VERSION_3, 2));
}

TEST_F(Rasterdump, PagesCanBeChosen) {
  std::vector<Page> pages;
  for (unsigned i = 1; i <= 8; ++i) {
    pages.push_back(make_page(i, 2));
  }
  const std::string stream = file(write_stream(pages, CUPS_RASTER_WRITE));
  const ProgramResult result =
      run({"--page", "2-4,7", "--quiet", "--bands", "2", "--capture", path("%P_%W.raw"), stream});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(bands(), ElementsAre(Key("2_2.raw"), Key("3_3.raw"), Key("4_4.raw"), Key("7_7.raw")));
  EXPECT_EQ(run({"--page", "8-", stream}).output, headers_of({pages[7]}, VERSION_3, 8));
}

TEST_F(Rasterdump, WhatFollowsTheLastChosenPageIsNotRead) {
  std::string stream = write_stream(TWO_PAGES, CUPS_RASTER_WRITE);
  stream.resize(stream.size() - 1);
  EXPECT_EQ(run({"--page", "1", "--quiet", file(stream)}).exit_status, 0);
}

TEST_F(Rasterdump, StandardInputIsReadWithoutAFile) {
  const ProgramResult result = run({}, write_stream(TWO_PAGES, CUPS_RASTER_WRITE));
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, headers_of(TWO_PAGES));
}

TEST_F(Rasterdump, StandardInputIsReadForADash) {
  const ProgramResult result = run({"-"}, write_stream(TWO_PAGES, CUPS_RASTER_WRITE));
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, headers_of(TWO_PAGES));
}

TEST_F(Rasterdump, AStreamMayComeInSmallPieces) {
  std::array<int, 2> input{};
  ASSERT_EQ(pipe2(input.data(), O_CLOEXEC), 0);
  const std::vector<Page> pages = {make_page(3, 2)};
  const std::string stream = other_byte_order(write_stream(pages, CUPS_RASTER_WRITE), pages);
  const int output = open(path("output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ChildProcess child({{RASTERDUMP_PROGRAM}, {{0, input[0]}, {1, output}}, {}});
  close(input[0]);
  close(output);
  // The program most likely reads each of the first bytes alone.
  for (std::size_t i = 0; i < 4; ++i) {
    ASSERT_EQ(write(input[1], stream.data() + i, 1), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_EQ(write(input[1], stream.data() + 4, stream.size() - 4), static_cast<ssize_t>(stream.size() - 4));
  close(input[1]);
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), 0);
  std::ifstream in(path("output"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), headers_of(pages, VERSION_3_REVERSED));
}

TEST_F(Rasterdump, QuietLeavesTheHeadersOut) {
  const ProgramResult result = run({"--quiet", file(write_stream(TWO_PAGES, CUPS_RASTER_WRITE))});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(bands(), IsEmpty());
}

}  // namespace
