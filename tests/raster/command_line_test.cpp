// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/raster/raster_streams.h"

namespace {

using testing::HasSubstr;

struct UsageCase {
  const char* name;
  std::vector<std::string> arguments;
  std::string message;
};

void PrintTo(const UsageCase& usage, std::ostream* out) {
  *out << usage.name;
}

std::string invalid_rows(const std::string& value) {
  return "--bands: invalid value '" + value + "' (expected 1-4294967295)";
}

std::string invalid_pages(const std::string& value) {
  return "--page: invalid value '" + value + "' (expected page numbers from 1 and ranges, such as 2-4,7)";
}

std::string no_name(const std::string& option) {
  return "--" + option + ": invalid value '' (expected a file name)";
}

std::string one_file(const std::string& name) {
  return "--capture: '" + name + "' names only one file (add %C or %P)";
}

class WrongUsage : public Rasterdump, public testing::WithParamInterface<UsageCase> {};

TEST_P(WrongUsage, ExitsWithStatus2AndSaysWhy) {
  const ProgramResult result = run(GetParam().arguments);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.errors,
            "brenvellis-rasterdump: " + GetParam().message + "\nRun with --help for more information.\n");
  EXPECT_EQ(result.output, "");
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, WrongUsage,
    testing::Values(
        UsageCase{"BandsWithoutCapture", {"--bands", "8"}, "--bands requires --capture"},
        UsageCase{"CaptureWithoutBands", {"--capture", "a"}, "--capture requires --bands"},
        UsageCase{"NoRows", {"--bands", "0", "--capture", "a"}, invalid_rows("0")},
        UsageCase{"NegativeRows", {"--bands=-1", "--capture", "a"}, invalid_rows("-1")},
        UsageCase{"RowsThatAreNoNumber", {"--bands", "x", "--capture", "a"}, invalid_rows("x")},
        UsageCase{"TooManyRows", {"--bands", "4294967296", "--capture", "a"}, invalid_rows("4294967296")},
        UsageCase{"NoRowsBehindTheSign", {"--capture", "a", "--bands=", "8"}, invalid_rows("")},
        UsageCase{"AnEmptyTemplate", {"--bands", "8", "--capture", ""}, no_name("capture")},
        UsageCase{"NoTemplate", {"--bands", "8", "--capture=", "other.ras"}, no_name("capture")},
        UsageCase{"NoNameForPictures", {"--pnm", ""}, no_name("pnm")},
        UsageCase{"NoNameForPicturesBehindTheSign", {"--pnm=", "x"}, no_name("pnm")},
        UsageCase{"NoPageBehindTheSign", {"--page=", "1"}, invalid_pages("")},
        UsageCase{"NoPage", {"--page", ""}, invalid_pages("")},
        UsageCase{"PageZero", {"--page", "0"}, invalid_pages("0")},
        UsageCase{"PageWithoutNumber", {"--page"}, "option '--page' requires an argument"},
        UsageCase{"AWordForAPage", {"--page", "all"}, invalid_pages("all")},
        UsageCase{"PagesBackwards", {"--page", "4-2"}, invalid_pages("4-2")},
        UsageCase{"ARangeWithoutItsStart", {"--page", "-4"}, invalid_pages("-4")},
        UsageCase{"ARangeThatIsNoNumber", {"--page", "2-x"}, invalid_pages("2-x")},
        UsageCase{"ARangeToPageZero", {"--page", "2-0"}, invalid_pages("2-0")},
        UsageCase{"ARangeOfThree", {"--page", "2-3-4"}, invalid_pages("2-3-4")},
        UsageCase{"NothingBehindAComma", {"--page", "2,"}, invalid_pages("2,")},
        UsageCase{"APageOf33Bits", {"--page", "4294967297"}, invalid_pages("4294967297")},
        UsageCase{"OneNameForAllBands", {"--bands", "8", "--capture", "a"}, one_file("a")},
        UsageCase{"OneNameForTheBandsOfTwoPages",
                  {"--page", "1-2", "--bands", "8", "--capture", "a"},
                  one_file("a")},
        UsageCase{"APlaceholderThatIsNotOne", {"--bands", "8", "--capture", "a%%C"}, one_file("a%%C")},
        UsageCase{"PicturesAndBands",
                  {"--pnm", "%P", "--bands", "8", "--capture", "%C"},
                  "--pnm excludes --capture"},
        UsageCase{"QuietWithAll", {"--quiet", "--all"}, "--quiet excludes --all"},
        UsageCase{"QuietWithJson", {"--quiet", "--json"}, "--quiet excludes --json"},
        UsageCase{"AnUnknownOption", {"--verbose"}, "unrecognized option '--verbose'"},
        UsageCase{"TwoFiles", {"a", "b"}, "unexpected argument 'b'"}),
    [](const auto& the_case) { return the_case.param.name; });

TEST_F(Rasterdump, AFileMayBeNamedLikeAnOptionWithoutValue) {
  EXPECT_EQ(run({"--", "--capture="}).errors,
            "brenvellis-rasterdump: --capture=: No such file or directory\n");
}

TEST_F(Rasterdump, HelpDescribesEveryOptionAndExitStatus) {
  const ProgramResult result = run({"--help"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, R"(Usage: brenvellis-rasterdump [OPTION...] [FILE]
Shows the page headers of a CUPS raster stream on standard output, and saves its
pages as pictures or raw bands. Reads standard input if FILE is - or missing.

Options:
  --all                 Show all fields of a version 2 header
  --json                Show one JSON object per page, with all fields
  --quiet               Do not show the headers
  --page PAGES          Only these pages, such as 2-4,7
  --pnm TEMPLATE        Save each page as a PBM, PGM or PPM picture, or as a PAM
                        if the name ends in .pam; TEMPLATE may contain %P for
                        the page, %W and %H for the size, %T for the time
  --bands ROWS          Cut each page into bands of ROWS lines
  --capture TEMPLATE    Save each band, without a header, to the file of this
                        name; also %B for bits per pixel, %C for a running
                        number, %L for the plane
  --completion SHELL    Print the completion script of bash, zsh or fish
  --help                Print this summary
  --version             Print the version

Exit status:
  0  done
  1  the input is invalid or cannot be read
  2  usage error
  3  an output cannot be written
)");
}

TEST_F(Rasterdump, VersionIsThePackagesVersion) {
  const ProgramResult result = run({"--version"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, "brenvellis-rasterdump " BRENVELLIS_VERSION "\n");
}

/// Returns a page whose strings all begin and end with a terminal control byte.
Page page_with_control_bytes() {
  Page page = make_page(10, 2);
  cups_page_header2_t& header = page.header;
  for (char* string :
       {header.MediaClass, header.MediaColor, header.MediaType, header.OutputType, header.cupsString[0],
        header.cupsString[15], header.cupsMarkerType, header.cupsRenderingIntent, header.cupsPageSizeName}) {
    std::memset(string, '~', 64);
    string[0] = '\033';
    string[1] = '\x7f';
    string[2] = ' ';
    string[63] = '\x9b';
  }
  return page;
}

TEST_F(Rasterdump, ATerminalGetsNoControlBytesOfTheStream) {
  int terminal = -1;
  int program_end = -1;
  ASSERT_EQ(openpty(&terminal, &program_end, nullptr, nullptr, nullptr), 0);
  const std::string stream = file(write_stream({page_with_control_bytes()}, CUPS_RASTER_WRITE));
  ChildProcess child({{RASTERDUMP_PROGRAM, "--all", stream}, {{1, program_end}}, {}});
  close(program_end);

  std::string shown;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = read(terminal, buffer.data(), buffer.size())) > 0) {
    shown.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(terminal);
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), 0);
  const std::string string = "=?? " + std::string(60, '~') + "?  ";
  for (const char* name :
       {"__MediaClass", "__MediaColor", "__MediaType", "__OutputType", "__cupsString[0]", "__cupsString[15]",
        "__cupsMarkerType", "__cupsRenderingIntent", "__cupsPageSizeName"}) {
    EXPECT_THAT(shown, HasSubstr(name + string));
  }
}

TEST_F(Rasterdump, AFileGetsAHeadersStringsUnchanged) {
  const std::vector<Page> pages = {page_with_control_bytes()};
  EXPECT_EQ(run({}, write_stream(pages, CUPS_RASTER_WRITE)).output, headers_of(pages));
}

struct ProgressCase {
  const char* name;
  std::vector<std::string> arguments;
  const char* where;  ///< the end of the message about a stream that ends early
};

void PrintTo(const ProgressCase& progress, std::ostream* out) {
  *out << progress.name;
}

class Progress : public Rasterdump, public testing::WithParamInterface<ProgressCase> {};

TEST_P(Progress, OfALongStreamIsShownOnATerminalAndErasedBeforeAMessage) {
  int terminal = -1;
  int program_end = -1;
  ASSERT_EQ(openpty(&terminal, &program_end, nullptr, nullptr, nullptr), 0);
  fcntl(terminal, F_SETFL, O_NONBLOCK);
  std::array<int, 2> input{};
  ASSERT_EQ(pipe2(input.data(), O_CLOEXEC), 0);
  const std::string stream = write_first_version({make_page(10, 100000)});
  std::vector<std::string> arguments = {RASTERDUMP_PROGRAM, "--quiet"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  if (arguments.size() > 2) {
    arguments.push_back(path("saved%C"));
  }
  ChildProcess child({arguments, {{0, input[0]}, {2, program_end}}, {}});
  close(input[0]);
  close(program_end);

  // Lines are sent until the program has shown its progress twice.
  std::string shown;
  std::array<char, 256> buffer{};
  const auto read_shown = [&] {
    const ssize_t count = read(terminal, buffer.data(), buffer.size());
    shown.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    return count;
  };
  constexpr std::size_t HEADER = 4 + sizeof(cups_page_header_t);
  std::size_t sent = HEADER;
  ASSERT_EQ(write(input[1], stream.data(), HEADER), static_cast<ssize_t>(HEADER));
  while (sent + 30 <= stream.size() && shown.find("\033[K\rpage 1") == std::string::npos) {
    ASSERT_EQ(write(input[1], stream.data() + sent, 30), 30);
    sent += 30;
    read_shown();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  close(input[1]);
  EXPECT_EQ(child.exit_status(std::chrono::seconds(30)), 1);
  while (read_shown() > 0) {
  }
  close(terminal);
  EXPECT_THAT(shown,
              testing::MatchesRegex("(\rpage 1: line [1-9][0-9]* of 100000\033\\[K)+\r\033\\[K"
                                    "brenvellis-rasterdump: page 1, after [1-9][0-9]* of 100000 lines: "
                                    "unexpected end of the stream" +
                                    std::string(GetParam().where) + "\r\n"));
}

INSTANTIATE_TEST_SUITE_P(CommandLine, Progress,
                         testing::Values(ProgressCase{"Skipped", {}, ""},
                                         ProgressCase{"InBands",
                                                      {"--bands", "50000", "--capture"},
                                                      "; these lines were saved, the last of them in .*"},
                                         ProgressCase{"AsAPicture", {"--pnm"}, "; .* has [0-9]* lines"}),
                         [](const auto& the_case) { return the_case.param.name; });

}  // namespace
