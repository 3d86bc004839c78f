// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/raster.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// StreamKind is what the first four bytes of a stream, and the first header of a PWG one, say about it.
struct StreamKind {
  const char* format = "CUPS";  ///< or "PWG" or "Apple"
  int version = 0;              ///< of the format: 1 to 3; 0 for Apple raster, which has none
  bool compressed = false;
  bool big_endian = false;
};

/// RasterStream reads a CUPS raster stream of any kind that the CUPS imaging library reads, and tells a
/// stream that is at its end from one that breaks off, which the library does not.
class RasterStream {
 public:
  enum class Next {
    Page,     ///< header() is that of the next page
    End,      ///< the stream ended behind the last page
    Failure,  ///< see error()
  };

  /// @param descriptor  where the stream is read from; stays the caller's.
  explicit RasterStream(int descriptor) : descriptor_(descriptor) {}
  ~RasterStream();
  RasterStream(const RasterStream&) = delete;
  RasterStream& operator=(const RasterStream&) = delete;

  /// Reads the start of the stream, first of all and once. False if it is no raster stream: see error().
  bool open();
  /// Reads the next page's header; all pixels of the page before must have been read.
  Next next_page();
  [[nodiscard]] int descriptor() const { return descriptor_; }
  [[nodiscard]] const cups_page_header2_t& header() const { return header_; }
  /// Valid while header() is.
  [[nodiscard]] StreamKind kind() const;
  /// The page's planes: in planar order one for each colour, which follow each other; otherwise 1.
  [[nodiscard]] std::uint64_t planes() const;
  /// The lines that the page has in the stream: those of all planes.
  [[nodiscard]] std::uint64_t lines() const { return planes() * header_.cupsHeight; }
  /// Fills `pixels`: whole lines, or a part of one line of an even size if the rest is read next.
  /// False if they are not there: see error().
  bool read_pixels(std::span<unsigned char> pixels);

  /// Why the last call failed.
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
  /// The first read that the library asked for since this was last reset.
  std::optional<std::size_t> first_request_;
  std::size_t header_size_ = 0;
};
