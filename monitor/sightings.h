// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

/// Sightings counts how often a queue or a print server was seen, so that what was seen twice can be told
/// from what was looked at twice within a moment.
class Sightings {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  /// @param interval  of the watch.
  explicit Sightings(std::chrono::seconds interval) : pause_(std::min(interval, MOMENT)) {}

  /// Counts what was seen now, unless the one before is only a moment ago.
  void note(Moment now) {
    if (!last_ || now - *last_ >= pause_) {
      last_ = now;
      ++count_;
    }
  }

  [[nodiscard]] unsigned count() const { return count_; }

 private:
  static constexpr std::chrono::seconds MOMENT{5};

  std::chrono::seconds pause_;
  std::optional<Moment> last_;
  unsigned count_ = 0;
};
