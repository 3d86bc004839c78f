#include <cups/raster.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "raster/band_file.h"
#include "raster/page_header_dump.h"
#include "raster/raster_stream.h"
#include "raster/stream_progress.h"

namespace {

enum ExitStatus : std::uint8_t { EXIT_OK = 0, EXIT_INPUT = 1, EXIT_USAGE = 2, EXIT_OUTPUT = 3 };

struct Options {
  std::string file = "-";
  std::uint32_t bands = 0;  ///< lines a band; 0: no capture
  std::string capture;
  std::uint32_t page = 0;  ///< 0: all pages
  bool quiet = false;
};

struct FreeMemory {
  void operator()(unsigned char* memory) const { std::free(memory); }
};

/// A stream may come from anywhere, and its strings must not command the terminal. Beyond ASCII there are
/// control bytes as well, and no character set is known.
void keep_printable(std::span<char> string) {
  for (char& byte : string) {
    if (byte != '\0' && (byte < ' ' || byte > '~')) {
      byte = '?';
    }
  }
}

/// The beginning of every page header is laid out as that of version 1, which is what can be dumped.
void dump_header(const cups_page_header2_t& header) {
  static_assert(offsetof(cups_page_header_t, cupsRowStep) == offsetof(cups_page_header2_t, cupsRowStep));
  cups_page_header_t first_version;
  std::memcpy(&first_version, &header, sizeof first_version);
  if (isatty(STDERR_FILENO) == 1) {
    keep_printable(first_version.MediaClass);
    keep_printable(first_version.MediaColor);
    keep_printable(first_version.MediaType);
    keep_printable(first_version.OutputType);
  }
  dump(&first_version);
}

/// Reads a page without keeping anything, in little memory however long its lines are.
ExitStatus skip_page(RasterStream& stream, std::uint64_t page, StreamProgress& progress) {
  std::array<unsigned char, 65536> buffer;
  const std::uint64_t lines = stream.lines();
  for (std::uint64_t line = 0; line < lines; ++line) {
    progress.show(page, line, lines);
    std::size_t left = stream.header().cupsBytesPerLine;
    while (left > 0) {
      const std::size_t part = std::min(left, buffer.size());
      if (!stream.read_pixels(std::span(buffer).first(part))) {
        progress.clear();
        fprintf(stderr,
                "brenvellis-rasterdump: page %" PRIu64 ", after %" PRIu64 " of %" PRIu64 " lines: %s\n", page,
                line, lines, stream.error().c_str());
        return EXIT_INPUT;
      }
      left -= part;
    }
  }
  return EXIT_OK;
}

/// Cuts a page into bands and saves each. When the page breaks off, the lines that came are saved.
ExitStatus capture_page(RasterStream& stream, std::uint64_t page, const Options& options,
                        StreamProgress& progress) {
  const std::size_t stride = stream.header().cupsBytesPerLine;
  const std::uint64_t lines = stream.lines();
  if (stream.header().cupsWidth == 0) {
    fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 " is 0 pixels wide: no bands to save\n", page);
    return EXIT_INPUT;
  }
  const std::uint64_t rows = std::min<std::uint64_t>(options.bands, lines);
  // A header may promise lines that never come: their memory is not touched.
  const std::unique_ptr<unsigned char, FreeMemory> memory(
      static_cast<unsigned char*>(std::calloc(static_cast<std::size_t>(rows), stride)));
  if (memory == nullptr) {
    fprintf(stderr,
            "brenvellis-rasterdump: page %" PRIu64 ": no memory for a band of %" PRIu64
            " lines of %zu bytes\n",
            page, rows, stride);
    return EXIT_INPUT;
  }

  std::string last_name;
  for (std::uint64_t top = 0; top < lines; top += rows) {
    const std::uint64_t wanted = std::min(rows, lines - top);
    std::uint64_t got = 0;
    while (got < wanted && stream.read_pixels({memory.get() + got * stride, stride})) {
      ++got;
      progress.show(page, top + got, lines);
    }
    progress.clear();
    if (got > 0) {
      const tagLNBandImageParams band = {
          .data = memory.get(),
          .stride = static_cast<std::int64_t>(stride),
          .left = 0,
          .top = static_cast<std::int64_t>(top),
          .right = stream.header().cupsWidth,
          .bottom = static_cast<std::int64_t>(top + got),
      };
      const BandFile file = save_band(options.capture, band, stream.descriptor());
      if (!file.error.empty()) {
        fprintf(stderr,
                "brenvellis-rasterdump: page %" PRIu64 ", lines %" PRIu64 " to %" PRIu64
                ": cannot save %s: %s\n",
                page, top, top + got - 1, file.name.c_str(), file.error.c_str());
        return EXIT_OUTPUT;
      }
      last_name = file.name;
    }
    if (got < wanted) {
      fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 ", after %" PRIu64 " of %" PRIu64 " lines: %s; ",
              page, top + got, lines, stream.error().c_str());
      if (last_name.empty()) {
        fprintf(stderr, "nothing was saved\n");
      } else {
        fprintf(stderr, "they are kept, the last ones in %s\n", last_name.c_str());
      }
      return EXIT_INPUT;
    }
  }
  return EXIT_OK;
}

ExitStatus dump_stream(int descriptor, const Options& options) {
  const char* name = options.file == "-" ? "standard input" : options.file.c_str();
  RasterStream stream(descriptor);
  if (!stream.open()) {
    fprintf(stderr, "brenvellis-rasterdump: %s: %s\n", name, stream.error().c_str());
    return EXIT_INPUT;
  }
  StreamProgress progress;
  for (std::uint64_t page = 1;; ++page) {
    const RasterStream::Next next = stream.next_page();
    progress.clear();
    if (next == RasterStream::Next::Failure) {
      fprintf(stderr, "brenvellis-rasterdump: page %" PRIu64 ": %s\n", page, stream.error().c_str());
      return EXIT_INPUT;
    }
    if (next == RasterStream::Next::End) {
      if (options.page == 0 && page > 1) {
        return EXIT_OK;
      }
      if (options.page == 0) {
        fprintf(stderr, "brenvellis-rasterdump: %s: the stream has no page\n", name);
      } else {
        fprintf(stderr, "brenvellis-rasterdump: %s: no page %" PRIu32 ", the last one is %" PRIu64 "\n", name,
                options.page, page - 1);
      }
      return EXIT_INPUT;
    }
    const bool chosen = options.page == 0 || options.page == page;
    if (chosen && !options.quiet) {
      dump_header(stream.header());
    }
    const ExitStatus status = chosen && options.bands != 0 ? capture_page(stream, page, options, progress)
                                                           : skip_page(stream, page, progress);
    if (status != EXIT_OK || options.page == page) {
      progress.clear();
      return status;
    }
  }
}

ExitStatus refuse(const std::string& why) {
  fprintf(stderr, "brenvellis-rasterdump: %s\nRun with --help for more information.\n", why.c_str());
  return EXIT_USAGE;
}

ExitStatus run(int argc, char** argv) {
  // CLI11 would take the next argument for the value.
  for (const std::string_view argument : std::span(argv, static_cast<std::size_t>(argc))) {
    if (argument == "--") {
      break;
    }
    if (argument == "--bands=" || argument == "--capture=" || argument == "--page=") {
      return refuse(std::string(argument) + " has no value");
    }
  }

  Options options;
  CLI::App app(
      "Reads a CUPS raster stream, writes each page's header to standard error, and saves the pixels in "
      "bands.",
      "brenvellis-rasterdump");
  app.set_version_flag("--version", "brenvellis-rasterdump " BRENVELLIS_VERSION);
  app.add_option("FILE", options.file, "The stream; - or none: standard input");
  CLI::Option* bands = app.add_option("--bands", options.bands, "Cut each page into bands of ROWS lines")
                           ->type_name("ROWS")
                           ->check(CLI::Range(std::uint32_t{1}, UINT32_MAX));
  CLI::Option* capture =
      app.add_option("--capture", options.capture,
                     "Save each band, without a header, to the file of this name; in it stand\n"
                     "%W for the width, %H for the height, %B for bits per pixel,\n"
                     "%C for a running number, %T for the time")
          ->type_name("TEMPLATE")
          ->check([](const std::string& text) { return text.empty() ? "the template is empty" : ""; });
  bands->needs(capture);
  capture->needs(bands);
  app.add_option("--page", options.page, "Only the page of this number, from 1")
      ->type_name("NUMBER")
      ->check(CLI::Range(std::uint32_t{1}, UINT32_MAX));
  app.add_flag("--quiet", options.quiet, "Leave the headers out");
  app.footer("Exit status: 0 done, 1 input at fault, 2 usage, 3 output at fault.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app.exit(error);
      return EXIT_OK;
    }
    return refuse(error.what());
  }

  if (options.file == "-") {
    return dump_stream(STDIN_FILENO, options);
  }
  const int descriptor = open(options.file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    fprintf(stderr, "brenvellis-rasterdump: %s: %s\n", options.file.c_str(), std::strerror(errno));
    return EXIT_INPUT;
  }
  const ExitStatus status = dump_stream(descriptor, options);
  close(descriptor);
  return status;
}

/// A closed standard descriptor would be that of the next file opened, and a band would get the lines about
/// it. What is put in its place can neither be read nor written.
void fill_closed_descriptors() {
  int descriptor = 0;
  do {
    descriptor = open("/", O_PATH | O_CLOEXEC);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) {
    close(descriptor);
  }
}

/// @return EXIT_OUTPUT if all went well but not everything that was shown arrived, otherwise `status`.
ExitStatus check_output(ExitStatus status) {
  errno = 0;
  if (fflush(stdout) != 0 || ferror(stdout) != 0) {
    fprintf(stderr, "brenvellis-rasterdump: cannot write to standard output%s%s\n", errno != 0 ? ": " : "",
            errno != 0 ? std::strerror(errno) : "");
  } else if (ferror(stderr) == 0) {
    return status;
  }
  return status == EXIT_OK ? EXIT_OUTPUT : status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    fill_closed_descriptors();
    return check_output(run(argc, argv));
  } catch (const std::exception& error) {
    fprintf(stderr, "brenvellis-rasterdump: %s\n", error.what());
    return EXIT_INPUT;
  }
}
