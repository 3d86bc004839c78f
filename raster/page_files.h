// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>

#include "raster/file_name.h"
#include "raster/raster_stream.h"
#include "raster/stream_progress.h"

enum ExitStatus : std::uint8_t { EXIT_OK = 0, EXIT_INPUT = 1, EXIT_USAGE = 2, EXIT_OUTPUT = 3 };

/// PageReader reads the pixels of the page whose header the stream has, in one of three ways. Each says on
/// standard error what went wrong.
struct PageReader {
  RasterStream& stream;
  std::uint64_t page;  ///< its number, from 1
  StreamProgress& progress;
  FILE* saved;  ///< gets a line for every file

  /// Keeps nothing, and takes little memory however long the lines are.
  [[nodiscard]] ExitStatus skip() const;
  /// Cuts the page into raw files of so many lines; a new one begins at each plane. When the page breaks off,
  /// the lines that came are kept.
  [[nodiscard]] ExitStatus save_bands(const FileName& name, std::uint32_t rows) const;
  /// Makes a netpbm picture of the page, see picture_refusal(). When the page breaks off, the picture has the
  /// lines that came.
  [[nodiscard]] ExitStatus save_picture(const FileName& name) const;

 private:
  struct Band;
  ExitStatus save_band(const FileName& name, Band& band) const;
  void report_break(std::uint64_t line) const;
  ExitStatus report_unsaved(const char* name, const char* why) const;
};
