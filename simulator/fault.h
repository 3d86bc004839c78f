// SPDX-License-Identifier: Apache-2.0
// The faults of the simulated printer.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/printer_condition.h"

/// Fault is a fault between a request and its reply.
struct Fault {
  enum class Kind { None, Silent, Short, Drip, Split, Long, Garbage, Slow, Close, Refuse };

  Kind kind = Kind::None;
  std::size_t count = 0;              ///< bytes, 0 to 4096; Short, Split, Long and Close
  std::chrono::milliseconds pause{};  ///< 0 to 60000; Drip, Split and Slow
  std::optional<RequestKind> only;    ///< the affected kind of request; both if nothing
};

/// Piece is a part of a reply.
struct Piece {
  std::chrono::milliseconds delay{};  ///< the delay before it is sent
  Bytes bytes;
  bool close_after = false;  ///< close the connection after it is sent
};

/// Parses a fault: "none", "slow 500", "split 10 300 levels".
///
/// @return the fault; nothing if it is invalid, with a message in `error`.
std::optional<Fault> parse_fault(std::span<const std::string_view> words, std::string& error);

/// Returns the syntax of each fault: "none", "short N [status|levels]".
std::vector<std::string_view> fault_forms();

/// Returns the fault in the syntax of parse_fault, with default values, and with `separator` for blanks.
std::string to_string(const Fault& fault, char separator = ' ');

/// Returns the pieces of a reply that are sent with this fault; empty if none are sent.
std::vector<Piece> plan_delivery(const Fault& fault, RequestKind kind, Bytes reply);
