// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/raster/raster_streams.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::Pair;

const std::vector<Page> PAGE = {make_page(10, 20)};

std::string uncompressed(const std::vector<Page>& pages) {
  return write_stream(pages, CUPS_RASTER_WRITE);
}

/// Expects the status and the one line on standard error.
void expect(const ProgramResult& result, int status, const std::string& line) {
  EXPECT_EQ(result.exit_status, status);
  EXPECT_EQ(result.errors, "brenvellis-rasterdump: " + line + "\n");
}

TEST_F(Rasterdump, AFileThatDoesNotExistIsNamed) {
  expect(run({path("none")}), INPUT, path("none") + ": No such file or directory");
}

TEST_F(Rasterdump, AFolderIsNotAStream) {
  expect(run({path("")}), INPUT, path("") + ": cannot read: Is a directory");
}

TEST_F(Rasterdump, AnEmptyFileIsNotAStream) {
  const std::string name = file("");
  expect(run({name}), INPUT, name + ": the stream is empty");
}

TEST_F(Rasterdump, APictureIsNotARasterStream) {
  const std::string name = file("P6\n10 10\n255\n" + std::string(300, 'x'));
  expect(run({name}), INPUT, name + ": not a CUPS raster stream");
}

TEST_F(Rasterdump, AStreamOfTwoBytesIsNotARasterStream) {
  expect(run({"-"}, "3S"), INPUT, "standard input: not a CUPS raster stream");
}

TEST_F(Rasterdump, AStreamWithoutPagesIsReported) {
  expect(run({}, uncompressed({})), INPUT, "standard input: the stream has no pages");
}

TEST_F(Rasterdump, AMissingPageIsAnError) {
  expect(run({"--page", "3"}, uncompressed(TWO_PAGES)), INPUT,
         "standard input: page 3 does not exist (the last page is 2)");
}

TEST_F(Rasterdump, TheFirstPageOfARangeThatIsNotThereIsNamed) {
  const std::string stream = uncompressed(TWO_PAGES);
  expect(run({"--quiet", "--page", "7,2-5", "-"}, stream), INPUT,
         "standard input: page 3 does not exist (the last page is 2)");
  expect(run({"--quiet", "--page", "1,9-", "-"}, stream), INPUT,
         "standard input: page 9 does not exist (the last page is 2)");
}

/// The imaging library buffers each format differently.
class Broken : public Rasterdump, public testing::WithParamInterface<cups_mode_t> {
 protected:
  /// The stream of both pages up to `bytes` behind the first page.
  static std::string cut_behind_first_page(std::size_t bytes) {
    return write_stream(TWO_PAGES, GetParam()).substr(0, first_page_size() + bytes);
  }
  static std::size_t first_page_size() { return write_stream({TWO_PAGES[0]}, GetParam()).size(); }
};

TEST_P(Broken, AtTheEndOfAPageIsComplete) {
  // This format begins with the number of pages, but the imaging library leaves checking it to the caller.
  EXPECT_EQ(run({"--quiet"}, cut_behind_first_page(0)).exit_status, 0);
}

TEST_P(Broken, InAHeaderIsReported) {
  for (const std::size_t bytes : {1U, 15U, 16U, 31U}) {
    expect(run({"--quiet"}, cut_behind_first_page(bytes)), INPUT,
           "page 2: unexpected end of the stream in the page header");
  }
}

TEST_P(Broken, InThePixelsWithoutCaptureReportsThePosition) {
  const std::string stream = write_stream(PAGE, GetParam());
  expect(run({"--quiet"}, stream.substr(0, stream.size() - 1)), INPUT,
         "page 1, after 19 of 20 lines: unexpected end of the stream");
}

TEST_P(Broken, InThePixelsKeepsAndNamesTheReceivedLines) {
  const std::string stream = write_stream(PAGE, GetParam());
  const ProgramResult result =
      run({"--quiet", "--bands", "8", "--capture", path("%C_%H.raw")}, stream.substr(0, stream.size() - 1));
  expect(result, INPUT,
         "page 1, after 19 of 20 lines: unexpected end of the stream; these lines were saved, the last of "
         "them in " +
             path("0002_4.raw"));
  EXPECT_EQ(joined_bands(), PAGE[0].pixels.substr(0, 19 * 30));
}

INSTANTIATE_TEST_SUITE_P(Errors, Broken,
                         testing::Values(CUPS_RASTER_WRITE, CUPS_RASTER_WRITE_COMPRESSED,
                                         CUPS_RASTER_WRITE_PWG, CUPS_RASTER_WRITE_APPLE));

TEST_F(Rasterdump, AStreamThatEndsBetweenTwoBandsKeepsTheFirst) {
  const ProgramResult result = run({"--quiet", "--bands", "8", "--capture", path("%C_%H.raw")},
                                   uncompressed(PAGE).substr(0, 4 + sizeof(cups_page_header2_t) + 8 * 30));
  expect(result, INPUT,
         "page 1, after 8 of 20 lines: unexpected end of the stream; these lines were saved, the last of "
         "them in " +
             path("0000_8.raw"));
}

TEST_F(Rasterdump, AStreamThatEndsInTheFirstLineKeepsNothing) {
  const ProgramResult result = run({"--quiet", "--bands", "8", "--capture", path("%C_%H.raw")},
                                   uncompressed(PAGE).substr(0, 4 + sizeof(cups_page_header2_t) + 29));
  expect(result, INPUT, "page 1, after 0 of 20 lines: unexpected end of the stream; nothing was saved");
  EXPECT_THAT(bands(), IsEmpty());
}

struct HeaderCase {
  const char* name;
  void (*spoil)(cups_page_header2_t& header);
};

class InvalidHeader : public Rasterdump, public testing::WithParamInterface<HeaderCase> {};

TEST_P(InvalidHeader, IsAnErrorAtItsPage) {
  std::string stream = uncompressed(TWO_PAGES);
  cups_page_header2_t header = TWO_PAGES[1].header;
  GetParam().spoil(header);
  const std::size_t place = 4 + sizeof header + TWO_PAGES[0].pixels.size();
  std::memcpy(stream.data() + place, &header, sizeof header);
  expect(run({"--quiet", "--bands", "8", "--capture", path("%C.raw")}, stream), INPUT,
         "page 2: invalid page header (its sizes are 0 or inconsistent)");
}

INSTANTIATE_TEST_SUITE_P(
    Errors, InvalidHeader,
    testing::Values(HeaderCase{"NoLines", [](cups_page_header2_t& header) { header.cupsHeight = 0; }},
                    HeaderCase{"NoBytes", [](cups_page_header2_t& header) { header.cupsBytesPerLine = 0; }},
                    HeaderCase{"NoBits", [](cups_page_header2_t& header) { header.cupsBitsPerPixel = 0; }},
                    HeaderCase{"PartOfAPixel",
                               [](cups_page_header2_t& header) { header.cupsBytesPerLine = 40; }},
                    HeaderCase{"AllBits",
                               [](cups_page_header2_t& header) {
                                 header.cupsBytesPerLine = header.cupsHeight = 0xffffffff;
                               }}),
    [](const auto& the_case) { return the_case.param.name; });

TEST_F(Rasterdump, APageWithoutWidthHasNoBands) {
  std::vector<Page> pages = PAGE;
  pages[0].header.cupsWidth = 0;
  expect(run({"--quiet", "--bands", "8", "--capture", path("%C_%B.raw")}, write_first_version(pages)), INPUT,
         "page 1: cannot save bands: invalid cupsWidth=0");
}

TEST_F(Rasterdump, APageWithoutWidthCanBeDumped) {
  std::vector<Page> pages = PAGE;
  pages[0].header.cupsWidth = 0;
  const ProgramResult result = run({}, write_first_version(pages));
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, headers_of(pages, "CUPS raster version 1, uncompressed, little-endian"));
}

TEST_F(Rasterdump, ABandLargerThanMemoryIsReadToItsEnd) {
  std::vector<Page> pages = PAGE;
  pages[0].header.cupsHeight = 4294967295U;
  pages[0].header.cupsBytesPerLine = 2147483646;
  const ProgramResult result =
      run({"--quiet", "--bands", "4294967295", "--capture", path("%C.raw")}, write_first_version(pages));
  expect(result, INPUT,
         "page 1, after 0 of 4294967295 lines: unexpected end of the stream; nothing was saved");
  EXPECT_THAT(bands(), IsEmpty());
}

TEST_F(Rasterdump, SpoiledStreamsNeverCrash) {
  std::mt19937 random(1);
  for (const cups_mode_t mode :
       {CUPS_RASTER_WRITE, CUPS_RASTER_WRITE_COMPRESSED, CUPS_RASTER_WRITE_PWG, CUPS_RASTER_WRITE_APPLE}) {
    const std::string whole = write_stream(PAGE, mode);
    for (int i = 0; i < 15; ++i) {
      std::string spoiled = whole;
      for (int change = 0; change < 4; ++change) {
        // In the header's numbers and in the pixels, but not in its strings, which are harmless.
        const std::size_t in_header = 4 + random() % 420;
        const std::size_t in_pixels = whole.size() - 1 - random() % 200;
        spoiled[std::min(random() % 2 == 0 ? in_header : in_pixels, whole.size() - 1)] =
            static_cast<char>(random() % 3 == 0 ? 0xff : random() % 256);
      }
      for (const std::vector<std::string>& arguments :
           {std::vector<std::string>{"--all", "--bands", "3", "--capture", path("%P_%C")},
            {"--json", "--pnm", path("%P_%C")}}) {
        EXPECT_THAT(run(arguments, spoiled).exit_status, AnyOf(Eq(0), Eq(1)))
            << "mode " << mode << " round " << i;
      }
    }
  }
}

TEST_F(Rasterdump, AFolderForTheBandsThatDoesNotExistIsNamed) {
  expect(run({"--quiet", "--bands", "8", "--capture", path("no/%C.raw")}, uncompressed(PAGE)), OUTPUT,
         "page 1: cannot save " + path("no/0000.raw") + ": No such file or directory");
}

/// LittleSpace limits the size of files, as a nearly full disk does. Started programs inherit the limit.
class LittleSpace {
 public:
  LittleSpace() {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {100, before_.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~LittleSpace() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, SIG_DFL);
  }
  LittleSpace(const LittleSpace&) = delete;
  LittleSpace& operator=(const LittleSpace&) = delete;

 private:
  rlimit before_ = {};
};

TEST_F(Rasterdump, ABandThatFindsNoSpaceIsNamed) {
  const std::string stream = uncompressed({make_page(1000, 8)});
  ProgramResult result;
  {
    const LittleSpace little_space;
    result = run({"--quiet", "--bands", "8", "--capture", path("%C.raw")}, stream);
  }
  expect(result, OUTPUT, "page 1: cannot save " + path("0000.raw") + ": File too large");
}

TEST_F(Rasterdump, ASmallBandThatNeverReachesTheDiskIsNoticed) {
  const std::string stream = uncompressed(PAGE);
  ProgramResult result;
  {
    const LittleSpace little_space;
    result = run({"--quiet", "--bands", "8", "--capture", path("%C.raw")}, stream);
  }
  expect(result, OUTPUT, "page 1: cannot save " + path("0000.raw") + ": File too large");
}

TEST_F(Rasterdump, ABandNeverReplacesTheInput) {
  const std::string stream = uncompressed(PAGE);
  const std::string input = file(stream);
  ASSERT_EQ(link(input.c_str(), path("other.raw").c_str()), 0);
  expect(run({"--quiet", "--page", "1", "--bands", "20", "--capture", path("other.raw"), input}), OUTPUT,
         "page 1: cannot save " + path("other.raw") + ": it is the input");
  EXPECT_THAT(bands(), ElementsAre(Pair("other.raw", stream)));
}

TEST_F(Rasterdump, ABandNeverReplacesTheFileBehindStandardInput) {
  const std::string stream = uncompressed(PAGE);
  const std::string name = file(stream, "stream.raw");
  const int input = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  ChildProcess child(
      {{RASTERDUMP_PROGRAM, "--quiet", "--page", "1", "--bands", "20", "--capture", name}, {{0, input}}, {}});
  close(input);
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), OUTPUT);
  EXPECT_THAT(bands(), ElementsAre(Pair("stream.raw", stream)));
}

TEST_F(Rasterdump, ABandGoesToNoPipe) {
  const std::string pipe = path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  // The reader keeps open() from blocking.
  const int reader = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  expect(run({"--quiet", "--page", "1", "--bands", "20", "--capture", pipe}, uncompressed(PAGE)), OUTPUT,
         "page 1: cannot save " + pipe + ": it is not a regular file");
  struct stat after = {};
  fstat(reader, &after);
  close(reader);
  EXPECT_EQ(after.st_mode & 07777U, 0600U);
}

TEST_F(Rasterdump, TheBandsBeforeAnOutputErrorAreKept) {
  // A folder has the second band's name.
  ASSERT_EQ(mkdir(path("0001").c_str(), 0755), 0);
  const ProgramResult result = run({"--quiet", "--bands", "8", "--capture", path("%C")}, uncompressed(PAGE));
  expect(result, OUTPUT, "page 1: cannot save " + path("0001") + ": Is a directory");
  EXPECT_EQ(result.output, "saved " + path("0000") + ": page 1, lines 0 to 7, 240 bytes\n");
}

struct LostCase {
  const char* name;
  int descriptor;
  std::vector<std::string> arguments;
  std::string errors;       ///< the message, if it is not lost too
  std::size_t missing = 0;  ///< bytes at the end of the stream
};

void PrintTo(const LostCase& lost, std::ostream* out) {
  *out << lost.name;
}

class LostOutput : public Rasterdump, public testing::WithParamInterface<LostCase> {
 protected:
  [[nodiscard]] std::string content(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
};

TEST_P(LostOutput, IsAnError) {
  const auto& [name, descriptor, arguments, errors, missing] = GetParam();
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  const int other = open(path("other").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const std::string stream = uncompressed(PAGE);
  std::vector<std::string> command = {RASTERDUMP_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command.insert(command.end(), {"--bands", "20", "--capture", path("%C.raw"),
                                 file(stream.substr(0, stream.size() - missing))});
  ChildProcess child(
      {command, {{descriptor, full}, {STDOUT_FILENO + STDERR_FILENO - descriptor, other}}, {}});
  close(full);
  close(other);
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), missing == 0 ? OUTPUT : INPUT);
  if (descriptor == STDOUT_FILENO) {
    EXPECT_THAT(content("other"), testing::EndsWith(errors));
  }
}

const std::string NOT_WRITTEN = "brenvellis-rasterdump: cannot write to standard output";
const std::string NO_SPACE = NOT_WRITTEN + ": No space left on device\n";

INSTANTIATE_TEST_SUITE_P(
    Errors, LostOutput,
    testing::Values(LostCase{"Headers", STDOUT_FILENO, {}, NOT_WRITTEN + "\n"},
                    LostCase{"Json", STDOUT_FILENO, {"--json"}, NO_SPACE},
                    // The message about the stream comes after an attempt to write the JSON.
                    LostCase{"JsonOfABrokenStream", STDOUT_FILENO, {"--json"}, "\n" + NOT_WRITTEN + "\n", 1},
                    LostCase{"LinesForTheBands", STDOUT_FILENO, {"--quiet"}, NO_SPACE},
                    LostCase{"LinesForTheBandsBesideJson", STDERR_FILENO, {"--json"}, ""},
                    LostCase{"MessageAboutABrokenStream", STDERR_FILENO, {"--quiet"}, "", 1},
                    LostCase{"Help", STDOUT_FILENO, {"--help"}, NO_SPACE}),
    [](const auto& the_case) { return the_case.param.name; });

TEST_F(Rasterdump, AMessageAfterAHeaderGoesToStandardError) {
  const std::string stream = uncompressed(PAGE);
  const ProgramResult result = run({}, stream.substr(0, stream.size() - 1));
  expect(result, INPUT, "page 1, after 19 of 20 lines: unexpected end of the stream");
  EXPECT_EQ(result.output, headers_of(PAGE));
}

TEST_F(LostOutput, MessagesFollowTheHeadersBeforeThem) {
  struct Case {
    std::vector<std::string> arguments;
    std::string stream;
    std::string message;
  };
  const std::string whole = uncompressed(TWO_PAGES);
  const std::string cut = uncompressed(PAGE).substr(0, uncompressed(PAGE).size() - 1);
  for (const auto& [arguments, stream, message] :
       {Case{{"--page", "1,3"}, whole, "standard input: page 3 does not exist (the last page is 2)"},
        Case{{}, cut, "page 1, after 19 of 20 lines: unexpected end of the stream"},
        Case{{"--pnm", path("no/x")},
             whole,
             "page 1: cannot save " + path("no/x") + ": No such file or directory"}}) {
    std::vector<std::string> command = {RASTERDUMP_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const int input = open(file(stream).c_str(), O_RDONLY | O_CLOEXEC);
    const int both = open(path("both").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ChildProcess child({command, {{0, input}, {1, both}, {2, both}}, {}});
    close(input);
    close(both);
    EXPECT_GT(child.exit_status(std::chrono::seconds(30)), 0);
    EXPECT_EQ(content("both"), headers_of(PAGE) + "brenvellis-rasterdump: " + message + "\n");
  }
}

TEST_F(Rasterdump, ClosedOutputsDoNotBecomeABand) {
  // Enough bands to fill the buffer of the lines about them.
  const std::vector<Page> pages = {make_page(10, 300)};
  const std::string name = file(uncompressed(pages));
  // Like a shell's >&- and 2>&-.
  ChildProcess child({{"/bin/sh", "-c", "exec \"$0\" --quiet --bands 1 --capture \"$1\" <\"$2\" >&- 2>&-",
                       RASTERDUMP_PROGRAM, path("%C.raw"), name},
                      {},
                      {}});
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), OUTPUT);
  EXPECT_EQ(joined_bands(), pages[0].pixels);
}

TEST_F(Rasterdump, AClosedStandardInputCannotBeRead) {
  expect(run_program({"/bin/sh", "-c", "exec \"$0\" <&-", RASTERDUMP_PROGRAM}), INPUT,
         "standard input: cannot read: Bad file descriptor");
}

TEST_F(Rasterdump, AFullStandardErrorIsNotAnErrorIfNothingIsWritten) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ChildProcess child({{RASTERDUMP_PROGRAM, "--quiet", file(uncompressed(PAGE))}, {{2, full}}, {}});
  close(full);
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), 0);
}

TEST_F(Rasterdump, ATemplateThatMakesTooLongANameIsNotCut) {
  std::string templ = path("");
  templ.resize(4092, 'x');
  // The template fits, its expansion does not.
  expect(run({"--quiet", "--bands", "8", "--capture", templ + "%C"}, uncompressed(PAGE)), OUTPUT,
         "page 1: cannot save " + templ + "0000: File name too long");
}

TEST_F(Rasterdump, TheLongestPossibleNameIsSaved) {
  std::string templ = path("");
  templ.resize(4087, '/');
  EXPECT_EQ(run({"--quiet", "--bands", "20", "--capture", templ + "%C.raw"}, uncompressed(PAGE)).exit_status,
            0);
  EXPECT_THAT(bands(), ElementsAre(Pair("0000.raw", PAGE[0].pixels)));
}

TEST_F(Rasterdump, OneNameForTheBandsOfAPageIsRefusedBeforeOneIsSaved) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--page", "1", "--bands", "19"}, {"--bands", "19"}}) {
    std::vector<std::string> all = arguments;
    all.insert(all.end(), {"--quiet", "--capture", path(arguments.size() == 2 ? "%P.raw" : "band.raw")});
    const std::string name = all.back();
    expect(run(all, uncompressed(PAGE)), USAGE,
           "page 1 has several bands, but '" + name + "' names only one file (add %C)");
    EXPECT_THAT(bands(), IsEmpty());
  }
}

TEST_F(Rasterdump, OneNameForTheBandsOfPlanesIsRefused) {
  for (const Page& planar : {make_page(24, 10, 8, 2, CUPS_ORDER_PLANAR, CUPS_CSPACE_DEVICE2),
                             make_page(24, 10, 8, 3, CUPS_ORDER_PLANAR, CUPS_CSPACE_RGB)}) {
    expect(run({"--quiet", "--bands", "10", "--capture", path("%P.raw")}, uncompressed({planar})), USAGE,
           "page 1 has several bands, but '" + path("%P.raw") + "' names only one file (add %C)");
    EXPECT_THAT(bands(), IsEmpty());
  }
}

TEST_F(Rasterdump, OneNameForOneBandIsEnough) {
  EXPECT_EQ(run({"--quiet", "--page", "1", "--bands", "20", "--capture", path("x.raw")}, uncompressed(PAGE))
                .exit_status,
            0);
  EXPECT_THAT(bands(), ElementsAre(Pair("x.raw", PAGE[0].pixels)));
}

}  // namespace
