#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "tests/raster/raster_streams.h"

namespace {

/// Two pages: a slope of colours, and a disc.
constexpr const char* DOCUMENT = R"(%!PS
<< /PageSize [144 216] >> setpagedevice
0 1 35 { /i exch def i 36 div 0.7 0.9 sethsbcolor 0 i 6 mul 144 6 rectfill } for showpage
0.8 0.2 0.1 setrgbcolor 72 108 60 0 360 arc fill showpage
)";

class Ghostscript : public Rasterdump {
 protected:
  /// Renders the document and returns the stream's path.
  [[nodiscard]] std::string render(const std::string& device) const {
    const std::string document = file(DOCUMENT, "document.ps");
    const ProgramResult result =
        run_program({GHOSTSCRIPT, "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=" + device, "-r100",
                     "-dcupsColorSpace=19", "-dcupsColorOrder=0", "-dcupsBitsPerColor=8",
                     "-sOutputFile=" + path("page." + device), document});
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    return path("page." + device);
  }

  /// The same pages as another of its devices renders them, without the headers "P6 WIDTH HEIGHT 255".
  [[nodiscard]] std::string rendered_pixels() const {
    std::ifstream in(render("ppmraw"), std::ios::binary);
    std::string pixels;
    for (std::string line; std::getline(in, line);) {
      EXPECT_EQ(line, "P6");
      std::getline(in, line);  // comment
      std::getline(in, line);
      EXPECT_EQ(line, "200 300");
      std::getline(in, line);
      std::string page(200UL * 300 * 3, '\0');
      in.read(page.data(), static_cast<std::streamsize>(page.size()));
      pixels += page;
    }
    return pixels;
  }
};

class RasterDevice : public Ghostscript, public testing::WithParamInterface<const char*> {};

TEST_P(RasterDevice, BandsOfItsPagesAreTheirPixels) {
  const ProgramResult result =
      run({"--quiet", "--bands", "64", "--capture", path("%C_%Wx%H_%B.raw"), render(GetParam())});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(joined_bands().size(), 2 * 200UL * 300 * 3);
  EXPECT_TRUE(joined_bands() == rendered_pixels());
}

INSTANTIATE_TEST_SUITE_P(Ghostscript, RasterDevice, testing::Values("cups", "pwgraster"),
                         [](const auto& the_case) { return std::string(the_case.param); });

TEST_F(Ghostscript, TheHeaderOfARenderedPageIsDumped) {
  const ProgramResult result = run({"--page", "2", render("cups")});
  EXPECT_THAT(result.errors, testing::HasSubstr("__PageSize=(144,216)        "));
  EXPECT_THAT(result.errors, testing::HasSubstr("__HWResolution=(100,100)        "));
  EXPECT_THAT(result.errors, testing::HasSubstr("__cupsColorSpace=CUPS_CSPACE_SRGB        "));
}

}  // namespace
