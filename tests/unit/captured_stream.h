// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <string>
#include <vector>

inline ssize_t append_to_string(void* text, const char* data, std::size_t size) {
  static_cast<std::string*>(text)->append(data, size);
  return static_cast<ssize_t>(size);
}

/// Runs `action` with a replacement for `stream` (stdout, stderr) and returns what was written through it.
/// The stream has no descriptor, so output that bypasses it is not captured.
template <typename Action>
std::string captured(FILE*& stream, Action action) {
  std::string text;
  FILE* const original = stream;
  stream = fopencookie(&text, "w", {nullptr, append_to_string, nullptr, nullptr});
  action();
  fclose(stream);
  stream = original;
  return text;
}

template <typename Action>
std::string captured_log(Action action) {
  return captured(stderr, action);
}

/// The writes to a replacement for stderr, one element each, and how many of them came before it was closed.
struct StreamWrites {
  std::vector<std::string> writes;
  std::size_t before_close = 0;
};

inline ssize_t keep_write(void* writes, const char* data, std::size_t size) {
  static_cast<std::vector<std::string>*>(writes)->emplace_back(data, size);
  return static_cast<ssize_t>(size);
}

/// Runs `action` with a log that has this buffering (_IONBF, _IOLBF, _IOFBF).
template <typename Action>
StreamWrites log_writes(int buffering, Action action) {
  StreamWrites result;
  FILE* const original = stderr;
  stderr = fopencookie(&result.writes, "w", {nullptr, keep_write, nullptr, nullptr});
  setvbuf(stderr, nullptr, buffering, 65536);
  action();
  result.before_close = result.writes.size();
  fclose(stderr);
  stderr = original;
  return result;
}
