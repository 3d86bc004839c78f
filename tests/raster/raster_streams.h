// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/raster.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

/// Page is a page of a raster stream: its header and all its lines.
struct Page {
  cups_page_header2_t header;
  std::string pixels;
};

/// A page with a pattern that repeats neither along a line nor from line to line.
/// `variation` makes pages different.
Page make_page(unsigned width, unsigned height, unsigned variation = 0);
/// Returns such a page in another layout. The other arguments determine the bytes per line and bits per
/// pixel.
Page make_page(unsigned width, unsigned height, unsigned bits_per_color, unsigned colors, cups_order_t order,
               cups_cspace_t space);

/// Two pages that differ in size and pixels.
inline const std::vector<Page> TWO_PAGES = {make_page(10, 20), make_page(13, 9, 5)};

/// The program's exit statuses for errors of these kinds.
inline constexpr int INPUT = 1;
inline constexpr int USAGE = 2;
inline constexpr int OUTPUT = 3;

/// Gives an enumeration of a header any value.
template <typename Enumeration>
void set_value(Enumeration& field, unsigned value) {
  static_assert(sizeof field == sizeof value);
  std::memcpy(&field, &value, sizeof value);
}

/// The stream as the CUPS imaging library writes it.
std::string write_stream(const std::vector<Page>& pages, cups_mode_t mode);

/// A version 1 stream, which that library only reads, in the machine's byte order.
std::string write_first_version(const std::vector<Page>& pages);

/// Returns an uncompressed stream in the other byte order.
std::string other_byte_order(const std::string& stream, const std::vector<Page>& pages);

/// Returns the program's output for the pages of a stream.
std::string headers_of(const std::vector<Page>& pages,
                       const std::string& kind = "CUPS raster version 3, uncompressed, little-endian",
                       int first_page = 1);

/// Rasterdump is a test of the program with a folder for its files.
class Rasterdump : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
  /// Writes a file into the folder and returns its path.
  [[nodiscard]] std::string file(const std::string& content, const std::string& name = "stream") const;
  /// Runs the program to its end.
  static ProgramResult run(std::vector<std::string> arguments, const std::string& input = {});
  /// The content of every saved band (*.raw) by its name.
  [[nodiscard]] std::map<std::string, std::string> bands() const;
  /// The saved bands joined in the order of their names.
  [[nodiscard]] std::string joined_bands() const;

 private:
  TemporaryFolder folder_;
};
