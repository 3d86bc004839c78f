// SPDX-License-Identifier: Apache-2.0
#include "monitor/condition.h"

#include <algorithm>

namespace {

/// Whether the printer itself did not answer: the keyword of a missing answer, or a command job that got
/// nowhere. Which of the two it is depends on the backend.
bool is_silent(const QueueReport& queue) {
  return queue.outcome == Outcome::TimedOut || queue.reading.answered == false;
}

}  // namespace

const char* name_of(Level level) {
  switch (level) {
    case Level::Ok:
      return "ok";
    case Level::Attention:
      return "attention";
    case Level::Trouble:
      break;
  }
  return "trouble";
}

Condition condition_of(const QueueReport& queue, const Limits& limits) {
  const auto& reading = queue.reading;
  Condition condition;
  const auto add = [&](Level level, std::string cause) {
    condition.level = std::max(condition.level, level);
    if (std::ranges::find(condition.causes, cause) == condition.causes.end()) {
      condition.causes.push_back(std::move(cause));
    }
  };

  if (queue.outcome == Outcome::NotFound) {
    add(Level::Trouble, "missing");
    return condition;
  }
  // Errors and the ribbon are older than the printer's silence.
  const bool silent = is_silent(queue);
  bool is_low = false;
  if (silent) {
    add(Level::Trouble, "unreachable");
  } else if (is_empty(reading)) {
    add(Level::Trouble, "empty");
  } else if (is_under(reading, limits.critical)) {
    add(Level::Trouble, "critical");
  } else if (is_under(reading, limits.low)) {
    is_low = true;
  }
  for (const auto& error : reading.errors) {
    if (!silent) {
      add(Level::Trouble, "error-" + error.group + "-" + error.code);
    }
  }
  for (const auto& reason : reading.reasons) {
    if (reason.ends_with("-error")) {
      add(Level::Trouble, reason);
    }
  }
  if (queue.stuck) {
    add(Level::Trouble, "stuck");
  }
  switch (queue.outcome) {
    case Outcome::Stopped:
      add(Level::Trouble, "down");
      break;
    case Outcome::Paused:
      add(Level::Attention, "paused");
      break;
    case Outcome::Rejecting:
      add(Level::Attention, "rejecting");
      break;
    case Outcome::Failed:
      add(Level::Attention, "unread");
      break;
    case Outcome::Unsupported:
      add(Level::Attention, "unsupported");
      break;
    default:
      break;
  }
  if (!reading.level_percent && condition.causes.empty()) {
    add(Level::Attention, "unknown");
  }
  if (is_low) {
    add(Level::Attention, "low");
  }
  return condition;
}

Condition condition_of(const ServerReport& server) {
  return server.error.empty() ? Condition{} : Condition{Level::Trouble, {"unreachable"}};
}
