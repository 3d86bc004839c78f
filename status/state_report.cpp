#include "status/state_report.h"

#include <cstdio>
#include <set>
#include <string_view>

namespace {

bool matches(const PrinterState& state, const PrinterStateReason& row) {
  const unsigned first = row.minor & 0xffU;
  const unsigned last = row.minor < 256 ? first : row.minor >> 8U;
  for (unsigned low = first; low <= last; ++low) {
    if (state == PrinterState::Error(static_cast<std::uint16_t>((row.major << 8U) + low))) {
      return true;
    }
  }
  return false;
}

}  // namespace

void update_printer_state(const PrinterState& state) {
  update_printer_state(state, PRINTER_STATE_REASONS);
}

void update_printer_state(const PrinterState& state, std::span<const PrinterStateReason> table) {
  std::set<std::string_view> reasons_to_clear;
  for (const auto& row : table) {
    for (const char* keyword : row.keywords()) {
      reasons_to_clear.insert(keyword);
    }
  }

  const auto raise = [&](const char* keyword) {
    reasons_to_clear.erase(keyword);
    fprintf(stderr, "STATE: +%s\n", keyword);
    fprintf(stderr, "DEBUG: %s %s\n", keyword, state.to_string().c_str());
  };

  bool matched = false;
  for (const auto& row : table) {
    if (matches(state, row)) {
      matched = true;
      for (const char* keyword : row.keywords()) {
        raise(keyword);
      }
    }
  }
  if (!matched) {
    raise(FALLBACK_REASON);
    fprintf(stderr, "DEBUG: error_number part mismatch processing \n");
  }

  for (const std::string_view keyword : reasons_to_clear) {
    fprintf(stderr, "STATE: -%s\n", keyword.data());
  }
}
