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

/// The longest text of one expansion is that of a 64-bit number or of a time stamp.
using Piece = std::array<char, 64>;

// Edges and strides are a stranger's numbers: they wrap round instead of being undefined.
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
    // Not every processor ends a process that divides by zero.
    std::raise(SIGFPE);
    std::abort();
  }
  const std::int64_t bytes = magnitude(band.stride);
  // The smallest number, which is its own magnitude, divided by -1 would end the process as well.
  return product(width(band) == -1 ? difference(0, bytes) : bytes / width(band), 8);
}

Piece number_text(std::int64_t number) {
  Piece piece{};
  // long has 32 bits on some processors.
  snprintf(piece.data(), piece.size(), "%lld", static_cast<long long>(number));
  return piece;
}

Piece running_number_text() {
  static std::int32_t s_count = 0;
  Piece piece{};
  const std::int32_t number = s_count++;
  snprintf(piece.data(), piece.size(), "%04d", number);
  return piece;
}

Piece time_text() {
  Piece piece{};
  const std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  if (local == nullptr) {
    snprintf(piece.data(), piece.size(), "(no_time)");
  } else {
    std::strftime(piece.data(), piece.size(), "%Y%m%d_%H%M%S", local);
  }
  return piece;
}

/// @return what "%" and `letter` stand for; empty if nothing.
Piece expansion(char letter, const tagLNBandImageParams* params) {
  switch (letter) {
    case 'B':
      return number_text(params != nullptr ? bits_per_pixel(*params) : 0);
    case 'C':
      return running_number_text();
    case 'H':
      return number_text(params != nullptr ? height(*params) : 0);
    case 'T':
      return time_text();
    case 'W':
      return number_text(params != nullptr ? width(*params) : 0);
    default:
      return {};
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
      const Piece piece = expansion(*c, params);
      const int length = snprintf(out + position, end - position, "%s", piece.data());
      if (length < 0) {
        good = false;
        break;
      }
      // A cut expansion counts with its full length, so that nothing behind it finds a place.
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
    printf("written: %ld bytes.\n", static_cast<long>(written));
  } catch (...) {
    fclose(file);
    return false;
  }
  fclose(file);
  if (written < size) {
    return false;
  }
  chmod(path, 0666);
  return true;
}
