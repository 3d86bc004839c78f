// SPDX-License-Identifier: Apache-2.0
#include "monitor/reason_code.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::string_view PREFIX = "com.brenvellis-error";
constexpr std::array<std::string_view, 3> SEVERITIES = {"-error", "-warning", "-report"};

bool four_of(std::string_view text, std::string_view digits) {
  return text.size() == 4 && text.find_first_not_of(digits) == std::string_view::npos;
}

}  // namespace

std::optional<ReasonCode> parse_reason(std::string_view keyword) {
  if (!keyword.starts_with(PREFIX)) {
    return std::nullopt;
  }
  keyword.remove_prefix(PREFIX.size());
  for (const auto severity : SEVERITIES) {
    if (keyword.ends_with(severity)) {
      keyword.remove_suffix(severity.size());
      break;
    }
  }
  const auto group = keyword.substr(0, 4);
  if (!four_of(group, "0123456789")) {
    return std::nullopt;
  }
  keyword.remove_prefix(4);
  if (keyword.empty()) {
    return ReasonCode{std::string(group), std::string(group)};
  }
  const auto code = keyword.substr(1);
  if (keyword.front() != '_' || !four_of(code, "0123456789abcdefABCDEF")) {
    return std::nullopt;
  }
  return ReasonCode{std::string(group), std::string(code)};
}

std::string reason_keyword(const ReasonCode& error) {
  std::string keyword = std::string(PREFIX) + error.group;
  if (error.code != error.group) {
    keyword += "_" + error.code;
  }
  return keyword;
}

bool is_fallback(const ReasonCode& error) {
  return error.group == "0004" && error.code == "0004";
}
