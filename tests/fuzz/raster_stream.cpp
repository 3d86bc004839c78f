// Any raster stream: it is read to its end or to an error that is told, whatever its headers promise.

#include "raster/raster_stream.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "raster/page_header_dump.h"
#include "tests/fuzz/require.h"
#include "tests/unit/captured_stream.h"

namespace {

/// Reads a page as brenvellis-rasterdump does, but no more than some bytes of it: a page may be long, and a
/// compressed line that stands for many costs no input.
bool read_page(RasterStream& stream) {
  std::array<unsigned char, 65536> buffer;
  std::size_t most = 1 << 22;
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
        require(!stream.error().empty(), "a failure is told");
        return false;
      }
      left -= part;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int file = memfd_create("stream", MFD_CLOEXEC);
  require(write(file, data, size) == static_cast<ssize_t>(size) && lseek(file, 0, SEEK_SET) == 0, "a file");
  {
    RasterStream stream(file);
    bool more = stream.open();
    require(more || !stream.error().empty(), "a failure is told");
    for (int page = 0; more && page < 1000; ++page) {
      const auto next = stream.next_page();
      require(next != RasterStream::Next::Failure || !stream.error().empty(), "a failure is told");
      more = next == RasterStream::Next::Page;
      if (more) {
        cups_page_header_t header;
        std::memcpy(&header, &stream.header(), sizeof header);
        static_cast<void>(captured_log([&] { dump(&header); }));
        more = read_page(stream);
      }
    }
  }
  close(file);
  return 0;
}
