#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <string>

/// Runs `action` with a file of ours in the place of `stream` (stdout, stderr) and returns what it wrote
/// there, through the stream or past it.
template <typename Action>
std::string captured(FILE*& stream, Action action) {
  const int file = memfd_create("captured", 0);
  FILE* const original = stream;
  stream = fdopen(file, "w");
  action();
  fflush(stream);
  std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  const ssize_t size = pread(file, text.data(), text.size(), 0);
  text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  fclose(stream);
  stream = original;
  return text;
}

template <typename Action>
std::string captured_log(Action action) {
  return captured(stderr, action);
}
