// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "raster/band_image_capture.h"

/// FileName is a template for the names of the files that the program writes. "%P" stands for the page's
/// number,
/// "%L" for that of the plane (in planar order, otherwise 1); format_string_util() has the others.
class FileName {
 public:
  FileName() = default;
  explicit FileName(std::string templ) : templ_(std::move(templ)) {}

  /// @return whether "%" and this letter are in the template.
  [[nodiscard]] bool has(char letter) const;
  [[nodiscard]] bool ends_with(const char* suffix) const { return templ_.ends_with(suffix); }
  /// The name of the next file; every "%C" takes a number.
  [[nodiscard]] std::string expand(std::uint64_t page, std::uint64_t plane,
                                   const tagLNBandImageParams& band) const;
  [[nodiscard]] const std::string& text() const { return templ_; }

 private:
  std::string templ_;
};
