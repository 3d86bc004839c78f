// SPDX-License-Identifier: Apache-2.0
#include "monitor/output_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <tuple>
#include <utility>

#include "files/place.h"

namespace {

/// Creates a file with an unpredictable name. The kernel applies the umask to the mode.
std::pair<Descriptor, std::string> make_temporary(const Descriptor& folder, mode_t mode) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz012345";
  // Collectors select files by their suffix (.prom), which this name does not have.
  std::string name = ".brenvellis-monitor.";
  std::array<unsigned char, 16> random{};
  if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
    throw_file_error();
  }
  for (const auto byte : random) {
    name += letters.at(byte % letters.size());
  }
  constexpr int only_new = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  return {Descriptor(openat(folder.number(), name.c_str(), only_new, mode)), name};
}

void write_all(const Descriptor& file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file.number(), text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      throw_file_error();
    }
  }
}

void keep_group(const Descriptor& file, gid_t group) {
  struct stat status {};
  if (fstat(file.number(), &status) == 0 && status.st_gid != group) {
    std::ignore = fchown(file.number(), static_cast<uid_t>(-1), group);
  }
}

void replace(const Place& place, std::string_view text) {
  constexpr mode_t read_and_write = 0666;
  const mode_t mode = place.file ? place.file->st_mode & read_and_write : read_and_write;
  auto [file, temporary] = make_temporary(place.folder, mode);
  if (place.file && place.file->st_uid == geteuid()) {
    // Keep the group, for example that of a web server, unless the file belongs to another user.
    keep_group(file, place.file->st_gid);
  }
  try {
    write_all(file, text);
    if (fsync(file.number()) != 0) {
      throw_file_error();
    }
    file.close_or_fail();
    if (renameat(place.folder.number(), temporary.c_str(), place.folder.number(), place.name.c_str()) != 0) {
      throw_file_error();
    }
  } catch (const FileError&) {
    unlinkat(place.folder.number(), temporary.c_str(), 0);
    throw;
  }
}

}  // namespace

std::string write_whole(const std::string& path, const std::string& text) {
  try {
    const Place place = find_place(path);
    if (place.file && S_ISDIR(place.file->st_mode)) {
      throw_file_error(EISDIR);
    }
    if (place.file && !S_ISREG(place.file->st_mode)) {
      throw FileError("not a regular file");
    }
    replace(place, text);
  } catch (const FileError& failure) {
    return path + ": " + failure.what();
  }
  return {};
}
