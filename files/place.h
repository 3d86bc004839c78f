// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

/// FileError says for a person why a file cannot be found, read or written.
class FileError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Throws the system's text for an errno value.
[[noreturn]] void throw_file_error(int error = errno);

/// Descriptor owns a file descriptor and closes it.
class Descriptor {
 public:
  /// Takes an open descriptor; throws the system's text for errno if it is negative.
  explicit Descriptor(int number);
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor();

  [[nodiscard]] int number() const { return number_; }

  /// Closes it now; throws if the system reports an error.
  void close_or_fail();

 private:
  int number_;
};

/// Place is a folder, a name in it, and the file of this name, if there is one.
struct Place {
  Descriptor folder;
  std::string name;
  std::optional<struct stat> file;
};

/// Finds the place of a file for a program that is going to write it. A symbolic link on the way is followed
/// only if it belongs to the caller or to root; otherwise this throws.
///
/// @param follow_last  whether the last name may be a link to follow; false: such a link is the place.
Place find_place(const std::filesystem::path& path, bool follow_last = true);
