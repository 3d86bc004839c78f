// SPDX-License-Identifier: Apache-2.0
// The reading of a CUPS raster stream, page by page.
#pragma once

#include <cups/raster.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// StreamKind describes the format of a stream.
struct StreamKind {
  const char* format = "CUPS";  ///< "CUPS", "PWG" or "Apple"
  int version = 0;              ///< of the format: 1 to 3, or 0 for Apple raster, which has no version
  bool compressed = false;
  bool big_endian = false;
};

/// RasterStream reads a raster stream of any format that the CUPS imaging library supports. Unlike the
/// library, it distinguishes a complete stream from one that ends early.
class RasterStream {
 public:
  enum class Next {
    Page,     ///< header() is the header of the next page
    End,      ///< the stream ended after the last page
    Failure,  ///< see error()
  };

  /// @param descriptor  the descriptor to read from; it is not closed.
  explicit RasterStream(int descriptor) : descriptor_(descriptor) {}
  ~RasterStream();
  RasterStream(const RasterStream&) = delete;
  RasterStream& operator=(const RasterStream&) = delete;

  /// Reads the start of the stream; must be called first, and once. Returns false if it is not a raster
  /// stream; see error().
  bool open();
  /// Reads the next page's header. All pixels of the previous page must have been read.
  Next next_page();
  /// Returns the descriptor that the stream is read from.
  [[nodiscard]] int descriptor() const { return descriptor_; }
  /// Returns the header of the current page.
  [[nodiscard]] const cups_page_header2_t& header() const { return header_; }
  /// Returns the stream's format; valid once there is a header().
  [[nodiscard]] StreamKind kind() const;
  /// Returns the number of the page's planes: in planar order one per colour, otherwise 1.
  [[nodiscard]] std::uint64_t planes() const;
  /// Returns the number of the page's lines in all planes.
  [[nodiscard]] std::uint64_t lines() const { return planes() * header_.cupsHeight; }
  /// Fills `pixels` with whole lines, or with a part of a line if its size is even and the rest is read next.
  /// Returns false if the pixels cannot be read; see error().
  bool read_pixels(std::span<unsigned char> pixels);

  /// Returns why the last call failed.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  static ssize_t read_for_cups(void* stream, unsigned char* buffer, size_t size);
  ssize_t read_some(unsigned char* buffer, size_t size);
  [[nodiscard]] std::string reason(const char* if_the_bytes_are_wrong) const;

  int descriptor_;
  cups_raster_t* raster_ = nullptr;
  cups_page_header2_t header_ = {};
  std::string error_;

  bool ended_ = false;
  int read_error_ = 0;
  std::uint64_t received_ = 0;
  std::array<unsigned char, 4> sync_{};  ///< the first bytes received
  /// The size of the library's first read since this was last reset.
  std::optional<std::size_t> first_request_;
  std::size_t header_size_ = 0;
};
