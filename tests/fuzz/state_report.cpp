// SPDX-License-Identifier: Apache-2.0
// Compares the report of any state and table with a model that tries each code of each row.

#include "filter/state_report.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <set>
#include <vector>

#include "tests/fuzz/require.h"
#include "tests/unit/captured_stream.h"

namespace {

bool equals(const PrinterState& state, unsigned code) {
  return state.type == PrinterState::Type::Any ||
         (state.type == PrinterState::Type::Error && state.code == code);
}

bool model_matches(const PrinterState& state, const PrinterStateReason& row) {
  for (unsigned low = 0; low < 256; ++low) {
    const bool named =
        row.minor < 256 ? low == row.minor : low >= row.minor % 256U && low <= row.minor / 256U;
    if (named && equals(state, row.major % 256U * 256U + low)) {
      return true;
    }
  }
  return false;
}

std::string model_text(const PrinterState& state) {
  switch (static_cast<int>(state.type)) {
    case 0:
      return "UNAVAILABLE";
    case 1: {
      if (state.code == 0) {
        return "GOOD";
      }
      std::string digits;
      for (int shift = 12; shift >= 0; shift -= 4) {
        digits += "0123456789abcdef"[state.code >> shift & 0xf];
      }
      return "0x" + digits;
    }
    case 2:
      return "ANY";
    default:
      return "UNKNOWN";
  }
}

std::string model(const PrinterState& state, const std::vector<PrinterStateReason>& table) {
  std::set<std::string> rest;
  for (const auto& row : table) {
    for (std::size_t i = 0; i < 4 && row.reasons[i] != nullptr; ++i) {
      rest.insert(row.reasons[i]);
    }
  }
  std::string log;
  bool matched = false;
  for (const auto& row : table) {
    if (!model_matches(state, row)) {
      continue;
    }
    matched = true;
    for (std::size_t i = 0; i < 4 && row.reasons[i] != nullptr; ++i) {
      const std::string keyword = row.reasons[i];
      rest.erase(keyword);
      log += "STATE: +" + keyword + "\nDEBUG: " + keyword + " " + model_text(state) + "\n";
    }
  }
  if (!matched) {
    rest.erase("com.brenvellis-error0004");
    log += "STATE: +com.brenvellis-error0004\nDEBUG: com.brenvellis-error0004 " + model_text(state) +
           "\nDEBUG: error_number part mismatch processing \n";
  }
  for (const auto& keyword : rest) {
    log += "STATE: -" + keyword + "\n";
  }
  return log;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static constexpr std::array<const char*, 8> keywords = {
      nullptr, "a", "ab", "abc", "com.brenvellis-error0004", "B", "", "b"};
  FuzzedDataProvider input(data, size);
  const auto type = input.ConsumeIntegralInRange(0, 3);
  const PrinterState state(static_cast<PrinterState::Type>(type), input.ConsumeIntegral<std::uint16_t>());
  std::vector<PrinterStateReason> table;
  while (input.remaining_bytes() > 0 && table.size() < 200) {
    PrinterStateReason row{};
    row.major = input.ConsumeIntegral<std::uint16_t>();
    row.minor = input.ConsumeIntegral<std::uint16_t>();
    for (auto& keyword : row.reasons) {
      keyword = keywords.at(input.ConsumeIntegralInRange<std::size_t>(0, keywords.size() - 1));
    }
    table.push_back(row);
  }
  require_equal(captured_log([&] { update_printer_state_from_table(state, table); }), model(state, table),
                "the report");
  return 0;
}
