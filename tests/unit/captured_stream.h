#pragma once

#include <cstdio>
#include <string>

/// Runs `action` with a stream of ours in the place of `stream` (stdout, stderr) and returns what it wrote
/// there.
template <typename Action>
std::string captured(FILE*& stream, Action action) {
  std::string text;
  const cookie_io_functions_t functions = {nullptr,
                                           [](void* cookie, const char* data, size_t size) {
                                             static_cast<std::string*>(cookie)->append(data, size);
                                             return static_cast<ssize_t>(size);
                                           },
                                           nullptr, nullptr};
  FILE* const original = stream;
  stream = fopencookie(&text, "w", functions);
  action();
  fclose(stream);
  stream = original;
  return text;
}

template <typename Action>
std::string captured_log(Action action) {
  return captured(stderr, action);
}
