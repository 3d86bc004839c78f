// SPDX-License-Identifier: Apache-2.0
#include "filter/state_cleanup.h"

#include <cups/cups.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// @param list  keywords separated by commas; overwritten.
void clear_reasons(char* list) {
  const char* reason = strtok(list, ",");
  // With no keyword, reason is null and glibc prints "(null)", on purpose.
  fprintf(stderr, "STATE: -%s\n", reason);
  while ((reason = strtok(nullptr, ",")) != nullptr) {
    fprintf(stderr, "STATE: -%s\n", reason);
  }
}

}  // namespace

void clean_printer_state() {
  // The first and the last line have no prefix, on purpose.
  fprintf(stderr, "clean_printer_state() START\n");
  cups_dest_t* destinations = nullptr;
  const int count = cupsGetDests(&destinations);
  const cups_dest_t* destination = cupsGetDest(nullptr, nullptr, count, destinations);
  if (destination == nullptr) {
    fprintf(stderr, "DEBUG: Not found default(destination) printer.\n");
  } else {
    const char* reasons =
        cupsGetOption("printer-state-reasons", destination->num_options, destination->options);
    char* copy = reasons != nullptr ? strdup(reasons) : nullptr;
    if (copy != nullptr) {
      clear_reasons(copy);
      free(copy);
    }
  }
  cupsFreeDests(count, destinations);
  fprintf(stderr, "clean_printer_state() END\n");
}
