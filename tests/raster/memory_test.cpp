// SPDX-License-Identifier: Apache-2.0
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

/// Eight times the program's memory limit.
constexpr std::uint64_t SIZE = 256ULL << 20U;
constexpr long MOST_KIB = 32L * 1024;

/// Stands for the path of a file in the test's folder.
constexpr const char* BAND = "BAND";

struct MemoryCase {
  const char* name;
  unsigned width;
  cups_order_t order;
  std::vector<std::string> arguments;
};

void PrintTo(const MemoryCase& memory_case, std::ostream* out) {
  *out << memory_case.name;
}

class Memory : public Rasterdump, public testing::WithParamInterface<MemoryCase> {};

TEST_P(Memory, StaysSmall) {
  // The page is generated into a pipe and never in memory as a whole: a program's peak counts from the fork
  // and includes the memory of this program.
  Page page = make_page(GetParam().width, 0, 8, 3, GetParam().order, CUPS_CSPACE_SRGB);
  const std::uint64_t planes = GetParam().order == CUPS_ORDER_PLANAR ? 3 : 1;
  page.header.cupsHeight = static_cast<unsigned>(SIZE / page.header.cupsBytesPerLine / planes);
  const std::string header = write_first_version({page});
  const std::string pixels(65536, 'p');

  std::array<int, 2> input{};
  ASSERT_EQ(pipe2(input.data(), O_CLOEXEC), 0);
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  std::vector<std::string> arguments = {RASTERDUMP_PROGRAM, "--quiet"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  std::replace(arguments.begin(), arguments.end(), std::string(BAND), path("band%C"));
  ChildProcess child({arguments, {{0, input[0]}, {1, nothing}}, {}});
  close(input[0]);
  close(nothing);

  ASSERT_EQ(write(input[1], header.data(), header.size()), static_cast<ssize_t>(header.size()));
  std::uint64_t left = planes * page.header.cupsHeight * page.header.cupsBytesPerLine;
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
  EXPECT_LT(usage.ru_maxrss, MOST_KIB);
}

INSTANTIATE_TEST_SUITE_P(
    OfALargePage, Memory,
    testing::Values(
        MemoryCase{"InBands", 10000, CUPS_ORDER_CHUNKED, {"--bands", "256", "--capture", BAND}},
        MemoryCase{"InOneBand", 10000, CUPS_ORDER_CHUNKED, {"--bands", "4294967295", "--capture", BAND}},
        MemoryCase{"InOneBandOfLongLines", 16 << 20, CUPS_ORDER_CHUNKED, {"--bands", "9", "--capture", BAND}},
        MemoryCase{"AsAPicture", 10000, CUPS_ORDER_CHUNKED, {"--pnm", BAND}},
        MemoryCase{"AsAPictureOfPlanes", 10000, CUPS_ORDER_PLANAR, {"--pnm", BAND}},
        MemoryCase{"WithoutBands", 10000, CUPS_ORDER_CHUNKED, {}},
        // Each line is larger than the memory limit.
        MemoryCase{"OfLongLines", 16 << 20, CUPS_ORDER_CHUNKED, {}}),
    [](const auto& the_case) { return the_case.param.name; });

TEST_F(Rasterdump, AShortCompressedStreamTakesNoMoreMemoryInOneBand) {
  // 20 times 256 equal lines, each of 128 runs of 128 equal pixels: 12 KB that decode to 250 MB.
  Page page = make_page(128 * 128, 0);
  page.header.cupsHeight = 20 * 256;
  page.pixels.clear();
  std::string stream = write_stream({page}, CUPS_RASTER_WRITE_COMPRESSED);
  for (int lines = 0; lines < 20; ++lines) {
    stream += '\xff';
    for (int runs = 0; runs < 128; ++runs) {
      stream += "\x7fRGB";
    }
  }
  ASSERT_LT(stream.size(), 16384U);
  const ProgramResult result = run({"--quiet", "--bands", "4294967295", "--capture", path("%C.raw")}, stream);
  EXPECT_EQ(result.exit_status, 0) << result.errors;
  EXPECT_EQ(result.output, "saved " + path("0000.raw") + ": page 1, lines 0 to 5119, 251658240 bytes\n");
  rusage usage = {};
  getrusage(RUSAGE_CHILDREN, &usage);
  EXPECT_LT(usage.ru_maxrss, MOST_KIB);
}

}  // namespace
