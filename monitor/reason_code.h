// SPDX-License-Identifier: Apache-2.0
// The errors in printer-state-reasons keywords.
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// ReasonCode is a printer's error in the state reasons: a group of four digits and a code of four
/// hexadecimal digits. The printer's manual explains both.
struct ReasonCode {
  std::string group;
  std::string code;

  bool operator==(const ReasonCode&) const = default;
};

/// Parses a printer-state-reasons keyword: com.brenvellis-errorGGGG_CCCC, or com.brenvellis-errorGGGG for a
/// group whose only code is its own number. The keyword may end with a severity (-error, -warning, -report).
/// @return nothing for any other keyword.
[[nodiscard]] std::optional<ReasonCode> parse_reason(std::string_view keyword);

/// Returns the keyword of an error without a severity.
[[nodiscard]] std::string reason_keyword(const ReasonCode& error);

/// Returns whether this is the keyword that the filter also raises if the printer does not answer or reports
/// an unknown code.
[[nodiscard]] bool is_fallback(const ReasonCode& error);
