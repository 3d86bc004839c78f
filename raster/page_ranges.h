// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

/// PageRanges is a choice of pages, such as "2-4,7" or "3-". Without a range it holds every page.
class PageRanges {
 public:
  /// Reads page numbers and ranges between commas; nothing if the text is not that.
  static std::optional<PageRanges> parse(std::string_view text);

  [[nodiscard]] bool contains(std::uint64_t page) const;
  /// No page behind this one is chosen; the largest number if that is not known.
  [[nodiscard]] std::uint64_t last() const;
  [[nodiscard]] bool is_one_page() const;
  /// The first chosen page that a stream of so many pages does not have; nothing if it has all. A range
  /// without an end asks for its first page only.
  [[nodiscard]] std::optional<std::uint64_t> missing_from(std::uint64_t pages) const;

 private:
  /// First and last page, both included.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges_;
};
