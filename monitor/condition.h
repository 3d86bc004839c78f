// SPDX-License-Identifier: Apache-2.0
// The conditions whose changes are reported.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/report.h"

/// Level is the urgency of a condition: none, soon, or now.
enum class Level : std::uint8_t { Ok, Attention, Trouble };

/// "ok", "attention", "trouble".
[[nodiscard]] const char* name_of(Level level);

/// Condition is the part of a queue's or a print server's state whose changes are reported. It does not
/// include the number of prints left.
struct Condition {
  Level level = Level::Ok;
  /// Why, as keywords for programs, the worst first: "error-0008-2660", "empty", "critical", "stuck",
  /// "down", "unreachable", "missing", "paused", "rejecting", "unread", "unsupported", "unknown", "low", or a
  /// state reason that ends in "-error".
  std::vector<std::string> causes;

  bool operator==(const Condition&) const = default;
};

/// Returns the condition of a queue whose print server could be read. It is Ok if and only if judge() returns
/// Well.
[[nodiscard]] Condition condition_of(const QueueReport& queue, const Limits& limits);

/// Returns the condition of a print server.
[[nodiscard]] Condition condition_of(const ServerReport& server);
