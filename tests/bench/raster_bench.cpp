// SPDX-License-Identifier: Apache-2.0
// Measures how fast brenvellis-rasterdump reads a large stream, compared with a loop that only reads it.

#include <cups/raster.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/bench/measure.h"
#include "tests/support/temporary_folder.h"

namespace {

/// A page of 10x15 cm at 300 dots per inch.
cups_page_header2_t photo_header() {
  cups_page_header2_t header{};
  header.HWResolution[0] = header.HWResolution[1] = 300;
  header.cupsWidth = 1200;
  header.cupsHeight = 1800;
  header.cupsBitsPerColor = 8;
  header.cupsBitsPerPixel = 24;
  header.cupsNumColors = 3;
  header.cupsBytesPerLine = 3600;
  header.cupsColorSpace = CUPS_CSPACE_SRGB;
  return header;
}

void write_stream(const std::string& path, int pages) {
  const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  cups_raster_t* raster = cupsRasterOpen(file, CUPS_RASTER_WRITE);
  auto header = photo_header();
  std::vector<unsigned char> line(header.cupsBytesPerLine);
  for (int page = 0; page < pages; ++page) {
    cupsRasterWriteHeader2(raster, &header);
    for (unsigned y = 0; y < header.cupsHeight; ++y) {
      for (std::size_t x = 0; x < line.size(); ++x) {
        line[x] = static_cast<unsigned char>(x * 7 + std::size_t{y} * 13);
      }
      if (cupsRasterWritePixels(raster, line.data(), header.cupsBytesPerLine) != header.cupsBytesPerLine) {
        give_up("cannot write " + path);
      }
    }
  }
  cupsRasterClose(raster);
  close(file);
}

/// The least reader: every line once, with the imaging library.
int read_stream(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  cups_raster_t* raster = cupsRasterOpen(file, CUPS_RASTER_READ);
  cups_page_header2_t header{};
  std::vector<unsigned char> line;
  while (cupsRasterReadHeader2(raster, &header) != 0) {
    line.resize(header.cupsBytesPerLine);
    for (unsigned y = 0; y < header.cupsHeight; ++y) {
      if (cupsRasterReadPixels(raster, line.data(), header.cupsBytesPerLine) != header.cupsBytesPerLine) {
        return 1;
      }
    }
  }
  cupsRasterClose(raster);
  close(file);
  return 0;
}

struct Row {
  const char* name;
  std::vector<std::string> program;
  std::vector<double> wall = {};
  std::vector<double> cpu = {};
  std::vector<double> ratio = {};
  Cost last = {};
};

void table(const char* self, int pages, int rounds) {
  const TemporaryFolder folder;
  const std::string stream = folder.path() / "stream";
  const std::string band = folder.path() / "band_%C.raw";
  write_stream(stream, pages);
  const double megabytes = static_cast<double>(std::filesystem::file_size(stream)) * 1e-6;

  std::vector<Row> rows = {
      {"a loop that only reads it with libcupsimage", {self, "read", stream}},
      {"`cat`", {"cat", stream}},
      {"`brenvellis-rasterdump --quiet`", {RASTERDUMP_PROGRAM, "--quiet", stream}},
      {"`brenvellis-rasterdump`", {RASTERDUMP_PROGRAM, stream}},
      {"`brenvellis-rasterdump --bands 600 --capture`",
       {RASTERDUMP_PROGRAM, "--quiet", "--bands", "600", "--capture", band, stream}},
      {"`brenvellis-rasterdump --pnm`",
       {RASTERDUMP_PROGRAM, "--quiet", "--pnm", folder.path() / "page_%P.ppm", stream}},
  };
  run_plain(rows[0].program);  // so that all find the file in memory
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t turn = 0; turn < rows.size(); ++turn) {
      Row& row = rows[(turn + static_cast<std::size_t>(round)) % rows.size()];
      row.last = run_plain(row.program);
      row.wall.push_back(megabytes / row.last.wall);
      row.cpu.push_back(megabytes / row.last.cpu);
    }
    for (Row& row : rows) {
      row.ratio.push_back(rows[0].cpu.back() / row.cpu.back());
    }
  }

  std::printf(
      "| program | MB/s | MB per CPU second | CPU relative to the loop: median (quartiles) | peak memory, "
      "KiB "
      "|\n"
      "|---|--:|--:|--:|--:|\n");
  for (const Row& row : rows) {
    const Spread ratio = spread(row.ratio);
    // The system does not report a peak below the memory of this process.
    const std::string peak = row.last.peak > 0 ? std::to_string(row.last.peak) : "less";
    std::printf("| %s | %.0f | %.0f | %.3f (%.3f to %.3f) | %s |\n", row.name, spread(row.wall).median,
                spread(row.cpu).median, ratio.median, ratio.low, ratio.high, peak.c_str());
  }
  std::printf("\n%.0f MB, %d pages, %d rounds.\n", megabytes, pages, rounds);
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc == 3 && std::strcmp(argv[1], "read") == 0) {
    return read_stream(argv[2]);
  }
  const bool quick = argc > 1 && std::strcmp(argv[1], "quick") == 0;
  table("/proc/self/exe", quick ? 3 : 78, quick ? 2 : 9);
}
