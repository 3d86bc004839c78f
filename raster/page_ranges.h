// SPDX-License-Identifier: Apache-2.0
// The choice of pages, as the option --page takes it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

/// PageRanges is a list of page ranges, such as "2-4,7" or "3-". An empty list contains all pages.
class PageRanges {
 public:
  /// Parses page numbers and ranges separated by commas. Returns nothing if the text is invalid.
  static std::optional<PageRanges> parse(std::string_view text);

  /// Returns whether the page is chosen.
  [[nodiscard]] bool contains(std::uint64_t page) const;
  /// Returns the last chosen page, or the largest number if the ranges are open.
  [[nodiscard]] std::uint64_t last() const;
  /// Returns whether exactly one page is chosen.
  [[nodiscard]] bool is_one_page() const;
  /// Returns the first chosen page that a stream of `pages` pages does not have, if any. A range without an
  /// end requires only its first page.
  [[nodiscard]] std::optional<std::uint64_t> missing_from(std::uint64_t pages) const;

 private:
  /// The first and last page of each range, inclusive.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges_;
};
