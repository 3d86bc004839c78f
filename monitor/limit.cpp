// SPDX-License-Identifier: Apache-2.0
#include "monitor/limit.h"

#include <charconv>
#include <cstdint>
#include <system_error>

namespace {

constexpr int MOST_PERCENT = 100;
constexpr int MOST_PRINTS = 65535;

}  // namespace

std::optional<Limit> parse_limit(std::string_view text) {
  Limit limit;
  if (text.ends_with('%')) {
    limit.unit = Limit::Unit::Percent;
    text.remove_suffix(1);
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), limit.number);
  const int most = limit.unit == Limit::Unit::Percent ? MOST_PERCENT : MOST_PRINTS;
  if (error != std::errc() || end != text.data() + text.size() || limit.number < 0 || limit.number > most) {
    return std::nullopt;
  }
  return limit;
}

std::string to_text(const Limit& limit) {
  return std::to_string(limit.number) + (limit.unit == Limit::Unit::Percent ? "%" : "");
}

bool is_under(const Reading& reading, const Limit& limit) {
  if (!reading.level_percent) {
    return false;
  }
  if (limit.unit == Limit::Unit::Percent) {
    return *reading.level_percent <= limit.number;
  }
  return reading.prints_remaining ? *reading.prints_remaining <= limit.number : *reading.level_percent == 0;
}

int fewest_above(const Limit& limit, int total) {
  if (limit.unit == Limit::Unit::Prints) {
    return limit.number + 1;
  }
  // The level is the prints left as a whole percentage, rounded down.
  constexpr int whole = 100;
  return static_cast<int>(((std::int64_t{limit.number} + 1) * total + whole - 1) / whole);
}
