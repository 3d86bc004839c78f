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
};

void PrintTo(const UsageCase& usage, std::ostream* out) {
  *out << usage.name;
}

class WrongUsage : public Rasterdump, public testing::WithParamInterface<UsageCase> {};

TEST_P(WrongUsage, ExitsWithStatus2AndSaysWhy) {
  const ProgramResult result = run(GetParam().arguments);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.errors, testing::StartsWith("brenvellis-rasterdump: "));
  EXPECT_EQ(result.output, "");
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, WrongUsage,
    testing::Values(
        UsageCase{"BandsWithoutCapture", {"--bands", "8"}},
        UsageCase{"CaptureWithoutBands", {"--capture", "a"}},
        UsageCase{"NoRows", {"--bands", "0", "--capture", "a"}},
        UsageCase{"NegativeRows", {"--bands=-1", "--capture", "a"}},
        UsageCase{"RowsThatAreNoNumber", {"--bands", "x", "--capture", "a"}},
        UsageCase{"TooManyRows", {"--bands", "4294967296", "--capture", "a"}},
        UsageCase{"AnEmptyTemplate", {"--bands", "8", "--capture", ""}},
        UsageCase{"NoTemplate", {"--bands", "8", "--capture=", "other.ras"}},
        UsageCase{"NoRowsBehindTheSign", {"--capture", "a", "--bands=", "8"}},
        UsageCase{"NoPageBehindTheSign", {"--page=", "1"}}, UsageCase{"PageZero", {"--page", "0"}},
        UsageCase{"PageWithoutNumber", {"--page"}}, UsageCase{"AWordForAPage", {"--page", "all"}},
        UsageCase{"NoPage", {"--page", ""}}, UsageCase{"PagesBackwards", {"--page", "4-2"}},
        UsageCase{"ARangeWithoutItsStart", {"--page", "-4"}},
        UsageCase{"ARangeThatIsNoNumber", {"--page", "2-x"}},
        UsageCase{"NothingBehindAComma", {"--page", "2,"}},
        UsageCase{"APageOf33Bits", {"--page", "4294967297"}},
        UsageCase{"OneNameForAllBands", {"--bands", "8", "--capture", "a"}},
        UsageCase{"OneNameForTheBandsOfTwoPages", {"--page", "1-2", "--bands", "8", "--capture", "a"}},
        UsageCase{"APlaceholderThatIsNotOne", {"--bands", "8", "--capture", "a%%C"}},
        UsageCase{"PicturesAndBands", {"--pnm", "%P", "--bands", "8", "--capture", "%C"}},
        UsageCase{"NoNameForPictures", {"--pnm", ""}},
        UsageCase{"NoNameForPicturesBehindTheSign", {"--pnm=", "x"}},
        UsageCase{"QuietWithAll", {"--quiet", "--all"}}, UsageCase{"QuietWithJson", {"--quiet", "--json"}},
        UsageCase{"AnUnknownOption", {"--verbose"}}, UsageCase{"TwoFiles", {"a", "b"}}),
    [](const auto& the_case) { return the_case.param.name; });

TEST_F(Rasterdump, AFileMayBeNamedLikeAnOptionWithoutValue) {
  EXPECT_EQ(run({"--", "--capture="}).errors,
            "brenvellis-rasterdump: --capture=: No such file or directory\n");
}

TEST_F(Rasterdump, HelpNamesEveryOption) {
  const ProgramResult result = run({"--help"});
  EXPECT_EQ(result.exit_status, 0);
  for (const char* option : {"[FILE]", "--all ", "--json ", "--quiet ", "--page PAGES", "--pnm TEMPLATE",
                             "--bands ROWS", "--capture TEMPLATE", "--version"}) {
    EXPECT_THAT(result.output, HasSubstr(option));
  }
  for (const char* of_the_parser : {"UINT", "TEXT", "Needs:", "Excludes:", "{"}) {
    EXPECT_THAT(result.output, testing::Not(HasSubstr(of_the_parser)));
  }
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

TEST_F(Rasterdump, ALongStreamShowsItsProgressOnATerminal) {
  int terminal = -1;
  int program_end = -1;
  ASSERT_EQ(openpty(&terminal, &program_end, nullptr, nullptr, nullptr), 0);
  fcntl(terminal, F_SETFL, O_NONBLOCK);
  std::array<int, 2> input{};
  ASSERT_EQ(pipe2(input.data(), O_CLOEXEC), 0);
  const std::string stream = write_first_version({make_page(10, 100000)});
  ChildProcess child({{RASTERDUMP_PROGRAM, "--quiet"}, {{0, input[0]}, {2, program_end}}, {}});
  close(input[0]);
  close(program_end);

  // Lines are sent until the program has shown its progress.
  std::string shown;
  constexpr std::size_t HEADER = 4 + sizeof(cups_page_header_t);
  std::size_t sent = HEADER;
  ASSERT_EQ(write(input[1], stream.data(), HEADER), static_cast<ssize_t>(HEADER));
  while (sent + 30 <= stream.size() && shown.find(" of 100000") == std::string::npos) {
    ASSERT_EQ(write(input[1], stream.data() + sent, 30), 30);
    sent += 30;
    std::array<char, 256> buffer{};
    const ssize_t count = read(terminal, buffer.data(), buffer.size());
    shown.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  close(input[1]);
  close(terminal);
  EXPECT_THAT(shown, testing::StartsWith("\rpage 1: line "));
}

}  // namespace
