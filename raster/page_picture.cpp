// SPDX-License-Identifier: Apache-2.0
#include "raster/page_picture.h"

#include <algorithm>
#include <cstring>

#include "raster/raster_names.h"

namespace {

/// ColorSpace is a colour space that pictures can be made from.
struct ColorSpace {
  cups_cspace_t space;
  unsigned colors;
  bool ink;
  /// The positions in a pixel of gray or black, or of red or cyan, green or magenta, blue or yellow, and
  /// black.
  std::array<unsigned, 4> places;
};

constexpr std::array COLOR_SPACES = {
    ColorSpace{CUPS_CSPACE_W, 1, false, {0}},
    ColorSpace{CUPS_CSPACE_SW, 1, false, {0}},
    ColorSpace{CUPS_CSPACE_K, 1, true, {0}},
    ColorSpace{CUPS_CSPACE_WHITE, 1, true, {0}},
    ColorSpace{CUPS_CSPACE_GOLD, 1, true, {0}},
    ColorSpace{CUPS_CSPACE_SILVER, 1, true, {0}},
    ColorSpace{CUPS_CSPACE_RGB, 3, false, {0, 1, 2}},
    ColorSpace{CUPS_CSPACE_SRGB, 3, false, {0, 1, 2}},
    ColorSpace{CUPS_CSPACE_ADOBERGB, 3, false, {0, 1, 2}},
    ColorSpace{CUPS_CSPACE_CMY, 3, true, {0, 1, 2}},
    ColorSpace{CUPS_CSPACE_YMC, 3, true, {2, 1, 0}},
    ColorSpace{CUPS_CSPACE_CMYK, 4, true, {0, 1, 2, 3}},
    ColorSpace{CUPS_CSPACE_YMCK, 4, true, {2, 1, 0, 3}},
    ColorSpace{CUPS_CSPACE_KCMY, 4, true, {1, 2, 3, 0}},
};

const ColorSpace* find(cups_cspace_t space) {
  const auto* found = std::ranges::find(COLOR_SPACES, space, &ColorSpace::space);
  return found != COLOR_SPACES.end() ? found : nullptr;
}

std::string field(const char* name, unsigned value) {
  return std::string(name) + "=" + std::to_string(value);
}

}  // namespace

std::string picture_refusal(const cups_page_header2_t& header) {
  const ColorSpace* space = find(header.cupsColorSpace);
  if (space == nullptr) {
    return std::string("unsupported cupsColorSpace=") + to_string(header.cupsColorSpace);
  }
  const unsigned bits = header.cupsBitsPerColor;
  if (bits != 1 && bits != 8 && bits != 16) {
    return field("unsupported cupsBitsPerColor", bits) + " (expected 1, 8 or 16)";
  }
  if (header.cupsWidth == 0) {
    return field("invalid cupsWidth", 0);
  }
  const std::uint64_t width = header.cupsWidth;
  std::uint64_t line_bits = std::uint64_t{header.cupsBytesPerLine} * 8;
  std::uint64_t pixel_bits = bits;
  switch (header.cupsColorOrder) {
    case CUPS_ORDER_CHUNKED: {
      pixel_bits = header.cupsBitsPerPixel;
      const unsigned colors = space->colors * bits;
      // Three colours of one bit each usually take four bits.
      if (pixel_bits != colors &&
          (bits != 1 || space->colors == 1 || pixel_bits < colors || pixel_bits > 8)) {
        return field("unsupported cupsBitsPerPixel", header.cupsBitsPerPixel) + " (expected " +
               std::to_string(colors) + ")";
      }
      break;
    }
    case CUPS_ORDER_BANDED:
      line_bits = std::uint64_t{header.cupsBytesPerLine / space->colors} * 8;
      break;
    case CUPS_ORDER_PLANAR:
      if (header.cupsNumColors != space->colors) {
        return field("invalid cupsNumColors", header.cupsNumColors) + " (expected " +
               std::to_string(space->colors) + ")";
      }
      break;
    default:
      return std::string("invalid cupsColorOrder=") + to_string(header.cupsColorOrder);
  }
  if (width * pixel_bits > line_bits) {
    return field("cupsBytesPerLine", header.cupsBytesPerLine) + " is too small for " +
           field("cupsWidth", header.cupsWidth);
  }
  return {};
}

PagePicture::PagePicture(const cups_page_header2_t& header, bool pam)
    : pam_(pam), bits_(header.cupsBitsPerColor), width_(header.cupsWidth) {
  const ColorSpace& space = *find(header.cupsColorSpace);
  colors_ = space.colors;
  ink_ = space.ink;
  maximum_ = bits_ == 16 ? 65535 : 255;
  if (colors_ == 1) {
    kind_ = bits_ == 1 && !pam ? Kind::Bitmap : Kind::Gray;
  } else {
    kind_ = colors_ == 4 && pam ? Kind::Cmyk : Kind::Rgb;
  }

  const std::uint64_t line = std::uint64_t{header.cupsBytesPerLine} * 8;
  step_ = bits_;
  for (unsigned color = 0; color < colors_; ++color) {
    const std::uint64_t place = space.places.at(color);
    switch (header.cupsColorOrder) {
      case CUPS_ORDER_BANDED:
        first_.at(color) = place * (header.cupsBytesPerLine / colors_) * 8;
        break;
      case CUPS_ORDER_PLANAR:
        first_.at(color) = place * line;
        break;
      default:
        step_ = header.cupsBitsPerPixel;
        // Unused bits come first.
        first_.at(color) = step_ - std::uint64_t{colors_} * bits_ + place * bits_;
    }
  }
}

unsigned PagePicture::channels() const {
  return kind_ == Kind::Rgb ? 3 : kind_ == Kind::Cmyk ? 4 : 1;
}

std::string PagePicture::start(std::uint64_t lines, std::uint64_t planned) const {
  const std::string width = std::to_string(width_);
  std::string height = std::to_string(lines);
  height.insert(0, std::to_string(planned).size() - height.size(), ' ');
  const std::string maximum = std::to_string(maximum_);
  if (pam_) {
    const char* type = kind_ == Kind::Cmyk ? "CMYK" : kind_ == Kind::Rgb ? "RGB" : "GRAYSCALE";
    return "P7\nWIDTH " + width + "\nHEIGHT " + height + "\nDEPTH " + std::to_string(channels()) +
           "\nMAXVAL " + maximum + "\nTUPLTYPE " + type + "\nENDHDR\n";
  }
  if (kind_ == Kind::Bitmap) {
    return "P4\n" + width + " " + height + "\n";
  }
  return std::string(kind_ == Kind::Rgb ? "P6" : "P5") + "\n" + width + " " + height + "\n" + maximum + "\n";
}

std::uint64_t PagePicture::line_size() const {
  return kind_ == Kind::Bitmap ? (width_ + 7) / 8 : width_ * channels() * (bits_ == 16 ? 2 : 1);
}

const char* PagePicture::format() const {
  return pam_ ? "PAM" : kind_ == Kind::Bitmap ? "PBM" : kind_ == Kind::Gray ? "PGM" : "PPM";
}

void PagePicture::read_samples(const unsigned char* pixels, std::uint64_t first, std::size_t count,
                               Samples& samples) const {
  for (unsigned color = 0; color < colors_; ++color) {
    std::uint64_t bit = first_.at(color) + first * step_;
    for (std::size_t i = 0; i < count; ++i, bit += step_) {
      const unsigned char* byte = pixels + bit / 8;
      std::uint16_t value = *byte;
      if (bits_ == 16) {
        std::memcpy(&value, byte, sizeof value);
      } else if (bits_ == 1) {
        value = (value >> (7 - bit % 8) & 1U) != 0 ? 255 : 0;
      }
      samples[color][i] = value;
    }
  }
}

void PagePicture::inks_to_light(std::size_t count, Samples& samples) const {
  for (unsigned color = 0; color < std::min(colors_, 3U); ++color) {
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned ink = samples[color][i] + (colors_ == 4 ? samples[3][i] : 0U);
      samples[color][i] = static_cast<std::uint16_t>(maximum_ - std::min<unsigned>(maximum_, ink));
    }
  }
}

void PagePicture::convert(const unsigned char* pixels, unsigned char* line) const {
  Samples samples;
  for (std::uint64_t x = 0; x < width_; x += BLOCK) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(BLOCK, width_ - x));
    read_samples(pixels, x, count, samples);
    if (ink_ && kind_ != Kind::Cmyk) {
      inks_to_light(count, samples);
    }
    if (kind_ == Kind::Bitmap) {
      // In a PBM, a set bit is black.
      for (std::size_t i = 0; i < count; i += 8) {
        unsigned byte = 0;
        for (std::size_t bit = 0; bit < std::min<std::size_t>(8, count - i); ++bit) {
          byte |= (samples[0][i + bit] == 0 ? 0x80U : 0U) >> bit;
        }
        *line++ = static_cast<unsigned char>(byte);
      }
      continue;
    }
    const unsigned all = channels();
    for (std::size_t i = 0; i < count; ++i) {
      for (unsigned color = 0; color < all; ++color) {
        const unsigned value = samples[color][i];
        if (bits_ == 16) {
          *line++ = static_cast<unsigned char>(value >> 8U);
        }
        *line++ = static_cast<unsigned char>(value);
      }
    }
  }
}
