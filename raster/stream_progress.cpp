// SPDX-License-Identifier: Apache-2.0
#include "raster/stream_progress.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>

using namespace std::chrono_literals;

StreamProgress::StreamProgress()
    : terminal_(isatty(STDERR_FILENO) == 1), next_(std::chrono::steady_clock::now() + 1s) {}

void StreamProgress::show(std::uint64_t page, std::uint64_t line, std::uint64_t lines) {
  if (!terminal_ || std::chrono::steady_clock::now() < next_) {
    return;
  }
  next_ = std::chrono::steady_clock::now() + 200ms;
  fprintf(stderr, "\rpage %" PRIu64 ": line %" PRIu64 " of %" PRIu64 "\033[K", page, line, lines);
  shown_ = true;
}

void StreamProgress::clear() {
  if (shown_) {
    fprintf(stderr, "\r\033[K");
    shown_ = false;
  }
}
