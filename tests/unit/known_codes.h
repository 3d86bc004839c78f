// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// The printer's error codes by group. This list is independent of the filter's table, so that each checks
/// the other.
inline const auto& codes_of_group() {
  // Local, because constants of other files are initialised from it before main.
  static const std::vector<std::pair<const char*, std::vector<const char*>>> CODES = {
      {"0001", {"0001"}},
      {"0002", {"0002"}},
      {"0003", {"0003"}},
      {"0004", {"0004"}},
      {"0005", {"0005"}},
      {"0006", {"2190"}},
      {"0007", {"2100", "2110", "2120", "2130"}},
      {"0008", {"2600", "2601", "2602", "2610", "2611", "2620", "2621", "2622", "2623", "2624", "2625",
                "2626", "2660", "2661", "2662", "2663", "2664", "2665", "2666", "2667", "2668", "2669",
                "2670", "2671", "2672", "2673", "2674", "2675", "2676", "2677", "2678", "2679", "2680",
                "2681", "2682", "2683", "2684", "2685", "2686", "2687", "2688", "2689", "2690"}},
      {"0009", {"3190", "3290", "3490", "3590", "3790"}},
      {"0010", {"2800"}},
      {"0011", {"2200"}},
      {"0012", {"2900"}},
      {"0013", {"2390"}},
      {"0015", {"2202"}},
      {"0016", {"4093", "4291", "4293", "4391", "4393", "4491", "4493"}},
      {"0017", {"7092", "7192", "7194", "7292", "7392", "7493"}},
      {"0018", {"7054", "7250", "7350", "7452", "7552"}},
      {"0019", {"6802"}},
      {"0020", {"6001", "6003", "6011", "6013"}},
      {"0021", {"6100"}},
      {"0024", {"6300", "6310", "6320"}},
      {"0025", {"6400", "6410", "6430"}},
      {"0027", {"6620"}},
      {"0028", {"6030"}},
      {"0029", {"6200", "6210", "6220"}},
      {"0031", {"6500", "6510", "6520", "6530"}},
      {"0032", {"0032"}},
      {"0033", {"0033"}},
      {"0034", {"6700", "6710", "6900", "6901", "6903"}},
  };
  return CODES;
}

/// The keyword of each code but 0.
inline std::map<std::uint16_t, std::string> known_keywords() {
  std::map<std::uint16_t, std::string> keywords;
  for (const auto& [group, codes] : codes_of_group()) {
    for (const std::string code : codes) {
      const std::string suffix = codes.size() == 1 && code == group ? "" : "_" + code;
      keywords[static_cast<std::uint16_t>(std::stoi(code, nullptr, 16))] =
          std::string("com.brenvellis-error") + group + suffix;
    }
  }
  return keywords;
}
