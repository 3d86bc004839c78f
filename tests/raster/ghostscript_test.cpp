// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "tests/raster/raster_streams.h"

namespace {

/// Two pages of odd width: thirty stripes, and a disc. "u" takes a number modulo 256 for a part of 1.
constexpr const char* DOCUMENT = R"(%!PS
/u { 256 mod 255 div } def
<< /PageSize [71 90] >> setpagedevice
0 1 29 { /i exch def STRIPE 0 i 3 mul 71 3 rectfill } for showpage
DISC 35 45 20 0 360 arc fill showpage
)";

struct Colors {
  const char* stripe;
  const char* disc;
};

constexpr Colors RGB = {"i 17 mul u i 31 mul u i 77 mul u setrgbcolor", "0.8 0.2 0.1 setrgbcolor"};
// Numbers of 8 bits, which both sides add without rounding.
constexpr Colors CMYK = {"i 17 mul u i 31 mul u i 77 mul u i 5 mul u setcmykcolor",
                         "204 u 51 u 26 u 77 u setcmykcolor"};
/// Ghostscript's pgmraw device rounds some odd grays down.
constexpr Colors GRAY = {"i 8 mul u setgray", "128 u setgray"};
/// Colours for which one bit is enough, so that nothing is screened.
constexpr Colors PURE_RGB = {"i 2 mod i 2 idiv 2 mod i 4 idiv 2 mod setrgbcolor", "1 0 1 setrgbcolor"};
constexpr Colors PURE_CMYK = {"i 2 mod i 2 idiv 2 mod i 4 idiv 2 mod i 8 idiv 2 mod setcmykcolor",
                              "1 0 1 0 setcmykcolor"};

class Ghostscript : public Rasterdump {
 protected:
  /// Renders the document to a file of this name and returns its path.
  std::string render(const Colors& colors, const std::vector<std::string>& options,
                     const std::string& name) const {
    std::string text = DOCUMENT;
    text.replace(text.find("STRIPE"), 6, colors.stripe);
    text.replace(text.find("DISC"), 4, colors.disc);
    std::vector<std::string> command = {GHOSTSCRIPT, "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-r72"};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), {"-sOutputFile=" + path(name), file(text, "document.ps")});
    const ProgramResult result = run_program(command);
    EXPECT_EQ(result.exit_status, 0) << result.errors << result.output;
    return path(name);
  }

  [[nodiscard]] static std::string content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
};

struct PictureCase {
  const char* name;
  Colors colors;
  int space;  ///< cupsColorSpace
  int bits;
  std::vector<std::string> reference;  ///< another of its devices, which makes the same pixels
  const char* picture;                 ///< our picture's name
  std::string start;                   ///< how it starts
  std::size_t size;                    ///< of its pixels in bytes
};

void PrintTo(const PictureCase& picture, std::ostream* out) {
  *out << picture.name;
}

class Picture : public Ghostscript, public testing::WithParamInterface<PictureCase> {};

TEST_P(Picture, HasThePixelsOfTheSamePageFromAnotherDevice) {
  const auto& [name, colors, space, bits, reference, picture, start, size] = GetParam();
  render(colors, reference, "reference%d");
  for (const char* order : {"0", "1", "2"}) {
    const std::string stream =
        render(colors,
               {"-sDEVICE=cups", "-dcupsColorSpace=" + std::to_string(space),
                "-dcupsBitsPerColor=" + std::to_string(bits), "-dcupsColorOrder=" + std::string(order)},
               "stream");
    const ProgramResult result = run({"--quiet", "--pnm", path(picture), stream});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* page : {"1", "2"}) {
      std::string page_picture = picture;
      page_picture.replace(page_picture.find("%P"), 2, page);
      const std::string ours = content(path(page_picture));
      const std::string theirs = content(path("reference" + std::string(page)));
      EXPECT_EQ(ours.substr(0, start.size()), start);
      EXPECT_EQ(ours.size(), start.size() + size);
      ASSERT_GE(theirs.size(), size);
      EXPECT_TRUE(ours.substr(start.size()) == theirs.substr(theirs.size() - size))
          << "order " << order << ", page " << page;
    }
  }
}

constexpr std::size_t PIXELS = 71UL * 90;
const std::string PPM = "P6\n71 90\n255\n";
const std::string PGM = "P5\n71 90\n255\n";
const std::string PBM = "P4\n71 90\n";
const std::string CMYK_PAM = "P7\nWIDTH 71\nHEIGHT 90\nDEPTH 4\nMAXVAL 255\nTUPLTYPE CMYK\nENDHDR\n";
const std::vector<std::string> PPM_DEVICE = {"-sDEVICE=ppmraw"};
const std::vector<std::string> PGM_DEVICE = {"-sDEVICE=pgmraw"};
const std::vector<std::string> PBM_DEVICE = {"-sDEVICE=pbmraw"};
const std::vector<std::string> CMYK_DEVICE = {"-sDEVICE=pamcmyk32"};
/// Without colour profiles, CMYK becomes RGB as the PostScript language defines it.
const std::vector<std::string> PPM_WITHOUT_PROFILES = {"-sDEVICE=ppmraw", "-dUseFastColor=true"};

INSTANTIATE_TEST_SUITE_P(
    Ghostscript, Picture,
    testing::Values(
        PictureCase{"Luminance", GRAY, CUPS_CSPACE_W, 8, PGM_DEVICE, "%P.pgm", PGM, PIXELS},
        PictureCase{"SLuminance", GRAY, CUPS_CSPACE_SW, 8, PGM_DEVICE, "%P.pgm", PGM, PIXELS},
        PictureCase{"Black", GRAY, CUPS_CSPACE_K, 8, PGM_DEVICE, "%P.pgm", PGM, PIXELS},
        PictureCase{"White", GRAY, CUPS_CSPACE_WHITE, 8, PGM_DEVICE, "%P.pgm", PGM, PIXELS},
        PictureCase{"Gold", GRAY, CUPS_CSPACE_GOLD, 8, PGM_DEVICE, "%P.pgm", PGM, PIXELS},
        PictureCase{"Silver", GRAY, CUPS_CSPACE_SILVER, 8, PGM_DEVICE, "%P.pgm", PGM, PIXELS},
        PictureCase{"LuminanceOf1Bit", RGB, CUPS_CSPACE_W, 1, PBM_DEVICE, "%P.pbm", PBM, 90UL * 9},
        PictureCase{"BlackOf1Bit", RGB, CUPS_CSPACE_K, 1, PBM_DEVICE, "%P.pbm", PBM, 90UL * 9},
        PictureCase{"LuminanceOf16Bits",
                    GRAY,
                    CUPS_CSPACE_W,
                    16,
                    {"-sDEVICE=bit", "-dGrayValues=65536"},
                    "%P.pgm",
                    "P5\n71 90\n65535\n",
                    PIXELS * 2},
        PictureCase{"Rgb", RGB, CUPS_CSPACE_RGB, 8, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"SRgb", RGB, CUPS_CSPACE_SRGB, 8, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"AdobeRgb", RGB, CUPS_CSPACE_ADOBERGB, 8, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"Cmy", RGB, CUPS_CSPACE_CMY, 8, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"Ymc", RGB, CUPS_CSPACE_YMC, 8, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"RgbOf1Bit", PURE_RGB, CUPS_CSPACE_RGB, 1, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"CmyOf1Bit", PURE_RGB, CUPS_CSPACE_CMY, 1, PPM_DEVICE, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"RgbOf16Bits",
                    RGB,
                    CUPS_CSPACE_SRGB,
                    16,
                    {"-sDEVICE=bitrgb", "-dRedValues=65536", "-dGreenValues=65536", "-dBlueValues=65536"},
                    "%P.ppm",
                    "P6\n71 90\n65535\n",
                    PIXELS * 6},
        PictureCase{"Cmyk", CMYK, CUPS_CSPACE_CMYK, 8, PPM_WITHOUT_PROFILES, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"Ymck", CMYK, CUPS_CSPACE_YMCK, 8, PPM_WITHOUT_PROFILES, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"Kcmy", CMYK, CUPS_CSPACE_KCMY, 8, PPM_WITHOUT_PROFILES, "%P.ppm", PPM, PIXELS * 3},
        PictureCase{"CmykOf1Bit", PURE_CMYK, CUPS_CSPACE_CMYK, 1, PPM_WITHOUT_PROFILES, "%P.ppm", PPM,
                    PIXELS * 3},
        PictureCase{"InksOfCmyk", CMYK, CUPS_CSPACE_CMYK, 8, CMYK_DEVICE, "%P.pam", CMYK_PAM, PIXELS * 4},
        PictureCase{"InksOfYmck", CMYK, CUPS_CSPACE_YMCK, 8, CMYK_DEVICE, "%P.pam", CMYK_PAM, PIXELS * 4},
        PictureCase{"InksOfKcmy", CMYK, CUPS_CSPACE_KCMY, 8, CMYK_DEVICE, "%P.pam", CMYK_PAM, PIXELS * 4},
        PictureCase{"InksOfCmykOf1Bit", PURE_CMYK, CUPS_CSPACE_CMYK, 1, CMYK_DEVICE, "%P.pam", CMYK_PAM,
                    PIXELS * 4},
        PictureCase{"InksOfCmykOf16Bits",
                    CMYK,
                    CUPS_CSPACE_CMYK,
                    16,
                    {"-sDEVICE=bitcmyk", "-dGrayValues=65536"},
                    "%P.pam",
                    "P7\nWIDTH 71\nHEIGHT 90\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE CMYK\nENDHDR\n",
                    PIXELS * 8}),
    [](const auto& the_case) { return the_case.param.name; });

/// These devices write streams of two versions and byte orders.
class RasterDevice : public Ghostscript, public testing::WithParamInterface<const char*> {
 protected:
  [[nodiscard]] std::string render_colors(int bits) const {
    return render(RGB,
                  {"-sDEVICE=" + std::string(GetParam()), "-dcupsColorSpace=19", "-dcupsColorOrder=0",
                   "-dcupsBitsPerColor=" + std::to_string(bits)},
                  "stream");
  }
};

TEST_P(RasterDevice, BandsOfItsPagesAreTheirPixels) {
  std::string expected;
  render(RGB, PPM_DEVICE, "reference%d");
  for (const char* page : {"reference1", "reference2"}) {
    const std::string picture = content(path(page));
    expected += picture.substr(picture.size() - PIXELS * 3);
  }
  const ProgramResult result =
      run({"--quiet", "--bands", "64", "--capture", path("%C_%Wx%H_%B.raw"), render_colors(8)});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_TRUE(joined_bands() == expected);
}

TEST_P(RasterDevice, PicturesOf16BitsHaveTheBytesInThePicturesOrder) {
  render(RGB, {"-sDEVICE=bitrgb", "-dRedValues=65536", "-dGreenValues=65536", "-dBlueValues=65536"},
         "reference%d");
  EXPECT_EQ(run({"--quiet", "--page", "2", "--pnm", path("page.ppm"), render_colors(16)}).exit_status, 0);
  const std::string picture = content(path("page.ppm"));
  EXPECT_TRUE(picture.substr(picture.size() - PIXELS * 6) == content(path("reference2")));
}

INSTANTIATE_TEST_SUITE_P(Ghostscript, RasterDevice, testing::Values("cups", "pwgraster"),
                         [](const auto& the_case) { return std::string(the_case.param); });

TEST_F(Ghostscript, TheHeaderOfARenderedPageIsDumped) {
  const ProgramResult result =
      run({"--page", "2", render(RGB, {"-sDEVICE=cups", "-dcupsColorSpace=19"}, "stream")});
  EXPECT_THAT(result.output, testing::HasSubstr("__PageSize=(71,90)        "));
  EXPECT_THAT(result.output, testing::HasSubstr("__HWResolution=(72,72)        "));
  EXPECT_THAT(result.output, testing::HasSubstr("__cupsColorSpace=CUPS_CSPACE_SRGB        "));
}

}  // namespace
