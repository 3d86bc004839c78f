// SPDX-License-Identifier: Apache-2.0
// The template of the names of saved files, as the options --capture and --pnm take it.
#pragma once

#include <cstdint>
#include <string>

#include "raster/band_image_capture.h"

/// FileName is the template of a file name. "%P" is the page number and "%L" the plane number (1 unless the
/// order is planar). format_string_util() expands the others.
class FileName {
 public:
  FileName() = default;
  explicit FileName(std::string templ) : templ_(std::move(templ)) {}

  /// Returns whether the template contains "%" and this letter.
  [[nodiscard]] bool has(char letter) const;
  /// Returns whether the template ends with this suffix.
  [[nodiscard]] bool ends_with(const char* suffix) const { return templ_.ends_with(suffix); }
  /// Returns the name of the next file. Each "%C" increments its number.
  [[nodiscard]] std::string expand(std::uint64_t page, std::uint64_t plane,
                                   const tagLNBandImageParams& band) const;
  /// Returns the template.
  [[nodiscard]] const std::string& text() const { return templ_; }

 private:
  std::string templ_;
};
