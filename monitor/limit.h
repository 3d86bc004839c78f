// SPDX-License-Identifier: Apache-2.0
// The limits below which a ribbon is low or critical.
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

/// Limits are the levels at or below which a ribbon is low, and at or below which it is critical.
struct Limits {
  Limit low = {10, Limit::Unit::Percent};
  Limit critical = {0, Limit::Unit::Prints};
};

/// Reads "12" (prints) or "12%"; nothing if the text is neither.
[[nodiscard]] std::optional<Limit> parse_limit(std::string_view text);

/// "12" or "12%".
[[nodiscard]] std::string to_text(const Limit& limit);

/// Returns whether the ribbon's level is known and at or below the limit. Percentages are rounded down. If
/// the number of prints is not known, only an empty ribbon is below a limit in prints.
[[nodiscard]] bool is_under(const Reading& reading, const Limit& limit);

/// Returns the smallest number of prints above the limit, for a ribbon of `total` prints. Percentages are
/// rounded down.
[[nodiscard]] int fewest_above(const Limit& limit, int total);
