// SPDX-License-Identifier: Apache-2.0
#include "raster/saved_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t BUFFER_SIZE = 65536;

/// @return why a file must not be replaced; null if it may be.
const char* refusal(const struct stat& file, int input) {
  if (S_ISLNK(file.st_mode)) {
    return "it is a symbolic link";
  }
  // unlinkat() refuses a folder, with a better message.
  if (!S_ISREG(file.st_mode) && !S_ISDIR(file.st_mode)) {
    return "it is not a regular file";
  }
  struct stat stream = {};
  if (fstat(input, &stream) == 0 && file.st_dev == stream.st_dev && file.st_ino == stream.st_ino) {
    return "it is the input";
  }
  return file.st_uid == geteuid() ? nullptr : "it belongs to another user";
}

}  // namespace

SavedFile::~SavedFile() {
  if (is_open()) {
    ::close(descriptor_);
  }
}

bool SavedFile::create(const std::string& name, int input) {
  try {
    place_ = find_place(name, false);
    const int folder = place_->folder.number();
    if (place_->file) {
      if (const char* why = refusal(*place_->file, input); why != nullptr) {
        throw FileError(why);
      }
      // A new file does not inherit the mode or the other hard links of the old one.
      if (unlinkat(folder, place_->name.c_str(), 0) != 0) {
        throw_file_error();
      }
    }
    // O_EXCL fails if another process creates a file of this name in the meantime.
    constexpr int only_new = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    descriptor_ = openat(folder, place_->name.c_str(), only_new, 0666);
    if (descriptor_ < 0) {
      throw_file_error();
    }
  } catch (const FileError& failure) {
    error_ = failure.what();
    return false;
  }
  return true;
}

bool SavedFile::write(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    const std::size_t part = std::min(bytes.size(), BUFFER_SIZE - buffer_.size());
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(part));
    bytes = bytes.subspan(part);
    if (buffer_.size() == BUFFER_SIZE && !flush()) {
      return false;
    }
  }
  return true;
}

bool SavedFile::seek(std::uint64_t position) {
  if (!flush()) {
    return false;
  }
  position_ = position;
  return true;
}

bool SavedFile::read_at(std::uint64_t position, std::span<unsigned char> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(position));
    if (count <= 0) {
      return fail(count < 0 ? errno : EIO);
    }
    position += static_cast<std::uint64_t>(count);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

bool SavedFile::close(std::uint64_t size) {
  const bool complete = flush() && (ftruncate(descriptor_, static_cast<off_t>(size)) == 0 || fail(errno));
  // Some file systems report a full disk only when the file is closed.
  const bool closed = ::close(descriptor_) == 0;
  descriptor_ = -1;
  return complete && (closed || fail(errno));
}

void SavedFile::remove() {
  ::close(descriptor_);
  descriptor_ = -1;
  unlinkat(place_->folder.number(), place_->name.c_str(), 0);
}

bool SavedFile::flush() {
  std::span<const unsigned char> left = buffer_;
  while (!left.empty()) {
    const ssize_t count = pwrite(descriptor_, left.data(), left.size(), static_cast<off_t>(position_));
    if (count < 0 && errno != EINTR) {
      buffer_.clear();
      return fail(errno);
    }
    if (count > 0) {
      position_ += static_cast<std::uint64_t>(count);
      left = left.subspan(static_cast<std::size_t>(count));
    }
  }
  buffer_.clear();
  return true;
}

bool SavedFile::fail(int number) {
  error_ = std::strerror(number);
  return false;
}
