// SPDX-License-Identifier: Apache-2.0
// The file that a part of a raster stream is saved to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "files/place.h"

/// SavedFile is a new file with the mode that the umask allows.
class SavedFile {
 public:
  SavedFile() = default;
  ~SavedFile();
  SavedFile(const SavedFile&) = delete;
  SavedFile& operator=(const SavedFile&) = delete;

  /// Creates the file. Replaces an existing file of this name if it is a regular file of the caller and not
  /// the input. Does not follow a symbolic link of this name, and follows links to its folder only if they
  /// belong to the caller or to root. Returns false if the file cannot be created; see error().
  ///
  /// @param input  the descriptor that the stream is read from.
  bool create(const std::string& name, int input);
  /// Returns whether create() succeeded and the file is not closed yet.
  [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }

  /// Writes at the current position. Returns false if not all bytes were written; see error().
  bool write(std::span<const unsigned char> bytes);
  /// Sets the current position, which may be past the end.
  bool seek(std::uint64_t position);
  /// Reads bytes that were written before the last seek().
  bool read_at(std::uint64_t position, std::span<unsigned char> bytes);
  /// Writes buffered bytes, truncates the file to `size` bytes and closes it.
  bool close(std::uint64_t size);
  /// Closes and removes the file.
  void remove();

  /// Returns why the last call failed.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  bool flush();
  bool fail(int number);

  std::optional<Place> place_;
  int descriptor_ = -1;
  std::uint64_t position_ = 0;  ///< where the buffer will be written
  std::vector<unsigned char> buffer_;
  std::string error_;
};
