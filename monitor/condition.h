// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/report.h"

/// Level is how much a condition needs a person: not at all, before long, or now.
enum class Level : std::uint8_t { Ok, Attention, Trouble };

/// "ok", "attention", "trouble".
[[nodiscard]] const char* name_of(Level level);

/// Condition is what a person wants to be told about a queue or a print server when it changes. How many
/// prints are left is not part of it.
struct Condition {
  Level level = Level::Ok;
  /// Why, as keywords for programs, the worst first: "error-0008-2660", "empty", "critical", "stuck",
  /// "down", "unreachable", "missing", "paused", "rejecting", "unread", "unsupported", "unknown", "low", or a
  /// state reason that ends in "-error".
  std::vector<std::string> causes;

  bool operator==(const Condition&) const = default;
};

/// The condition of a queue whose print server could be read. It is Ok exactly if judge() says Well.
[[nodiscard]] Condition condition_of(const QueueReport& queue, const Limits& limits);

/// The condition of a print server itself.
[[nodiscard]] Condition condition_of(const ServerReport& server);
