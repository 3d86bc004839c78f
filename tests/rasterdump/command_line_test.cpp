#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/rasterdump/raster_streams.h"

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

TEST_P(WrongUsage, HasAStatusOfItsOwnAndSaysWhy) {
  const ProgramResult result = run(GetParam().arguments);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.errors, testing::StartsWith("brenvellis-rasterdump: "));
  EXPECT_EQ(result.output, "");
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, WrongUsage,
    testing::Values(UsageCase{"BandsWithoutCapture", {"--bands", "8"}},
                    UsageCase{"CaptureWithoutBands", {"--capture", "a"}},
                    UsageCase{"NoRows", {"--bands", "0", "--capture", "a"}},
                    UsageCase{"NegativeRows", {"--bands=-1", "--capture", "a"}},
                    UsageCase{"RowsThatAreNoNumber", {"--bands", "x", "--capture", "a"}},
                    UsageCase{"TooManyRows", {"--bands", "4294967296", "--capture", "a"}},
                    UsageCase{"AnEmptyTemplate", {"--bands", "8", "--capture", ""}},
                    UsageCase{"NoTemplate", {"--bands", "8", "--capture=", "other.ras"}},
                    UsageCase{"NoRowsBehindTheSign", {"--capture", "a", "--bands=", "8"}},
                    UsageCase{"NoPageBehindTheSign", {"--page=", "1"}},
                    UsageCase{"PageZero", {"--page", "0"}}, UsageCase{"PageWithoutNumber", {"--page"}},
                    UsageCase{"AnUnknownOption", {"--verbose"}}, UsageCase{"TwoFiles", {"a", "b"}}),
    [](const auto& the_case) { return the_case.param.name; });

TEST_F(Rasterdump, AFileMayBeNamedLikeAnOptionWithoutValue) {
  EXPECT_EQ(run({"--", "--capture="}).errors,
            "brenvellis-rasterdump: --capture=: No such file or directory\n");
}

TEST_F(Rasterdump, HelpNamesEveryOption) {
  const ProgramResult result = run({"--help"});
  EXPECT_EQ(result.exit_status, 0);
  for (const char* option :
       {"FILE", "--bands ROWS", "--capture TEMPLATE", "--page NUMBER", "--quiet", "--version"}) {
    EXPECT_THAT(result.output, HasSubstr(option));
  }
}

TEST_F(Rasterdump, VersionIsThePackagesVersion) {
  const ProgramResult result = run({"--version"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, "brenvellis-rasterdump " BRENVELLIS_VERSION "\n");
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

  // Lines keep coming until the program has shown where it is.
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
