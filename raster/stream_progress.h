// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>

/// StreamProgress shows on standard error how far a long stream was read, if that is a terminal.
class StreamProgress {
 public:
  StreamProgress();

  /// Call it as often as you like: a line appears after a second, and changes a few times a second.
  void show(std::uint64_t page, std::uint64_t line, std::uint64_t lines);
  /// Takes the line away; to be called before anything else is written to the terminal.
  void clear();

 private:
  bool terminal_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_;
};
