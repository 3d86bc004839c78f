#include "monitor/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

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

}  // namespace

std::string write_whole(const std::string& path, const std::string& text) {
  // A collector takes files by their ends (.prom), which this name does not have.
  const auto slash = path.rfind('/');
  const auto name = slash == std::string::npos ? 0 : slash + 1;
  std::string temporary = path.substr(0, name) + "." + path.substr(name) + ".XXXXXX";
  const auto failure = [&] { return path + ": " + std::strerror(errno); };

  const int file = mkstemp(temporary.data());
  if (file < 0) {
    return failure();
  }
  const bool written =
      write_all(file, text) && fchmod(file, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) == 0 && fsync(file) == 0;
  std::string error = written ? "" : failure();
  if (close(file) != 0 && error.empty()) {
    error = failure();
  }
  if (error.empty() && rename(temporary.c_str(), path.c_str()) != 0) {
    error = failure();
  }
  if (!error.empty()) {
    unlink(temporary.c_str());
  }
  return error;
}
