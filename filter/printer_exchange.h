// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <span>

/// PrinterQuery holds the parameters of one request to the printer.
struct PrinterQuery {
  /// The request packet, sent whole; see printer_packets.h.
  std::span<const unsigned char> request;
  /// Reading ends when this many bytes of the reply are there; 1 to the size of a ReplyBuffer.
  std::size_t minimum_reply;
  /// Names the reply in the channel trace.
  const char* reply_label;
};

using ReplyBuffer = std::array<char, 512>;

/// Asks the printer through the queue's backend: traces the request, writes it to standard output, has it
/// drained to the device through the side channel (at most 5.0 seconds; the result is logged but otherwise
/// ignored), reads the back channel (at most 1.0 second a read) until the minimum is there, traces the reply.
///
/// @return all bytes received, from the minimum up to the buffer's size; a view of `buffer`. Empty if a
///         write, the flush or a read failed, which is then the last "DEBUG: " line on standard error.
std::span<const char> exchange_with_printer(const PrinterQuery& query, ReplyBuffer& buffer);
