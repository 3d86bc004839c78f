// SPDX-License-Identifier: Apache-2.0
#include "filter/channel_trace.h"

#include <array>
#include <cstdio>

void dump_mem(const char* label, const void* data, int size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  fprintf(stderr, "DEBUG: %s size=%d", label, size);
  for (int i = 0;; ++i) {
    if (size == 0 || (i % 16 == 0 && i < size)) {
      fprintf(stderr, "\nDEBUG: %s %04x:", label, static_cast<unsigned>(i));
    }
    if (i >= size) {
      break;
    }
    fprintf(stderr, " %02x", bytes[i]);
  }
  fprintf(stderr, "\n");
}

const char* to_string(cups_sc_status_e status) {
  static constexpr std::array NAMES = {
      "CUPS_SC_STATUS_NONE",        "CUPS_SC_STATUS_OK",
      "CUPS_SC_STATUS_IO_ERROR",    "CUPS_SC_STATUS_TIMEOUT",
      "CUPS_SC_STATUS_NO_RESPONSE", "CUPS_SC_STATUS_BAD_MESSAGE",
      "CUPS_SC_STATUS_TOO_BIG",     "CUPS_SC_STATUS_NOT_IMPLEMENTED",
  };
  const auto value = static_cast<unsigned>(status);
  return value < NAMES.size() ? NAMES[value] : "UNKNOWN";
}
