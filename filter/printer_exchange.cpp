// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_exchange.h"

#include <cups/cups.h>
#include <cups/sidechannel.h>

#include <cstdio>

#include "filter/channel_trace.h"

std::span<const char> exchange_with_printer(const PrinterQuery& query, ReplyBuffer& buffer) {
  dump_mem("[CMD]", query.request.data(), static_cast<int>(query.request.size()));

  const std::size_t written = fwrite(query.request.data(), 1, query.request.size(), stdout);
  if (written != query.request.size()) {
    fprintf(stderr, "DEBUG: fwrite() failed. ret=%zu\n", written);
    return {};
  }
  if (fflush(stdout) != 0) {
    fprintf(stderr, "DEBUG: fflush() failed.\n");
    return {};
  }

  // The drain's result is only logged, on purpose, because the reply may arrive all the same. The drain times
  // out after 5 seconds and each read below after 1 second; the exchange as a whole has no limit.
  int drain_length = static_cast<int>(buffer.size());
  const cups_sc_status_t drained =
      cupsSideChannelDoRequest(CUPS_SC_CMD_DRAIN_OUTPUT, buffer.data(), &drain_length, 5.0);
  fprintf(stderr, "DEBUG: CUPS_SC_CMD_DRAIN_OUTPUT=%s(%d)\n", to_string(drained), drained);

  std::size_t received = 0;
  while (received < query.minimum_reply) {
    const ssize_t count = cupsBackChannelRead(buffer.data() + received, buffer.size() - received, 1.0);
    if (count < 1) {  // on purpose, no read is retried and a partial reply is discarded
      fprintf(stderr, "DEBUG: cupsBackChannelRead() failed. ret=%zd\n", count);
      return {};
    }
    received += static_cast<std::size_t>(count);
  }

  dump_mem(query.reply_label, buffer.data(), static_cast<int>(received));
  return std::span(buffer).first(received);
}
