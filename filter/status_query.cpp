// SPDX-License-Identifier: Apache-2.0
#include "filter/status_query.h"

#include "filter/printer_exchange.h"
#include "filter/printer_packets.h"

namespace {
constexpr PrinterQuery STATUS_QUERY = {STATUS_REQUEST_PACKET, STATUS_REPLY_MINIMUM, "[STS]"};
}  // namespace

PrinterState get_printer_state() {
  ReplyBuffer buffer;
  const auto reply = exchange_with_printer(STATUS_QUERY, buffer);
  return reply.empty() ? PrinterState::Unavailable()
                       : PrinterState::Error(reply_word(reply.data(), STATUS_REPLY_CODE));
}
