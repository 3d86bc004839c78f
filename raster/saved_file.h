// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "files/place.h"

/// SavedFile is a new file for what a raster stream holds, with the rights that the umask leaves.
class SavedFile {
 public:
  SavedFile() = default;
  ~SavedFile();
  SavedFile(const SavedFile&) = delete;
  SavedFile& operator=(const SavedFile&) = delete;

  /// Makes the file. One of this name is replaced if it is a regular file of the caller's and not the input;
  /// a link of this name is never followed, and one on the way only if it belongs to the caller or to root.
  /// Returns false if the file cannot be made: see error().
  ///
  /// @param input  the descriptor that the stream is read from.
  bool create(const std::string& name, int input);
  [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }

  /// Writes at the current position. Returns false if not everything could be written: see error().
  bool write(std::span<const unsigned char> bytes);
  /// Moves the current position, also past the end.
  bool seek(std::uint64_t position);
  /// Reads what was written at a position before the last seek().
  bool read_at(std::uint64_t position, std::span<unsigned char> bytes);
  /// Writes what is buffered, cuts the file to this size and closes it.
  bool close(std::uint64_t size);
  /// Closes the file and removes it.
  void remove();

  /// Why the last call failed.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  bool flush();
  bool fail(int number);

  std::optional<Place> place_;
  int descriptor_ = -1;
  std::uint64_t position_ = 0;  ///< where the buffer goes
  std::vector<unsigned char> buffer_;
  std::string error_;
};
