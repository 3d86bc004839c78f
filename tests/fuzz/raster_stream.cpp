// SPDX-License-Identifier: Apache-2.0
// Reads any raster stream to its end or to an error, and converts its pages to text, JSON and pictures.

#include "raster/raster_stream.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "raster/full_header.h"
#include "raster/page_header_dump.h"
#include "raster/page_picture.h"
#include "tests/fuzz/require.h"
#include "tests/unit/captured_stream.h"

namespace {

/// The most bytes that are read of a page, because compressed pages can be huge.
constexpr std::size_t MOST = 1 << 22;

/// Reads a page as brenvellis-rasterdump does, up to MOST bytes.
bool read_page(RasterStream& stream) {
  std::vector<unsigned char> buffer(65536);
  std::size_t most = MOST;
  const std::uint64_t lines = stream.lines();
  for (std::uint64_t line = 0; line < lines; ++line) {
    std::size_t left = stream.header().cupsBytesPerLine;
    while (left > 0) {
      const std::size_t part = std::min(left, buffer.size());
      if (part > most) {
        return false;
      }
      most -= part;
      if (!stream.read_pixels(std::span(buffer).first(part))) {
        require(!stream.error().empty(), "a failure is reported");
        return false;
      }
      left -= part;
    }
  }
  return true;
}

/// Converts lines of a page. The memory has exactly the size that the header announces, so that the sanitizer
/// detects overruns. In planar order, lines of the page are used as those of the planes.
bool make_pictures(RasterStream& stream) {
  const cups_page_header2_t& header = stream.header();
  const std::uint64_t planes = stream.planes();
  const PagePicture picture(header, false);
  const PagePicture inks(header, true);
  if (planes * header.cupsBytesPerLine > MOST || inks.line_size() > MOST || picture.line_size() > MOST) {
    return read_page(stream);
  }
  require(picture.start(1, header.cupsHeight).size() ==
              picture.start(header.cupsHeight, header.cupsHeight).size(),
          "the start of a picture that breaks off has its place");
  std::vector<unsigned char> pixels(planes * header.cupsBytesPerLine);
  std::vector<unsigned char> line(picture.line_size());
  std::vector<unsigned char> line_of_inks(inks.line_size());
  std::size_t most = MOST;
  for (std::uint64_t y = 0; y < header.cupsHeight; ++y) {
    for (std::uint64_t plane = 0; plane < planes; ++plane) {
      if (header.cupsBytesPerLine > most) {
        return false;
      }
      most -= header.cupsBytesPerLine;
      if (!stream.read_pixels(
              std::span(pixels).subspan(plane * header.cupsBytesPerLine, header.cupsBytesPerLine))) {
        require(!stream.error().empty(), "a failure is reported");
        return false;
      }
    }
    picture.convert(pixels.data(), line.data());
    inks.convert(pixels.data(), line_of_inks.data());
  }
  return true;
}

bool use_page(RasterStream& stream) {
  cups_page_header_t header;
  std::memcpy(&header, &stream.header(), sizeof header);
  static_cast<void>(captured_log([&] { dump(&header); }));
  require(list_other_fields(stream.header(), stream.kind()).starts_with("=== "), "a list of fields");
  require(std::ranges::all_of(header_as_json(stream.header(), stream.kind(), 1),
                              [](char byte) { return byte >= ' ' && byte <= '~'; }),
          "JSON of printable characters");
  return picture_refusal(stream.header()).empty() ? make_pictures(stream) : read_page(stream);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int file = memfd_create("stream", MFD_CLOEXEC);
  require(write(file, data, size) == static_cast<ssize_t>(size) && lseek(file, 0, SEEK_SET) == 0, "a file");
  {
    RasterStream stream(file);
    bool more = stream.open();
    require(more || !stream.error().empty(), "a failure is reported");
    for (int page = 0; more && page < 1000; ++page) {
      const auto next = stream.next_page();
      require(next != RasterStream::Next::Failure || !stream.error().empty(), "a failure is reported");
      more = next == RasterStream::Next::Page && use_page(stream);
    }
  }
  close(file);
  return 0;
}
