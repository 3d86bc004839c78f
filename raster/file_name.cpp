// SPDX-License-Identifier: Apache-2.0
#include "raster/file_name.h"

#include <cstddef>
#include <cstring>

bool FileName::has(char letter) const {
  for (std::size_t i = 0; i + 1 < templ_.size(); ++i) {
    if (templ_[i] == '%' && templ_[++i] == letter) {
      return true;
    }
  }
  return false;
}

std::string FileName::expand(std::uint64_t page, std::uint64_t plane,
                             const tagLNBandImageParams& band) const {
  std::string templ;
  for (std::size_t i = 0; i < templ_.size(); ++i) {
    const bool placeholder = templ_[i] == '%' && i + 1 < templ_.size();
    if (placeholder && templ_[i + 1] == 'P') {
      templ += std::to_string(page);
      ++i;
    } else if (placeholder && templ_[i + 1] == 'L') {
      templ += std::to_string(plane);
      ++i;
    } else {
      templ += templ_[i];
      if (placeholder) {
        templ += templ_[++i];
      }
    }
  }
  // Large enough for any template: two characters expand to at most twenty.
  std::string name(templ.size() * 10 + 64, '\0');
  format_string_util(name.data(), name.size(), templ.c_str(), &band);
  name.resize(std::strlen(name.c_str()));
  return name;
}
