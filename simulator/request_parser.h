// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "simulator/printer_condition.h"

/// RequestParser finds the request packets (1b 47 44 30 00 00, a count n, n selector bytes) in what one
/// connection sends, however that is cut into chunks.
class RequestParser {
 public:
  /// Takes the next bytes of the connection.
  ///
  /// @return the packets that these bytes completed, oldest first, each whole.
  std::vector<Bytes> feed(std::span<const unsigned char> chunk);

  /// Ends the stream: a packet begun and not completed turns out to be no packet.
  void finish();

  /// @return the count so far of bytes that belong to no packet.
  [[nodiscard]] std::size_t other_bytes() const { return other_bytes_; }

 private:
  Bytes begun_;
  std::size_t other_bytes_ = 0;
};

/// @return what a whole packet asks for; nothing if the printer does not answer such a packet.
std::optional<RequestKind> identify_request(std::span<const unsigned char> packet);
