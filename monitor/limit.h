// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "monitor/reading.h"

/// Limit is what may be left on a ribbon: prints, or percent of the ribbon.
struct Limit {
  enum class Unit : std::uint8_t { Prints, Percent };

  int number = 0;
  Unit unit = Unit::Prints;

  bool operator==(const Limit&) const = default;
};

/// Limits are the levels at or under which a ribbon is low, and at or under which it is an error.
struct Limits {
  Limit low = {10, Limit::Unit::Percent};
  Limit critical = {0, Limit::Unit::Prints};
};

/// Reads "12" (prints) or "12%"; nothing if the text is neither.
[[nodiscard]] std::optional<Limit> parse_limit(std::string_view text);

/// "12" or "12%".
[[nodiscard]] std::string to_text(const Limit& limit);

/// Whether the ribbon's level is known and at or under the limit. Percents are whole, rounded down. Where the
/// prints are not known, only an empty ribbon is under a limit in prints.
[[nodiscard]] bool is_under(const Reading& reading, const Limit& limit);

/// The fewest prints of so many that are above the limit.
[[nodiscard]] int fewest_above(const Limit& limit, int total);
