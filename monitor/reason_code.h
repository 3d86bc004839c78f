// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// ReasonCode is a printer's error as the driver's state reasons name it: a group of four digits, which the
/// printer's manual explains, and the printer's own code of four hexadecimal digits.
struct ReasonCode {
  std::string group;
  std::string code;

  bool operator==(const ReasonCode&) const = default;
};

/// The error behind a printer-state-reasons keyword: com.brenvellis-errorGGGG_CCCC, or
/// com.brenvellis-errorGGGG for a group whose only code is its own number; with or without a severity
/// (-error, -warning, -report) at its end.
/// @return nothing for any other keyword.
[[nodiscard]] std::optional<ReasonCode> parse_reason(std::string_view keyword);

/// The keyword of an error, without a severity.
[[nodiscard]] std::string reason_keyword(const ReasonCode& error);

/// True for the keyword that the filter also raises when the printer does not answer, and for a code that the
/// driver does not know.
[[nodiscard]] bool is_fallback(const ReasonCode& error);
