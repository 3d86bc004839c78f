// SPDX-License-Identifier: Apache-2.0
// Compares the expansion of any template, buffer size and band with a model that writes without limits.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "raster/band_image_capture.h"
#include "tests/fuzz/require.h"

namespace {

using Wide = __int128;

/// Converts a number to 64 bits with wrap-around.
std::int64_t wrapped(Wide number) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(static_cast<unsigned __int128>(number)));
}

std::string model_bits(const tagLNBandImageParams& band) {
  const std::int64_t width = wrapped(Wide{band.right} - band.left);
  const std::int64_t stride = wrapped(band.stride < 0 ? -Wide{band.stride} : Wide{band.stride});
  return std::to_string(wrapped(Wide{stride} / width * 8));
}

struct Model {
  std::vector<char> memory;
  bool good = true;
};

/// @param count  of "%C"s that the process expanded; counts on.
Model model(std::size_t size, const std::string& templ, const tagLNBandImageParams* band, long& count,
            const std::string& time) {
  Model result{std::vector<char>(size + templ.size() * 30 + 100, '\0'), true};
  const std::size_t end = size - 1;
  std::size_t position = 0;
  for (std::size_t i = 0; i < templ.size(); ++i) {
    if (templ[i] != '%') {
      if (position >= end) {
        result.good = false;
        break;
      }
      result.memory[position++] = templ[i];
      continue;
    }
    if (++i == templ.size()) {
      break;
    }
    std::string text;
    switch (templ[i]) {
      case 'B':
        text = band != nullptr ? model_bits(*band) : "0";
        break;
      case 'C':
        text = std::to_string(count++);
        text.insert(0, text.size() < 4 ? 4 - text.size() : 0, '0');
        break;
      case 'H':
        text = band != nullptr ? std::to_string(wrapped(Wide{band->bottom} - band->top)) : "0";
        break;
      case 'T':
        text = time;
        break;
      case 'W':
        text = band != nullptr ? std::to_string(wrapped(Wide{band->right} - band->left)) : "0";
        break;
      default:
        continue;
    }
    // The remaining size; it is unlimited past the end.
    const std::size_t room = position <= end ? end - position : result.memory.size();
    for (std::size_t k = 0; k < text.size() && k + 1 < room; ++k) {
      result.memory[position + k] = text[k];
    }
    if (room > 0) {
      result.memory[position + std::min(text.size(), room - 1)] = '\0';
    }
    position += text.size();
  }
  result.memory[position] = '\0';
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static long count = 0;
  FuzzedDataProvider input(data, size);
  tagLNBandImageParams band{};
  band.stride = input.ConsumeIntegral<std::int64_t>();
  band.left = input.ConsumeIntegral<std::int64_t>();
  band.top = input.ConsumeIntegral<std::int64_t>();
  band.right =
      input.ConsumeBool() ? input.ConsumeIntegral<std::int64_t>() : band.left + (band.left < 0 ? 1 : -1);
  band.bottom = input.ConsumeIntegral<std::int64_t>();
  const bool with_band = input.ConsumeBool();
  const auto room = input.ConsumeIntegralInRange<std::size_t>(1, 80);
  std::string templ = input.ConsumeRemainingBytesAsString();
  templ.resize(std::strlen(templ.c_str()));
  // "%B" of a band of width 0 terminates the process; a unit test covers it.
  if (with_band && band.right == band.left) {
    return 0;
  }

  const auto out = std::make_unique<char[]>(room);
  bool good = false;
  std::string before;
  std::string after = "?";
  long expanded = count;
  Model expected;
  // Try again if the clock has advanced.
  while (before != after) {
    std::vector<char> stamp(64);
    format_string_util(stamp.data(), stamp.size(), "%T", nullptr);
    before = stamp.data();
    good = format_string_util(out.get(), room, templ.c_str(), with_band ? &band : nullptr);
    expected = model(room, templ, with_band ? &band : nullptr, expanded, before);
    format_string_util(stamp.data(), stamp.size(), "%T", nullptr);
    after = stamp.data();
  }
  count = expanded;
  require(before.size() == 15 && before.find_first_not_of("0123456789") == 8 && before[8] == '_' &&
              before.find_first_not_of("0123456789", 9) == std::string::npos,
          "a time stamp");
  require(good == expected.good, "the result");
  require_equal(out.get(), expected.memory.data(), "the name");
  return 0;
}
