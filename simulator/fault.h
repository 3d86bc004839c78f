// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/printer_condition.h"

/// Fault is what goes wrong between a request and its reply.
struct Fault {
  enum class Kind { None, Silent, Short, Drip, Split, Long, Garbage, Slow, Close, Refuse };

  Kind kind = Kind::None;
  std::size_t count = 0;              ///< bytes, 0 to 4096; Short, Split, Long and Close
  std::chrono::milliseconds pause{};  ///< 0 to 60000; Drip, Split and Slow
  std::optional<RequestKind> only;    ///< the one kind of request that it concerns; nothing: both
};

/// Piece is a part of a reply on its way to the peer.
struct Piece {
  std::chrono::milliseconds delay{};  ///< the wait before it is sent
  Bytes bytes;
  bool close_after = false;  ///< close the connection once it is sent
};

/// Reads a fault as it is written on a command line: "none", "slow 500", "split 10 300 levels".
///
/// @return the fault; nothing if the words are none, and `error` then says what to write instead.
std::optional<Fault> parse_fault(std::span<const std::string_view> words, std::string& error);

/// How every fault is written: "none", "short N [status|levels]".
std::vector<std::string_view> fault_forms();

/// @return the fault as parse_fault reads it, its default values written out, with `separator` for the
/// blanks.
std::string to_string(const Fault& fault, char separator = ' ');

/// Cuts a reply to a request of the given kind into what is really sent under the fault; nothing at all if
/// the fault keeps it back.
std::vector<Piece> plan_delivery(const Fault& fault, RequestKind kind, Bytes reply);
