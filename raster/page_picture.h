// SPDX-License-Identifier: Apache-2.0
// The conversion of raster lines into those of a netpbm picture.
#pragma once

#include <cups/raster.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// Returns why no picture can be made of a page with this header; empty if it is supported.
std::string picture_refusal(const cups_page_header2_t& header);

/// PagePicture converts the lines of a page into those of a netpbm picture: a PBM for one bit of black and
/// white, otherwise a PGM or PPM with 8 or 16 bits. Colours of one bit become 0 and 255. Inks are converted
/// to light as PostScript defines it: red is 1 - min(1, cyan + black).
class PagePicture {
 public:
  /// @param header  a header for which picture_refusal() is empty.
  /// @param pam     whether to make a PAM, in which CMYK remains CMYK.
  PagePicture(const cups_page_header2_t& header, bool pam);

  /// Returns the file header of a picture with `lines` lines, padded to the length of the header for
  /// `planned` lines, which are at least as many.
  [[nodiscard]] std::string start(std::uint64_t lines, std::uint64_t planned) const;
  /// Returns the size of a line of the picture in bytes.
  [[nodiscard]] std::uint64_t line_size() const;
  /// Returns "PBM", "PGM", "PPM" or "PAM".
  [[nodiscard]] const char* format() const;
  /// Converts a line.
  ///
  /// @param pixels  the line in the stream; in planar order, the lines of all planes one after another.
  /// @param line    receives line_size() bytes.
  void convert(const unsigned char* pixels, unsigned char* line) const;

 private:
  enum class Kind : std::uint8_t { Bitmap, Gray, Rgb, Cmyk };
  static constexpr unsigned MOST_COLORS = 4;
  static constexpr std::size_t BLOCK = 1024;
  using Samples = std::array<std::array<std::uint16_t, BLOCK>, MOST_COLORS>;

  void read_samples(const unsigned char* pixels, std::uint64_t first, std::size_t count,
                    Samples& samples) const;
  void inks_to_light(std::size_t count, Samples& samples) const;
  [[nodiscard]] unsigned channels() const;

  Kind kind_;
  bool pam_;
  bool ink_;
  unsigned colors_;
  unsigned bits_;
  std::uint64_t width_;
  std::uint16_t maximum_;
  std::uint64_t step_;  ///< bits from a sample to the next sample of the same colour
  /// Bits from the start of the line to the first sample of gray or red or cyan, of green or magenta, and so
  /// on.
  std::array<std::uint64_t, MOST_COLORS> first_{};
};
