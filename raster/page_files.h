// SPDX-License-Identifier: Apache-2.0
// The reading of a page's pixels, and the saving as bands or as a picture.
#pragma once

#include <cstdint>
#include <cstdio>

#include "raster/file_name.h"
#include "raster/raster_stream.h"
#include "raster/stream_progress.h"

/// ExitStatus is the program's exit status; see the manual page.
enum ExitStatus : std::uint8_t { EXIT_OK = 0, EXIT_INPUT = 1, EXIT_USAGE = 2, EXIT_OUTPUT = 3 };

/// PageReader reads the pixels of the stream's current page in one of three ways. All of them report errors
/// on standard error.
struct PageReader {
  RasterStream& stream;
  std::uint64_t page;  ///< the page number, from 1
  StreamProgress& progress;
  FILE* saved;  ///< where the line about each saved file goes

  /// Discards the pixels. The memory used does not depend on the length of the lines.
  [[nodiscard]] ExitStatus skip() const;
  /// Saves the page in raw files of `rows` lines. Each plane begins a new file. If the stream ends early, the
  /// lines received so far are saved.
  [[nodiscard]] ExitStatus save_bands(const FileName& name, std::uint32_t rows) const;
  /// Saves a netpbm picture of the page; see picture_refusal(). If the stream ends early, the picture has the
  /// lines received so far.
  [[nodiscard]] ExitStatus save_picture(const FileName& name) const;

 private:
  struct Band;
  ExitStatus save_band(const FileName& name, Band& band) const;
  void report_break(std::uint64_t line) const;
  ExitStatus report_unsaved(const char* name, const char* why) const;
};
