// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/raster.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// Says why no picture can be made of a page with this header; empty if one can.
std::string picture_refusal(const cups_page_header2_t& header);

/// PagePicture turns the lines of a page into those of a netpbm picture that every image program shows: a PBM
/// for one bit of black or white, otherwise a PGM or PPM with 8 or 16 bits. Single bits of colours become 0
/// and 255. Inks become light as PostScript defines it: red is 1 - min(1, cyan + black).
class PagePicture {
 public:
  /// @param header  one for which picture_refusal() is empty.
  /// @param pam     makes a PAM, in which CMYK stays CMYK.
  PagePicture(const cups_page_header2_t& header, bool pam);

  /// The start of the file of a picture that has so many lines. It is as long as that of one with more lines,
  /// `planned`.
  [[nodiscard]] std::string start(std::uint64_t lines, std::uint64_t planned) const;
  /// The size of one of the picture's lines in bytes.
  [[nodiscard]] std::uint64_t line_size() const;
  /// "PBM", "PGM", "PPM" or "PAM".
  [[nodiscard]] const char* format() const;
  /// Makes a line of the picture.
  ///
  /// @param pixels  the line as it is in the stream; in planar order that of each plane, one behind the
  /// other.
  /// @param line    gets line_size() bytes.
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
  std::uint64_t step_;  ///< bits from a sample to the same colour's next one
  /// Bits from the line's start to the first sample of gray or red or cyan, green or magenta, and so on.
  std::array<std::uint64_t, MOST_COLORS> first_{};
};
