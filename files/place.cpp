// SPDX-License-Identifier: Apache-2.0
#include "files/place.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstring>
#include <list>

namespace {

bool is_trusted(uid_t owner) {
  return owner == geteuid() || owner == 0;
}

std::filesystem::path target_of(const Descriptor& link) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlinkat(link.number(), "", target.data(), target.size());
  if (length < 0) {
    throw_file_error();
  }
  return std::string(target.data(), static_cast<std::size_t>(length));
}

}  // namespace

void throw_file_error(int error) {
  throw FileError(std::strerror(error));
}

Descriptor::Descriptor(int number) : number_(number) {
  if (number < 0) {
    throw_file_error();
  }
}

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    close(number_);
  }
}

void Descriptor::close_or_fail() {
  if (close(std::exchange(number_, -1)) != 0) {
    throw_file_error();
  }
}

Place find_place(const std::filesystem::path& path, bool follow_last) {
  // Opens each component before checking it, so that renaming components cannot bypass the check.
  constexpr int most_links = 40;
  constexpr int only_to_look = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  const auto start_of = [](const std::filesystem::path& way) {
    return Descriptor(open(way.is_absolute() ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  };

  Descriptor folder = start_of(path);
  const auto names = path.relative_path();
  std::list<std::string> way(names.begin(), names.end());
  for (int links = 0; !way.empty();) {
    const std::string name = way.front().empty() ? "." : way.front();
    way.pop_front();
    const int opened = openat(folder.number(), name.c_str(), only_to_look);
    if (opened < 0 && errno == ENOENT && way.empty()) {
      return {std::move(folder), name, std::nullopt};
    }
    Descriptor next(opened);
    struct stat status {};
    if (fstat(next.number(), &status) != 0) {
      throw_file_error();
    }
    if (S_ISLNK(status.st_mode) && (follow_last || !way.empty())) {
      if (!is_trusted(status.st_uid)) {
        throw FileError("the link '" + name + "' belongs to another user");
      }
      if (++links > most_links) {
        throw_file_error(ELOOP);
      }
      const auto target = target_of(next);
      if (target.is_absolute()) {
        folder = start_of(target);
      }
      const auto more = target.relative_path();
      way.insert(way.begin(), more.begin(), more.end());
    } else if (way.empty()) {
      return {std::move(folder), name, status};
    } else {
      folder = std::move(next);
    }
  }
  throw_file_error(EISDIR);
}
