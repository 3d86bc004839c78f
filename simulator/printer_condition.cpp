// SPDX-License-Identifier: Apache-2.0
#include "simulator/printer_condition.h"

#include <cstddef>

namespace {

void put_big_endian(Bytes& reply, std::size_t position, std::uint16_t value) {
  reply[position] = static_cast<unsigned char>(value >> 8U);
  reply[position + 1] = static_cast<unsigned char>(value & 0xffU);
}

}  // namespace

Bytes make_reply(RequestKind kind, const PrinterCondition& condition) {
  Bytes reply(kind == RequestKind::Status ? 15 : 26);
  put_big_endian(reply, 4, condition.code);
  if (kind == RequestKind::Levels) {
    reply[17] = condition.sheet;
    put_big_endian(reply, 20, condition.total);
    put_big_endian(reply, 22, condition.remaining);
  }
  return reply;
}
