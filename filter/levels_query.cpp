// SPDX-License-Identifier: Apache-2.0
#include "filter/levels_query.h"

#include "filter/printer_exchange.h"
#include "filter/printer_packets.h"

namespace {
constexpr PrinterQuery LEVELS_QUERY = {LEVELS_REQUEST_PACKET, LEVELS_REPLY_MINIMUM, "[REP]"};
}  // namespace

PrinterLevels get_printer_levels() {
  ReplyBuffer buffer;
  const auto reply = exchange_with_printer(LEVELS_QUERY, buffer);
  return reply.empty() ? PrinterLevels::Unavailable() : PrinterLevels::Parse(reply.data());
}
