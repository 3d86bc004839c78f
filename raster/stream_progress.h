// SPDX-License-Identifier: Apache-2.0
// The progress display for long streams.
#pragma once

#include <chrono>
#include <cstdint>

/// StreamProgress shows on standard error how much of a long stream has been read, if that is a terminal.
class StreamProgress {
 public:
  StreamProgress();

  /// Updates the display. May be called at any rate: the display appears after a second and changes a few
  /// times per second.
  void show(std::uint64_t page, std::uint64_t line, std::uint64_t lines);
  /// Removes the display. Must be called before anything else is written to the terminal.
  void clear();

 private:
  bool terminal_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_;
};
