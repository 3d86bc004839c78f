// SPDX-License-Identifier: Apache-2.0
#include "raster/page_files.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "raster/page_picture.h"
#include "raster/saved_file.h"

namespace {

/// The most bytes of a line that are read at once; an even number.
constexpr std::size_t PIECE = 65536;

struct FreeMemory {
  void operator()(unsigned char* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<unsigned char, FreeMemory>;

/// Allocates memory but does not touch it, because the header may announce lines that do not follow.
Memory allocate(std::uint64_t count, std::uint64_t size) {
  if (size > std::numeric_limits<std::size_t>::max()) {
    return nullptr;
  }
  return Memory(static_cast<unsigned char*>(
      std::calloc(static_cast<std::size_t>(count), static_cast<std::size_t>(size))));
}

/// Adds b * c to a. Returns false if the sum exceeds the largest file size.
bool add_product(std::uint64_t& a, std::uint64_t b, std::uint64_t c) {
  std::int64_t product = 0;
  std::int64_t sum = 0;
  if (__builtin_mul_overflow(b, c, &product) || __builtin_add_overflow(a, product, &sum)) {
    return false;
  }
  a = static_cast<std::uint64_t>(sum);
  return true;
}

std::span<const unsigned char> bytes_of(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

}  // namespace

struct PageReader::Band {
  std::uint64_t plane;  ///< from 1
  std::uint64_t top;    ///< first line in the plane
  std::uint64_t lines;  ///< number of lines; finally, of those received
  std::string name;     ///< of the last file; empty before the first
};

void PageReader::report_break(std::uint64_t line) const {
  progress.clear();
  fflush(stdout);
  fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 ", after %" PRIu64 " of %" PRIu64 " lines: %s", page,
          line, stream.lines(), stream.error().c_str());
}

ExitStatus PageReader::report_unsaved(const char* name, const char* why) const {
  progress.clear();
  fflush(stdout);
  fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 ": cannot save %s: %s\n", page, name, why);
  return EXIT_OUTPUT;
}

ExitStatus PageReader::skip() const {
  std::array<unsigned char, PIECE> buffer;
  const std::uint64_t lines = stream.lines();
  for (std::uint64_t line = 0; line < lines; ++line) {
    progress.show(page, line, lines);
    std::size_t left = stream.header().cupsBytesPerLine;
    while (left > 0) {
      const std::size_t part = std::min(left, buffer.size());
      if (!stream.read_pixels(std::span(buffer).first(part))) {
        report_break(line);
        fprintf(stderr, "\n");
        return EXIT_INPUT;
      }
      left -= part;
    }
  }
  return EXIT_OK;
}

ExitStatus PageReader::save_bands(const FileName& name, std::uint32_t rows) const {
  const std::uint64_t height = stream.header().cupsHeight;
  const std::uint64_t planes = stream.planes();
  if (stream.header().cupsWidth == 0) {
    fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 ": cannot save bands: invalid cupsWidth=0\n",
            page);
    return EXIT_INPUT;
  }
  if (!name.has('C') && (rows < height || (planes > 1 && !name.has('L')))) {
    fprintf(stderr,
            "brenvellis-rasterdump: page %" PRIu64
            " has several bands, but '%s' names only one file "
            "(add %%C)\n",
            page, name.text().c_str());
    return EXIT_USAGE;
  }
  Band band{};
  for (band.plane = 1; band.plane <= planes; ++band.plane) {
    for (band.top = 0; band.top < height; band.top += rows) {
      band.lines = std::min<std::uint64_t>(rows, height - band.top);
      if (const ExitStatus status = save_band(name, band); status != EXIT_OK) {
        return status;
      }
    }
  }
  return EXIT_OK;
}

ExitStatus PageReader::save_band(const FileName& name, Band& band) const {
  const std::uint64_t height = stream.header().cupsHeight;
  const std::uint64_t stride = stream.header().cupsBytesPerLine;
  const std::uint64_t lines_before = (band.plane - 1) * height + band.top;
  const std::uint64_t wanted = band.lines;
  std::vector<unsigned char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(stride, PIECE)));
  SavedFile file;
  bool whole = true;
  for (band.lines = 0; whole && band.lines < wanted; band.lines += whole ? 1 : 0) {
    for (std::uint64_t left = stride; whole && left > 0;) {
      const auto part =
          std::span(piece).first(static_cast<std::size_t>(std::min<std::uint64_t>(left, PIECE)));
      whole = stream.read_pixels(part);
      if (!whole) {
        break;
      }
      if (!file.is_open()) {
        const tagLNBandImageParams shape = {.data = nullptr,
                                            .stride = static_cast<std::int64_t>(stride),
                                            .left = 0,
                                            .top = static_cast<std::int64_t>(band.top),
                                            .right = stream.header().cupsWidth,
                                            .bottom = static_cast<std::int64_t>(band.top + wanted)};
        band.name = name.expand(page, band.plane, shape);
        if (!file.create(band.name, stream.descriptor())) {
          return report_unsaved(band.name.c_str(), file.error().c_str());
        }
      }
      if (!file.write(part)) {
        return report_unsaved(band.name.c_str(), file.error().c_str());
      }
      left -= part.size();
    }
    progress.show(page, lines_before + band.lines, stream.lines());
  }
  progress.clear();
  if (file.is_open() && !file.close(band.lines * stride)) {
    return report_unsaved(band.name.c_str(), file.error().c_str());
  }
  if (!whole) {
    report_break(lines_before + band.lines);
    if (band.name.empty()) {
      fprintf(stderr, "; nothing was saved\n");
    } else {
      fprintf(stderr, "; these lines were saved, the last of them in %s\n", band.name.c_str());
    }
    return EXIT_INPUT;
  }
  fprintf(saved, "saved %s: page %" PRIu64 ", ", band.name.c_str(), page);
  if (stream.planes() > 1) {
    fprintf(saved, "plane %" PRIu64 " of %" PRIu64 ", ", band.plane, stream.planes());
  }
  fprintf(saved, "lines %" PRIu64 " to %" PRIu64 ", %" PRIu64 " bytes\n", band.top, band.top + band.lines - 1,
          band.lines * stride);
  return EXIT_OK;
}

ExitStatus PageReader::save_picture(const FileName& name) const {
  const cups_page_header2_t& header = stream.header();
  const PagePicture picture(header, name.ends_with(".pam"));
  const std::uint64_t height = header.cupsHeight;
  const std::uint64_t planes = stream.planes();
  const std::uint64_t stride = header.cupsBytesPerLine;
  const std::string start = picture.start(height, height);
  const Memory pixels = allocate(planes, stride);
  const Memory line = allocate(1, picture.line_size());
  // In planar order the first line of the picture is complete only when the last plane begins. Until then the
  // planes are stored in the file, behind the space for the picture.
  std::uint64_t end = start.size();
  std::uint64_t end_of_planes = 0;
  bool fits = add_product(end, height, picture.line_size());
  const std::uint64_t planes_begin = end;
  end_of_planes = end;
  fits = fits && add_product(end_of_planes, planes * height, stride);
  if (pixels == nullptr || line == nullptr || !fits) {
    fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 ": cannot make a picture: the page is too large\n",
            page);
    return EXIT_INPUT;
  }
  const std::span one_line(line.get(), static_cast<std::size_t>(picture.line_size()));
  const tagLNBandImageParams shape = {.data = nullptr,
                                      .stride = static_cast<std::int64_t>(stride),
                                      .left = 0,
                                      .top = 0,
                                      .right = header.cupsWidth,
                                      .bottom = static_cast<std::int64_t>(height)};

  SavedFile file;
  std::string file_name;
  std::uint64_t came = 0;
  bool good = true;
  for (; good && came < stream.lines(); ++came) {
    const std::span from_stream(pixels.get(), static_cast<std::size_t>(stride));
    if (!stream.read_pixels(from_stream)) {
      break;
    }
    if (!file.is_open()) {
      file_name = name.expand(page, 1, shape);
      good = file.create(file_name, stream.descriptor()) &&
             (planes == 1 ? file.write(bytes_of(start)) : file.seek(planes_begin));
    }
    if (good && planes == 1) {
      picture.convert(pixels.get(), line.get());
      good = file.write(one_line);
    } else if (good) {
      good = file.write(from_stream);
    }
    progress.show(page, came, stream.lines());
  }
  const bool whole = came == stream.lines();
  const std::uint64_t before_last_plane = (planes - 1) * height;
  const std::uint64_t lines = came > before_last_plane ? came - before_last_plane : 0;
  if (good && file.is_open() && (planes > 1 || !whole)) {
    good = file.seek(0) && file.write(bytes_of(picture.start(lines, height)));
  }
  for (std::uint64_t y = 0; good && planes > 1 && y < lines; ++y) {
    for (std::uint64_t plane = 0; good && plane < planes; ++plane) {
      good = file.read_at(planes_begin + (plane * height + y) * stride,
                          {pixels.get() + plane * stride, static_cast<std::size_t>(stride)});
    }
    picture.convert(pixels.get(), line.get());
    good = good && file.write(one_line);
  }
  progress.clear();
  if (!good && file.is_open()) {
    file.remove();
  }
  if (!good || (lines > 0 && !file.close(start.size() + lines * picture.line_size()))) {
    return report_unsaved(file_name.c_str(), file.error().c_str());
  }
  if (!whole) {
    report_break(came);
    if (file.is_open()) {
      file.remove();
    }
    if (lines == 0) {
      fprintf(stderr, "; nothing was saved\n");
    } else {
      fprintf(stderr, "; %s has %" PRIu64 " lines\n", file_name.c_str(), lines);
    }
    return EXIT_INPUT;
  }
  fprintf(saved, "saved %s: page %" PRIu64 ", %s, %u x %u pixels\n", file_name.c_str(), page,
          picture.format(), header.cupsWidth, header.cupsHeight);
  return EXIT_OK;
}
