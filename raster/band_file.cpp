#include "raster/band_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

/// save_image_as_raw() has a buffer of 1024 bytes.
constexpr std::size_t LONGEST_NAME = 1023;

/// Expands the template where nothing is cut: two characters of it never make more than twenty.
std::string expand(const std::string& templ, const tagLNBandImageParams& band) {
  std::string name(templ.size() * 10 + 64, '\0');
  format_string_util(name.data(), name.size(), templ.c_str(), &band);
  name.resize(std::strlen(name.c_str()));
  return name;
}

/// @return why the file of this name is not to be replaced; null if it may be, or does not exist.
const char* refusal(const std::string& name, int input) {
  struct stat file = {};
  if (stat(name.c_str(), &file) != 0) {
    return nullptr;
  }
  // Opening a folder fails by itself, and the system's text says more.
  if (!S_ISREG(file.st_mode) && !S_ISDIR(file.st_mode)) {
    return "not a regular file";
  }
  struct stat stream = {};
  if (fstat(input, &stream) == 0 && file.st_dev == stream.st_dev && file.st_ino == stream.st_ino) {
    return "this is the input";
  }
  return nullptr;
}

/// A small band reaches the disk when its file is closed, where save_image_as_raw() no longer looks.
bool is_shorter_than(const std::string& name, const tagLNBandImageParams& band) {
  struct stat file = {};
  return stat(name.c_str(), &file) == 0 && S_ISREG(file.st_mode) &&
         file.st_size < std::abs(band.stride) * (band.bottom - band.top);
}

}  // namespace

BandFile save_band(const std::string& templ, const tagLNBandImageParams& band, int input) {
  BandFile result{.name = expand(templ, band), .error = {}};
  if (result.name.size() > LONGEST_NAME) {
    result.error = "the template makes a name of " + std::to_string(result.name.size()) + " bytes, at most " +
                   std::to_string(LONGEST_NAME) + " are possible";
    return result;
  }
  if (const char* why = refusal(result.name, input); why != nullptr) {
    result.error = why;
    return result;
  }
  // The name holds no percent sign any more, and as a template stands for itself.
  errno = 0;
  if (!save_image_as_raw(result.name.c_str(), &band)) {
    result.error = errno != 0 ? std::strerror(errno) : "not written in full";
  } else if (is_shorter_than(result.name, band)) {
    result.error = "not written in full; is the disk full?";
  }
  return result;
}
