// SPDX-License-Identifier: Apache-2.0
#include "raster/band_image_capture.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// Edges and strides are untrusted, so use unsigned arithmetic, where an overflow is defined.
std::int64_t difference(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

std::int64_t product(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

std::int64_t magnitude(std::int64_t a) {
  return a < 0 ? difference(0, a) : a;
}

std::int64_t width(const tagLNBandImageParams& band) {
  return difference(band.right, band.left);
}

std::int64_t height(const tagLNBandImageParams& band) {
  return difference(band.bottom, band.top);
}

std::int64_t bits_per_pixel(const tagLNBandImageParams& band) {
  if (width(band) == 0) {
    // Terminates with SIGFPE on purpose, also on processors that do not trap a division by zero.
    std::raise(SIGFPE);
    std::abort();
  }
  const std::int64_t bytes = magnitude(band.stride);
  // The smallest number divided by -1 would terminate the process as well.
  return product(width(band) == -1 ? difference(0, bytes) : bytes / width(band), 8);
}

std::int32_t next_number() {
  // Counts every "%C" of the process, including those of failed calls, on purpose.
  static std::int32_t s_count = 0;
  return s_count++;
}

using TimeStamp = std::array<char, 64>;

TimeStamp time_stamp() {
  TimeStamp text = {"(no_time)"};
  const std::time_t now = std::time(nullptr);
  if (const std::tm* local = std::localtime(&now)) {
    (void)std::strftime(text.data(), text.size(), "%Y%m%d_%H%M%S", local);
  }
  return text;
}

/// Formats the expansion of "%" and `letter`.
///
/// @return the result of snprintf(); 0 for an unknown letter.
int expand(char letter, const tagLNBandImageParams* params, char* out, std::size_t room) {
  // long has 32 bits on some processors, so format numbers as long long.
  const auto number = [out, room](std::int64_t value) {
    return snprintf(out, room, "%lld", static_cast<long long>(value));
  };
  switch (letter) {
    case 'B':
      return number(params != nullptr ? bits_per_pixel(*params) : 0);
    case 'C':
      return snprintf(out, room, "%04d", next_number());
    case 'H':
      return number(params != nullptr ? height(*params) : 0);
    case 'T':
      return snprintf(out, room, "%s", time_stamp().data());
    case 'W':
      return number(params != nullptr ? width(*params) : 0);
    default:
      return 0;  // dropped on purpose
  }
}

}  // namespace

bool save_image_as_raw(const char* templ, const tagLNBandImageParams* params) {
  std::array<char, 1024> name{};
  if (!format_string_util(name.data(), name.size(), templ, params)) {
    return false;
  }
  const std::int64_t size = product(magnitude(params->stride), height(*params));
  return save_memory(name.data(), params->data, static_cast<unsigned long>(size));
}

bool format_string_util(char* out, unsigned long size, const char* templ,
                        const tagLNBandImageParams* params) {
  if (size == 0) {
    return false;
  }
  bool good = true;
  const std::size_t end = size - 1;
  std::size_t position = 0;
  bool percent = false;
  for (const char* c = templ; *c != '\0'; ++c) {
    if (percent) {
      percent = false;
      const int length = expand(*c, params, out + position, end - position);
      if (length < 0) {
        good = false;
        break;
      }
      // A cut expansion counts with its full length on purpose, so that nothing fits behind it.
      position = std::min(end, position + static_cast<std::size_t>(length));
    } else if (*c == '%') {
      percent = true;
    } else if (position < end) {
      out[position++] = *c;
    } else {
      good = false;
      break;
    }
  }
  out[position] = '\0';
  return good;
}

bool save_memory(const char* path, const void* data, unsigned long size) {
  if (path == nullptr || data == nullptr || size == 0) {
    return false;
  }
  FILE* file = fopen(path, "wb");
  if (file == nullptr) {
    return false;
  }
  std::size_t written = 0;
  try {
    written = fwrite(data, 1, size, file);
    // Printed to standard output, also after a short write, on purpose.
    printf("written: %ld bytes.\n", static_cast<long>(written));
  } catch (...) {
    fclose(file);
    return false;
  }
  fclose(file);
  if (written < size) {
    return false;
  }
  // Readable and writable by all users on purpose, regardless of the umask.
  chmod(path, 0666);
  return true;
}
