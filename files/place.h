// SPDX-License-Identifier: Apache-2.0
// Safe output paths: finds a file to write without following links of other users.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

/// FileError carries a message that says why a file cannot be found, read or written.
class FileError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Throws a FileError with the system's text for an errno value.
[[noreturn]] void throw_file_error(int error = errno);

/// Descriptor owns a file descriptor and closes it.
class Descriptor {
 public:
  /// Takes ownership of an open descriptor. Throws the system's text for errno if it is negative.
  explicit Descriptor(int number);
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor();

  [[nodiscard]] int number() const { return number_; }

  /// Closes the descriptor. Throws if the system reports an error.
  void close_or_fail();

 private:
  int number_;
};

/// Place is a folder, a name in it, and the status of the file of this name if it exists.
struct Place {
  Descriptor folder;
  std::string name;
  std::optional<struct stat> file;
};

/// Finds the folder of a file that will be written. Follows symbolic links only if they belong to the caller
/// or to root, and throws otherwise.
///
/// @param follow_last  whether to follow a link at the end of the path; if not, the link itself is the place.
Place find_place(const std::filesystem::path& path, bool follow_last = true);
