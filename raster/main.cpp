// SPDX-License-Identifier: Apache-2.0
#include <cups/raster.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <span>
#include <string>

#include "command_line/command_line.h"
#include "raster/file_name.h"
#include "raster/full_header.h"
#include "raster/page_files.h"
#include "raster/page_header_dump.h"
#include "raster/page_picture.h"
#include "raster/page_ranges.h"
#include "raster/raster_stream.h"
#include "raster/stream_progress.h"

namespace {

struct Options {
  std::string file = "-";
  PageRanges pages;
  bool all = false;
  bool json = false;
  bool quiet = false;
  std::uint32_t bands = 0;  ///< lines per band; 0 if there is no --bands
  FileName capture;
  FileName pnm;
};

/// Replaces all bytes but printable ASCII with '?'. A stream is untrusted, and its strings may contain
/// control characters for the terminal in any character set.
void keep_printable(std::span<char> string) {
  for (char& byte : string) {
    if (byte != '\0' && (byte < ' ' || byte > '~')) {
      byte = '?';
    }
  }
}

void keep_printable(cups_page_header2_t& header) {
  for (char* string : {header.MediaClass, header.MediaColor, header.MediaType, header.OutputType,
                       header.cupsMarkerType, header.cupsRenderingIntent, header.cupsPageSizeName}) {
    keep_printable({string, sizeof header.MediaClass});
  }
  for (auto& string : header.cupsString) {
    keep_printable(string);
  }
}

/// Runs dump() with standard error redirected to standard output. Every page header begins with the fields of
/// a version 1 header, which are the ones that dump() prints.
bool dump_to_output(const cups_page_header2_t& header) {
  static_assert(offsetof(cups_page_header_t, cupsRowStep) == offsetof(cups_page_header2_t, cupsRowStep));
  cups_page_header_t first_version;
  std::memcpy(&first_version, &header, sizeof first_version);

  fflush(stdout);
  const int original = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (original < 0 || dup2(STDOUT_FILENO, STDERR_FILENO) < 0) {
    return false;
  }
  dump(&first_version);
  const bool good = ferror(stderr) == 0;
  dup2(original, STDERR_FILENO);
  close(original);
  return good;
}

/// Job is one run over a stream.
struct Job {
  const Options& options;
  RasterStream& stream;
  StreamProgress progress;
  std::uint64_t page = 0;      ///< the current page, from 1
  std::uint64_t pictures = 0;  ///< number of pictures begun
  bool refused = false;        ///< whether a page was unsupported and has no picture
};

/// Begins an error message.
void complain() {
  fflush(stdout);
  fprintf(stderr, "brenvellis-rasterdump: ");
}

ExitStatus show_header(Job& job) {
  cups_page_header2_t header = job.stream.header();
  const StreamKind kind = job.stream.kind();
  if (job.options.json) {
    printf("%s\n", header_as_json(header, kind, job.page).c_str());
    return EXIT_OK;
  }
  if (isatty(STDOUT_FILENO) == 1) {
    keep_printable(header);
  }
  printf("page %" PRIu64 ": %s\n", job.page, describe(kind).c_str());
  if (!dump_to_output(header)) {
    complain();
    fprintf(stderr, "cannot write to standard output\n");
    return EXIT_OUTPUT;
  }
  if (job.options.all) {
    printf("%s", list_other_fields(header, kind).c_str());
  }
  return EXIT_OK;
}

/// Reads the current page and saves it as the options say.
ExitStatus read_page(Job& job) {
  const FileName& pnm = job.options.pnm;
  const PageReader reader{job.stream, job.page, job.progress, job.options.json ? stderr : stdout};
  if (job.options.bands != 0) {
    return reader.save_bands(job.options.capture, job.options.bands);
  }
  if (pnm.text().empty()) {
    return reader.skip();
  }
  if (const std::string why = picture_refusal(job.stream.header()); !why.empty()) {
    complain();
    fprintf(stderr, "page %" PRIu64 ": cannot make a picture: %s\n", job.page, why.c_str());
    job.refused = true;
    return reader.skip();
  }
  if (++job.pictures > 1 && !pnm.has('P') && !pnm.has('C')) {
    complain();
    fprintf(stderr, "page %" PRIu64 ": '%s' names only one file (add %%P)\n", job.page, pnm.text().c_str());
    return EXIT_USAGE;
  }
  return reader.save_picture(pnm);
}

/// Reports chosen pages that do not exist.
ExitStatus end_of_stream(Job& job, const char* name) {
  const std::uint64_t pages = job.page - 1;
  if (pages == 0) {
    complain();
    fprintf(stderr, "%s: the stream has no pages\n", name);
    return EXIT_INPUT;
  }
  if (const auto missing = job.options.pages.missing_from(pages)) {
    complain();
    fprintf(stderr, "%s: page %" PRIu64 " does not exist (the last page is %" PRIu64 ")\n", name, *missing,
            pages);
    return EXIT_INPUT;
  }
  return job.refused ? EXIT_INPUT : EXIT_OK;
}

ExitStatus dump_stream(int descriptor, const Options& options) {
  const char* name = options.file == "-" ? "standard input" : options.file.c_str();
  RasterStream stream(descriptor);
  if (!stream.open()) {
    fprintf(stderr, "brenvellis-rasterdump: %s: %s\n", name, stream.error().c_str());
    return EXIT_INPUT;
  }
  Job job{.options = options, .stream = stream, .progress = {}};
  while (job.page < options.pages.last()) {
    ++job.page;
    const RasterStream::Next next = stream.next_page();
    if (next == RasterStream::Next::End) {
      return end_of_stream(job, name);
    }
    if (next == RasterStream::Next::Failure) {
      complain();
      fprintf(stderr, "page %" PRIu64 ": %s\n", job.page, stream.error().c_str());
      return EXIT_INPUT;
    }
    const bool chosen = options.pages.contains(job.page);
    ExitStatus status = chosen && !options.quiet ? show_header(job) : EXIT_OK;
    if (status == EXIT_OK) {
      status = chosen ? read_page(job) : PageReader{stream, job.page, job.progress, stdout}.skip();
    }
    job.progress.clear();
    if (status != EXIT_OK) {
      return status;
    }
  }
  return job.refused ? EXIT_INPUT : EXIT_OK;
}

/// @return why the templates do not fit; empty if they do.
std::string contradiction(const Options& options) {
  const bool capture = !options.capture.text().empty();
  if (capture && !options.capture.has('C') && !options.capture.has('P') && !options.pages.is_one_page()) {
    return "--capture: '" + options.capture.text() + "' names only one file (add %C or %P)";
  }
  return {};
}

/// The value of an option that is a template.
OptionValue template_in(FileName& target) {
  return text_that(
      [&target](const std::string& text) {
        target = FileName(text);
        return !text.empty();
      },
      "a file name");
}

CommandLine command_line(Options& options) {
  const auto read_pages = [&options](const std::string& text) {
    const auto pages = PageRanges::parse(text);
    options.pages = pages.value_or(PageRanges());
    return pages.has_value();
  };
  return {
      {.name = "brenvellis-rasterdump",
       .version = BRENVELLIS_VERSION,
       .summary = "Shows the page headers of a CUPS raster stream on standard output, and saves its pages as "
                  "pictures or raw bands. Reads standard input if FILE is - or missing.",
       .arguments = "[FILE]",
       .notes = "Exit status:\n"
                "  0  done\n"
                "  1  the input is invalid or cannot be read\n"
                "  2  usage error\n"
                "  3  an output cannot be written\n",
       .usage_error = EXIT_USAGE,
       .output_error = EXIT_OUTPUT},
      {{.name = "all", .help = "Show all fields of a version 2 header", .value = flag(options.all)},
       {.name = "json",
        .help = "Show one JSON object per page, with all fields",
        .value = flag(options.json)},
       {.name = "quiet",
        .help = "Do not show the headers",
        .value = flag(options.quiet),
        .excludes = {"all", "json"}},
       {.name = "page",
        .placeholder = "PAGES",
        .help = "Only these pages, such as 2-4,7",
        .value = text_that(read_pages, "page numbers from 1 and ranges, such as 2-4,7")},
       {.name = "pnm",
        .placeholder = "TEMPLATE",
        .help = "Save each page as a PBM, PGM or PPM picture, or as a PAM if the name ends in .pam; "
                "TEMPLATE may contain %P for the page, %W and %H for the size, %T for the time",
        .value = template_in(options.pnm),
        .excludes = {"capture"}},
       {.name = "bands",
        .placeholder = "ROWS",
        .help = "Cut each page into bands of ROWS lines",
        .value =
            number_from(1, UINT32_MAX, [&](auto rows) { options.bands = static_cast<std::uint32_t>(rows); }),
        .needs = "capture"},
       {.name = "capture",
        .placeholder = "TEMPLATE",
        .help = "Save each band, without a header, to the file of this name; also %B for bits per pixel, %C "
                "for a running number, %L for the plane",
        .value = template_in(options.capture),
        .needs = "bands"}}};
}

ExitStatus run(int argc, char** argv) {
  Options options;
  CommandLine line = command_line(options);
  if (const auto status = line.read(argc, argv, 1)) {
    return static_cast<ExitStatus>(*status);
  }
  if (!line.arguments().empty()) {
    options.file = line.arguments().front();
  }
  if (const std::string why = contradiction(options); !why.empty()) {
    return static_cast<ExitStatus>(line.refuse(why));
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

/// Opens closed standard descriptors. Otherwise the next file opened would take the number of one of them,
/// and messages would go into a saved band. The substitute can be neither read nor written.
void fill_closed_descriptors() {
  int descriptor = 0;
  do {
    descriptor = open("/", O_PATH | O_CLOEXEC);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) {
    close(descriptor);
  }
}

/// @return EXIT_OUTPUT if `status` is EXIT_OK but standard output or standard error failed, otherwise
/// `status`.
ExitStatus check_output(ExitStatus status) {
  if (status == EXIT_OUTPUT) {
    return status;
  }
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
