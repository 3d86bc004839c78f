// SPDX-License-Identifier: Apache-2.0
// The printer exchange sends one request to the printer through the queue's backend and reads the reply.
#pragma once

#include <array>
#include <cstddef>
#include <span>

/// PrinterQuery holds the parameters of one request to the printer.
struct PrinterQuery {
  /// The request packet; see printer_packets.h.
  std::span<const unsigned char> request;
  /// Reading stops as soon as this many bytes have arrived; 1 to the size of a ReplyBuffer.
  std::size_t minimum_reply;
  /// The label of the reply in the channel trace.
  const char* reply_label;
};

/// ReplyBuffer holds the reply to one request.
using ReplyBuffer = std::array<char, 512>;

/// Sends a request and reads the reply, in these steps: traces the request, writes it to standard output,
/// asks the backend through the side channel to drain it to the device (at most 5.0 seconds; the result is
/// logged but otherwise ignored), reads the back channel (at most 1.0 second per read) until the minimum has
/// arrived, and traces the reply.
///
/// @return all bytes received, from the minimum up to the buffer's size, as a view of `buffer`. Empty if a
///         write, the flush or a read failed; the last "DEBUG: " line on standard error then shows which.
std::span<const char> exchange_with_printer(const PrinterQuery& query, ReplyBuffer& buffer);
