#include "filter/status_query.h"

#include "filter/printer_exchange.h"

namespace {
constexpr std::array<unsigned char, 8> STATUS_REQUEST = {0x1b, 'G', 'D', '0', 0, 0, 1, 0x16};
constexpr PrinterQuery STATUS_QUERY = {STATUS_REQUEST, 15, "[STS]"};
}  // namespace

PrinterState get_printer_state() {
  ReplyBuffer buffer;
  const auto reply = exchange_with_printer(STATUS_QUERY, buffer);
  if (reply.empty()) {
    return PrinterState::Unavailable();
  }
  const auto high = static_cast<unsigned char>(reply[4]);
  const auto low = static_cast<unsigned char>(reply[5]);
  return PrinterState::Error(static_cast<std::uint16_t>(high << 8 | low));
}
