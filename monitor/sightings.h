// SPDX-License-Identifier: Apache-2.0
// The counting of independent observations.
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

/// Sightings counts the independent observations of a queue or a print server. Readings in quick succession
/// count as one.
class Sightings {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  /// @param interval  of the watch.
  explicit Sightings(std::chrono::seconds interval) : pause_(std::min(interval, LONGEST_PAUSE)) {}

  /// Counts an observation now, unless the previous one is too recent.
  void note(Moment now) {
    if (!last_ || now - *last_ >= pause_) {
      last_ = now;
      ++count_;
    }
  }

  [[nodiscard]] unsigned count() const { return count_; }

 private:
  /// The longest pause after which an observation counts as a new one.
  static constexpr std::chrono::seconds LONGEST_PAUSE{5};

  std::chrono::seconds pause_;
  std::optional<Moment> last_;
  unsigned count_ = 0;
};
