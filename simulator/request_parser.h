// SPDX-License-Identifier: Apache-2.0
// The recognition of request packets in a stream.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "simulator/printer_condition.h"

/// RequestParser finds the request packets (1b 47 44 30 00 00, a count n, n selector bytes) in the data of a
/// connection, in chunks of any size.
class RequestParser {
 public:
  /// Reads the next bytes of the connection.
  ///
  /// @return the packets that these bytes complete, oldest first.
  std::vector<Bytes> feed(std::span<const unsigned char> chunk);

  /// Ends the stream. An incomplete packet is counted as other bytes.
  void finish();

  /// @return the number of bytes so far that belong to no packet.
  [[nodiscard]] std::size_t other_bytes() const { return other_bytes_; }

 private:
  Bytes begun_;
  std::size_t other_bytes_ = 0;
};

/// @return the request of a packet; nothing if the printer does not answer it.
std::optional<RequestKind> identify_request(std::span<const unsigned char> packet);
