// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_state_reasons.h"

#include <algorithm>
#include <array>
#include <string_view>

// Compile-time checks of the table's invariants.
namespace {

constexpr unsigned code_of(const PrinterStateReason& row) {
  return unsigned{row.major} << 8U | row.minor;
}

constexpr bool has_one_code(const PrinterStateReason& row) {
  return row.major < 256 && row.minor < 256;
}

/// Returns whether the keyword is "com.brenvellis-errorNNNN_XXYY" with the row's code as XXYY, or
/// "com.brenvellis-errorNNNN" with the row's code as NNNN.
constexpr bool is_named_after_its_code(const PrinterStateReason& row) {
  constexpr std::string_view PREFIX = "com.brenvellis-error";
  const std::string_view keyword = row.keywords().front();
  const std::size_t group_only = PREFIX.size() + 4;
  if (!keyword.starts_with(PREFIX) ||
      (keyword.size() != group_only && (keyword.size() != group_only + 5 || keyword[group_only] != '_'))) {
    return false;
  }
  unsigned code = 0;
  for (const char digit : keyword.substr(keyword.size() - 4)) {
    if (digit < '0' || digit > '9') {
      return false;
    }
    code = code << 4U | static_cast<unsigned>(digit - '0');
  }
  return code == code_of(row);
}

constexpr bool is_null_behind_its_keywords(const PrinterStateReason& row) {
  return std::ranges::all_of(std::span(row.reasons).subspan(row.keywords().size()),
                             [](const char* keyword) { return keyword == nullptr; });
}

constexpr auto TABLE = std::span(PRINTER_STATE_REASONS);
constexpr auto WITH_KEYWORD = TABLE.subspan(1);

constexpr bool keywords_are_distinct() {
  std::array<std::string_view, WITH_KEYWORD.size()> keywords;
  std::ranges::transform(WITH_KEYWORD, keywords.begin(),
                         [](const auto& row) { return row.keywords().front(); });
  std::ranges::sort(keywords);
  return std::ranges::adjacent_find(keywords) == keywords.end();
}

static_assert(std::ranges::all_of(TABLE, has_one_code));
static_assert(std::ranges::is_sorted(TABLE, std::ranges::less_equal{}, code_of) &&
              std::ranges::adjacent_find(TABLE, {}, code_of) == TABLE.end());
static_assert(std::ranges::all_of(TABLE, is_null_behind_its_keywords));
static_assert(code_of(TABLE.front()) == 0 && TABLE.front().keywords().empty());
static_assert(std::ranges::all_of(WITH_KEYWORD, [](const auto& row) { return row.keywords().size() == 1; }));
static_assert(std::ranges::all_of(WITH_KEYWORD, is_named_after_its_code));
static_assert(keywords_are_distinct());

}  // namespace
