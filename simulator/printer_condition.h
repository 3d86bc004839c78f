// SPDX-License-Identifier: Apache-2.0
// The values that the simulated printer reports, and its replies.
#pragma once

#include <cstdint>
#include <vector>

using Bytes = std::vector<unsigned char>;

/// RequestKind is a request that the printer answers.
enum class RequestKind { Status, Levels };

/// PrinterCondition holds the values that the printer reports.
struct PrinterCondition {
  std::uint16_t code = 0;         ///< status code; 0 means no error
  std::uint16_t total = 400;      ///< prints of a new ink ribbon
  std::uint16_t remaining = 400;  ///< prints left on it
  std::uint8_t sheet = 0x02;      ///< code of the ink sheet type
};

/// Returns the printer's reply: 15 bytes for the status, 26 for the levels. All other bytes are 0.
Bytes make_reply(RequestKind kind, const PrinterCondition& condition);
