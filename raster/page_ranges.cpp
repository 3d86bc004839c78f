// SPDX-License-Identifier: Apache-2.0
#include "raster/page_ranges.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

namespace {

constexpr std::uint64_t NO_END = std::numeric_limits<std::uint64_t>::max();

/// Parses a page number of at most 32 bits without a sign.
std::optional<std::uint64_t> number(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value == 0) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

std::optional<PageRanges> PageRanges::parse(std::string_view text) {
  PageRanges pages;
  for (bool more = true; more;) {
    const std::size_t comma = text.find(',');
    more = comma != std::string_view::npos;
    const std::string_view range = text.substr(0, comma);
    text.remove_prefix(more ? comma + 1 : text.size());

    const std::size_t dash = range.find('-');
    const auto first = number(range.substr(0, dash));
    auto last = first;
    if (dash != std::string_view::npos) {
      last = dash + 1 == range.size() ? NO_END : number(range.substr(dash + 1));
    }
    if (!first || !last || *last < *first) {
      return std::nullopt;
    }
    pages.ranges_.emplace_back(*first, *last);
  }
  return pages;
}

bool PageRanges::contains(std::uint64_t page) const {
  return ranges_.empty() || std::ranges::any_of(ranges_, [page](const auto& range) {
           return range.first <= page && page <= range.second;
         });
}

std::uint64_t PageRanges::last() const {
  std::uint64_t last = ranges_.empty() ? NO_END : 0;
  for (const auto& range : ranges_) {
    last = std::max(last, range.second);
  }
  return last;
}

bool PageRanges::is_one_page() const {
  return !ranges_.empty() && std::ranges::all_of(ranges_, [this](const auto& range) {
    return range.first == range.second && range.first == ranges_.front().first;
  });
}

std::optional<std::uint64_t> PageRanges::missing_from(std::uint64_t pages) const {
  std::optional<std::uint64_t> missing;
  for (const auto& [first, last] : ranges_) {
    const std::uint64_t candidate = std::max(first, pages + 1);
    if (first > pages || (last > pages && last != NO_END)) {
      missing = std::min(missing.value_or(NO_END), candidate);
    }
  }
  return missing;
}
