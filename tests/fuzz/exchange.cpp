// SPDX-License-Identifier: Apache-2.0
// Compares the exchange and both queries with a model, for an output that accepts any number of bytes, any
// statuses, and a reply in any pieces.

#include <algorithm>
#include <optional>

#include "filter/levels_query.h"
#include "filter/printer_exchange.h"
#include "filter/status_query.h"
#include "tests/fuzz/arbitrary_channels.h"
#include "tests/fuzz/require.h"
#include "tests/support/expected_log.h"
#include "tests/unit/captured_stream.h"

namespace {

/// An output that accepts a limited number of bytes.
struct Device {
  std::size_t room;
  std::string taken;
};

ssize_t write_to_device(void* cookie, const char* data, size_t size) {
  auto* device = static_cast<Device*>(cookie);
  const std::size_t count = std::min(size, device->room);
  device->taken.append(data, count);
  device->room -= count;
  return static_cast<ssize_t>(count);
}

std::string drain_line_of(int status) {
  static const std::vector<std::string> names = {"NONE",        "OK",          "IO_ERROR", "TIMEOUT",
                                                 "NO_RESPONSE", "BAD_MESSAGE", "TOO_BIG",  "NOT_IMPLEMENTED"};
  const bool known = status >= 0 && static_cast<std::size_t>(status) < names.size();
  return drain_line(known ? "CUPS_SC_STATUS_" + names[static_cast<std::size_t>(status)] : "UNKNOWN", status);
}

/// The expected log, and the reply, or nothing if the query must fail.
std::optional<std::string> model(const std::string& request, std::size_t minimum, const std::string& label,
                                 std::size_t room, bool buffered, std::string& log) {
  log = trace_lines("[CMD]", request);
  if (room < request.size()) {
    log +=
        buffered ? "DEBUG: fflush() failed.\n" : "DEBUG: fwrite() failed. ret=" + std::to_string(room) + "\n";
    require(channels.exchanges.empty(), "no query may follow a failed write");
    return std::nullopt;
  }
  require(channels.exchanges.size() == 1, "a query drains once");
  const auto& exchange = channels.exchanges.front();
  log += drain_line_of(exchange.drain);
  std::string reply;
  for (const auto& piece : exchange.reads) {
    require(reply.size() < minimum, "no read is made once the minimum is there");
    reply += piece;
  }
  if (exchange.failed_read < 1) {
    log += read_failure_line(static_cast<int>(exchange.failed_read));
    return std::nullopt;
  }
  require(reply.size() >= minimum, "reads go on until the minimum is there");
  log += trace_lines(label, reply);
  return reply;
}

unsigned word(const std::string& reply, std::size_t position) {
  return static_cast<unsigned char>(reply[position]) * 256U + static_cast<unsigned char>(reply[position + 1]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  channels = {};
  channels.input = &input;

  const int kind = input.ConsumeIntegralInRange(0, 2);
  const bool buffered = input.ConsumeBool();
  const auto room =
      input.ConsumeBool() ? std::size_t{1000} : input.ConsumeIntegralInRange<std::size_t>(0, 20);
  std::string request = kind == 0 ? STATUS_REQUEST : LEVELS_REQUEST;
  std::size_t minimum = kind == 0 ? 15 : 26;
  const char* label = kind == 0 ? "[STS]" : "[REP]";
  if (kind == 2) {
    request = "?" + input.ConsumeBytesAsString(input.ConsumeIntegralInRange<std::size_t>(0, 30));
    minimum = input.ConsumeIntegralInRange<std::size_t>(1, 512);
  }

  Device device{room, {}};
  FILE* const original = stdout;
  stdout = fopencookie(&device, "w", {nullptr, write_to_device, nullptr, nullptr});
  setvbuf(stdout, nullptr, buffered ? _IOFBF : _IONBF, BUFSIZ);
  PrinterState state = PrinterState::Any();
  PrinterLevels levels(PrinterLevels::Type::Unavailable);
  std::string bytes;
  const std::string log = captured_log([&] {
    if (kind == 0) {
      state = get_printer_state();
    } else if (kind == 1) {
      levels = get_printer_levels();
    } else {
      const std::vector<unsigned char> packet(request.begin(), request.end());
      ReplyBuffer buffer;
      const auto reply = exchange_with_printer({packet, minimum, label}, buffer);
      bytes.assign(reply.begin(), reply.end());
    }
  });
  fclose(stdout);
  stdout = original;

  std::string expected;
  const auto reply = model(request, minimum, label, room, buffered, expected);
  require_equal(log, expected, "the log");
  require_equal(device.taken, request.substr(0, room), "what the printer gets");
  if (kind == 0) {
    require(state.type == (reply ? PrinterState::Type::Error : PrinterState::Type::Unavailable),
            "the state is known if a reply came");
    require(!reply || state.code == word(*reply, 4), "the code is that of the reply");
  } else if (kind == 1) {
    require(levels.isGood() == reply.has_value(), "the levels are known if a reply came");
    require(!reply || (levels.total == word(*reply, 20) && levels.remaining == word(*reply, 22) &&
                       levels.ink_sheet_type == static_cast<unsigned char>((*reply)[17])),
            "the levels are those of the reply");
  } else {
    require_equal(bytes, reply.value_or(""), "the reply");
  }
  return 0;
}
