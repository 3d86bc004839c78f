// SPDX-License-Identifier: Apache-2.0
#include "filter/state_report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

namespace {

bool matches(const PrinterState& state, const PrinterStateReason& row) {
  const unsigned first = row.minor & 0xffU;
  const unsigned last = row.minor < 256 ? first : row.minor >> 8U;
  // On purpose, a range whose first is above its last matches no state, not even Any.
  for (unsigned low = first; low <= last; ++low) {
    if (state == PrinterState::Error(static_cast<std::uint16_t>((unsigned{row.major} << 8U) + low))) {
      return true;
    }
  }
  return false;
}

/// KeywordOfRow is a keyword and one of the rows that raise it.
struct KeywordOfRow {
  std::string_view keyword;
  const PrinterStateReason* row;
};

/// Sorts a table's keywords into the order of the clearing lines.
constexpr void sort_keywords(std::span<const PrinterStateReason> table, std::span<KeywordOfRow> sorted) {
  auto next = sorted.begin();
  for (const auto& row : table) {
    for (const char* keyword : row.keywords()) {
      *next++ = {keyword, &row};
    }
  }
  std::ranges::sort(sorted, {}, &KeywordOfRow::keyword);
}

constexpr std::size_t count_keywords(std::span<const PrinterStateReason> table) {
  std::size_t count = 0;
  for (const auto& row : table) {
    count += row.keywords().size();
  }
  return count;
}

// The shipped table never changes, so sort its keywords at compile time.
constexpr auto SORTED_REASONS = [] {
  std::array<KeywordOfRow, count_keywords(PRINTER_STATE_REASONS)> sorted;
  sort_keywords(PRINTER_STATE_REASONS, sorted);
  return sorted;
}();

constexpr const char* CLEARED = "STATE: -%s\n";

// The clearing lines never change either, so build them at compile time. Formatting a hundred lines would
// cost more than the rest of a report.
constexpr auto CLEARING_LINES = [] {
  constexpr std::string_view format = CLEARED;
  constexpr std::size_t hole = format.find("%s");
  std::array<std::array<char, 64>, SORTED_REASONS.size()> lines{};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    char* end = std::ranges::copy(format.substr(0, hole), lines[i].data()).out;
    end = std::ranges::copy(SORTED_REASONS[i].keyword, end).out;
    std::ranges::copy(format.substr(hole + 2), end);
  }
  return lines;
}();

void raise(const PrinterState& state, const char* keyword) {
  fprintf(stderr, "STATE: +%s\n", keyword);
  fprintf(stderr, "DEBUG: %s %s\n", keyword, state.to_string().c_str());
}

template <typename Clear>
void report(const PrinterState& state, std::span<const PrinterStateReason> table,
            std::span<const KeywordOfRow> sorted, Clear clear) {
  // On purpose, every report has one line per keyword and nothing is flushed.
  bool matched = false;
  for (const auto& row : table) {
    if (matches(state, row)) {
      matched = true;
      for (const char* keyword : row.keywords()) {
        raise(state, keyword);
      }
    }
  }
  if (!matched) {
    raise(state, FALLBACK_REASON);
    // The line ends with a blank, on purpose.
    fprintf(stderr, "DEBUG: error_number part mismatch processing \n");
  }

  for (auto first = sorted.begin(); first != sorted.end();) {
    const auto next = std::find_if(std::next(first), sorted.end(),
                                   [&](const auto& other) { return other.keyword != first->keyword; });
    const bool raised = (!matched && first->keyword == FALLBACK_REASON) ||
                        std::any_of(first, next, [&](const auto& of) { return matches(state, *of.row); });
    if (!raised) {
      clear(static_cast<std::size_t>(first - sorted.begin()));
    }
    first = next;
  }
}

}  // namespace

void update_printer_state(const PrinterState& state) {
  report(state, PRINTER_STATE_REASONS, SORTED_REASONS,
         [](std::size_t i) { fputs(CLEARING_LINES[i].data(), stderr); });
}

void update_printer_state_from_table(const PrinterState& state, std::span<const PrinterStateReason> table) {
  std::vector<KeywordOfRow> sorted(count_keywords(table));
  sort_keywords(table, sorted);
  report(state, table, sorted, [&](std::size_t i) { fprintf(stderr, CLEARED, sorted[i].keyword.data()); });
}
