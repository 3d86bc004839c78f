// SPDX-License-Identifier: Apache-2.0
#include "monitor/report.h"

#include <algorithm>

namespace {

int rank(Verdict verdict) {
  switch (verdict) {
    case Verdict::Well:
      return 0;
    case Verdict::Low:
      return 1;
    case Verdict::Unknown:
      return 2;
    case Verdict::Error:
      return 3;
  }
  return 3;
}

}  // namespace

Verdict worse(Verdict one, Verdict other) {
  return rank(one) < rank(other) ? other : one;
}

bool is_worse(Verdict one, Verdict other) {
  return rank(one) > rank(other);
}

const char* name_of(Outcome outcome) {
  return std::ranges::find(OUTCOME_NAMES, outcome, &std::pair<Outcome, const char*>::first)->second;
}

bool is_good(Outcome outcome) {
  return outcome == Outcome::Refreshed || outcome == Outcome::NotAsked || outcome == Outcome::Asking ||
         outcome == Outcome::Busy;
}

bool is_empty(const Reading& reading) {
  return reading.level_percent && reading.prints_remaining.value_or(*reading.level_percent) == 0;
}

Verdict judge(const QueueReport& queue, const Limits& limits) {
  const auto is_error = [](const std::string& reason) { return reason.ends_with("-error"); };
  if (queue.stuck || queue.outcome == Outcome::Stopped || is_empty(queue.reading) ||
      is_under(queue.reading, limits.critical)) {
    return Verdict::Error;
  }
  if (!queue.reading.errors.empty() || std::ranges::any_of(queue.reading.reasons, is_error)) {
    return Verdict::Error;
  }
  if (!is_good(queue.outcome) || !queue.reading.level_percent) {
    return Verdict::Unknown;
  }
  return is_under(queue.reading, limits.low) ? Verdict::Low : Verdict::Well;
}

Verdict judge(const Report& report) {
  bool any = false;
  auto verdict = Verdict::Well;
  for (const auto& server : report.servers) {
    if (!server.error.empty()) {
      verdict = worse(verdict, Verdict::Unknown);
    }
    for (const auto& queue : server.queues) {
      any = true;
      verdict = worse(verdict, judge(queue, report.limits));
    }
  }
  return any ? verdict : Verdict::Unknown;
}
