#include "filter/levels_query.h"

#include "filter/printer_exchange.h"

namespace {
constexpr std::array<unsigned char, 10> LEVELS_REQUEST = {0x1b, 'G', 'D', '0', 0, 0, 3, 0x1e, 0x16, 0x2a};
constexpr PrinterQuery LEVELS_QUERY = {LEVELS_REQUEST, 26, "[REP]"};
}  // namespace

PrinterLevels get_printer_levels() {
  ReplyBuffer buffer;
  const auto reply = exchange_with_printer(LEVELS_QUERY, buffer);
  return reply.empty() ? PrinterLevels::Unavailable() : PrinterLevels::Parse(reply.data());
}
