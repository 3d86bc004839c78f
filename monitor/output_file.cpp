#include "monitor/output_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <list>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>

namespace {

class Failure : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

[[noreturn]] void fail(int error = errno) {
  throw Failure(std::strerror(error));
}

/// A file descriptor with its owner.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) {
      fail();
    }
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) {
      close(number_);
    }
  }

  [[nodiscard]] int number() const { return number_; }

  void close_or_fail() {
    if (close(std::exchange(number_, -1)) != 0) {
      fail();
    }
  }

 private:
  int number_;
};

/// A folder, a name in it, and the file of this name, if there is one.
struct Place {
  Descriptor folder;
  std::string name;
  std::optional<struct stat> file;
};

bool is_trusted(uid_t owner) {
  return owner == geteuid() || owner == 0;
}

std::filesystem::path target_of(const Descriptor& link) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlinkat(link.number(), "", target.data(), target.size());
  if (length < 0) {
    fail();
  }
  return std::string(target.data(), static_cast<std::size_t>(length));
}

/// Walks to the file by one name after the other. Each is opened before it is looked at, so that whoever may
/// rename things on the way can lead to another folder of his own but not past the check.
Place find_place(const std::filesystem::path& path) {
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
      fail();
    }
    if (S_ISLNK(status.st_mode)) {
      if (!is_trusted(status.st_uid)) {
        throw Failure("the link '" + name + "' belongs to another user");
      }
      if (++links > most_links) {
        fail(ELOOP);
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
  fail(EISDIR);
}

/// A new file with a name that nobody can guess; the kernel takes the umask off the mode.
std::pair<Descriptor, std::string> make_temporary(const Descriptor& folder, mode_t mode) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz012345";
  // A collector takes files by their ends (.prom), which this name does not have.
  std::string name = ".brenvellis-monitor.";
  std::array<unsigned char, 16> random{};
  if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
    fail();
  }
  for (const auto byte : random) {
    name += letters[byte % letters.size()];
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
      fail();
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
    // For a web server, for example; the group of somebody else's file means nothing.
    keep_group(file, place.file->st_gid);
  }
  try {
    write_all(file, text);
    if (fsync(file.number()) != 0) {
      fail();
    }
    file.close_or_fail();
    if (renameat(place.folder.number(), temporary.c_str(), place.folder.number(), place.name.c_str()) != 0) {
      fail();
    }
  } catch (const Failure&) {
    unlinkat(place.folder.number(), temporary.c_str(), 0);
    throw;
  }
}

}  // namespace

std::string write_whole(const std::string& path, const std::string& text) {
  try {
    const Place place = find_place(path);
    if (place.file && S_ISDIR(place.file->st_mode)) {
      fail(EISDIR);
    }
    if (place.file && !S_ISREG(place.file->st_mode)) {
      throw Failure("not a regular file");
    }
    replace(place, text);
  } catch (const Failure& failure) {
    return path + ": " + failure.what();
  }
  return {};
}
