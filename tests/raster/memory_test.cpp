#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tests/raster/raster_streams.h"

namespace {

constexpr std::uint64_t SIZE = 2ULL << 30U;

/// Stands for the path of a file in the test's folder.
constexpr const char* BAND = "BAND";

struct MemoryCase {
  const char* name;
  unsigned width;
  std::vector<std::string> arguments;
};

void PrintTo(const MemoryCase& memory_case, std::ostream* out) {
  *out << memory_case.name;
}

class Memory : public Rasterdump, public testing::WithParamInterface<MemoryCase> {};

TEST_P(Memory, StaysAtOneBand) {
  // The page comes from here through a pipe and is never whole anywhere: a program's peak counts from the
  // fork, and so includes what this one takes.
  Page page = make_page(GetParam().width, 0);
  page.header.cupsHeight = static_cast<unsigned>(SIZE / page.header.cupsBytesPerLine);
  const std::string header = write_first_version({page});
  const std::string pixels(65536, 'p');

  std::array<int, 2> input{};
  ASSERT_EQ(pipe2(input.data(), O_CLOEXEC), 0);
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  std::vector<std::string> arguments = {RASTERDUMP_PROGRAM, "--quiet"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  std::replace(arguments.begin(), arguments.end(), std::string(BAND), path("band"));
  ChildProcess child({arguments, {{0, input[0]}, {1, nothing}}, {}});
  close(input[0]);
  close(nothing);

  ASSERT_EQ(write(input[1], header.data(), header.size()), static_cast<ssize_t>(header.size()));
  std::uint64_t left = std::uint64_t{page.header.cupsHeight} * page.header.cupsBytesPerLine;
  while (left > 0) {
    const ssize_t count = write(input[1], pixels.data(), std::min<std::uint64_t>(left, pixels.size()));
    ASSERT_GT(count, 0);
    left -= static_cast<std::uint64_t>(count);
  }
  close(input[1]);
  ASSERT_EQ(child.exit_status(std::chrono::minutes(5)), 0);
  rusage usage = {};
  getrusage(RUSAGE_CHILDREN, &usage);
  RecordProperty("peak_kib", std::to_string(usage.ru_maxrss));
  EXPECT_LT(usage.ru_maxrss, 32 * 1024);
}

INSTANTIATE_TEST_SUITE_P(OfAPageOfTwoGigabytes, Memory,
                         testing::Values(MemoryCase{"InBands", 10000, {"--bands", "256", "--capture", BAND}},
                                         MemoryCase{"WithoutBands", 10000, {}},
                                         // Each line is longer than the memory that may be used.
                                         MemoryCase{"OfLongLines", 16 << 20, {}}),
                         [](const auto& the_case) { return the_case.param.name; });

}  // namespace
