// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_state.h"

#include <array>
#include <cstdio>

std::string PrinterState::to_string() const {
  switch (type) {
    case Type::Unavailable:
      return "UNAVAILABLE";
    case Type::Error: {
      if (code == 0) {
        return "GOOD";
      }
      std::array<char, sizeof "0xffff"> text{};
      snprintf(text.data(), text.size(), "%#06x", code);
      return text.data();
    }
    case Type::Any:
      return "ANY";
  }
  return "UNKNOWN";
}
