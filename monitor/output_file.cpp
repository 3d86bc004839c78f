#include "monitor/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <tuple>

namespace {

bool write_all(int file, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(file, text.data() + written, text.size() - written);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

/// Where the links of a path lead, also if nothing is there yet.
std::filesystem::path followed(std::filesystem::path path) {
  constexpr int longest_chain = 40;
  std::error_code error;
  for (int i = 0; i < longest_chain && std::filesystem::is_symlink(path, error); ++i) {
    path = path.parent_path() / std::filesystem::read_symlink(path, error);
  }
  return path;
}

mode_t mode_of_new_file() {
  constexpr mode_t all = 0666;
  const mode_t mask = umask(0);
  umask(mask);
  return all & ~mask;
}

/// Closes the file, too. False, and errno, on failure.
bool write_and_close(int file, const std::string& text) {
  const bool written = write_all(file, text);
  const int error = errno;
  const bool closed = close(file) == 0;
  if (!written) {
    errno = error;
  }
  return written && closed;
}

}  // namespace

std::string write_whole(const std::string& path, const std::string& text) {
  const auto failure = [&] { return path + ": " + std::strerror(errno); };

  struct stat old {};
  const bool exists = stat(path.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    return file >= 0 && write_and_close(file, text) ? "" : failure();
  }

  // A collector takes files by their ends (.prom), which this name does not have.
  const auto target = followed(path);
  const auto name = std::string(".").append(target.filename().string()).append(".XXXXXX");
  std::string temporary = (target.parent_path() / name).string();
  const int file = mkstemp(temporary.data());
  if (file < 0) {
    return failure();
  }
  if (exists) {
    // Only root may give files away; for all others it stays theirs.
    std::ignore = fchown(file, old.st_uid, old.st_gid);
  }
  const bool prepared = fchmod(file, exists ? old.st_mode & ALLPERMS : mode_of_new_file()) == 0;
  const bool written = prepared && write_all(file, text) && fsync(file) == 0;
  std::string error = written ? "" : failure();
  if (close(file) != 0 && error.empty()) {
    error = failure();
  }
  if (error.empty() && rename(temporary.c_str(), target.c_str()) != 0) {
    error = failure();
  }
  if (!error.empty()) {
    unlink(temporary.c_str());
  }
  return error;
}
