#pragma once

#include <cstdio>
#include <string>

inline ssize_t append_to_string(void* text, const char* data, std::size_t size) {
  static_cast<std::string*>(text)->append(data, size);
  return static_cast<ssize_t>(size);
}

/// Runs `action` with a stream of ours in the place of `stream` (stdout, stderr) and returns what was written
/// through it. The stream has no descriptor: what goes past it is not seen.
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
