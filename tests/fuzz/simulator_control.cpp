// SPDX-License-Identifier: Apache-2.0
// Sends any bytes in any chunks to the control socket: each line gets one reply, an invalid line changes
// nothing, and the settings survive being printed and parsed.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

#include "simulator/command_words.h"
#include "simulator/control_command.h"
#include "tests/fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto chunk_size = input.ConsumeIntegralInRange<std::size_t>(1, 300);
  const std::string stream = input.ConsumeRemainingBytesAsString();

  ControlLineReader reader;
  std::vector<std::optional<std::string>> lines;
  for (std::size_t at = 0; at < stream.size(); at += chunk_size) {
    const auto more = reader.feed(std::string_view(stream).substr(at, chunk_size));
    lines.insert(lines.end(), more.begin(), more.end());
  }
  require(lines == ControlLineReader().feed(stream), "the lines are the same however they are cut");
  require(lines.size() == static_cast<std::size_t>(std::ranges::count(stream, '\n')), "a line is a line");

  SimulatedPrinter printer;
  for (const auto& line : lines) {
    const std::string before = execute_control_line("show", printer);
    const std::string reply = execute_control_line(line, printer);
    require(std::ranges::all_of(reply, [](char c) { return c >= ' ' && c <= '~'; }), "a reply is plain text");
    if (reply.starts_with("error: ")) {
      require(execute_control_line("show", printer) == before, "a refused line changes nothing");
    } else {
      require(reply == "ok" || reply.starts_with("ok ") || reply.starts_with("code "),
              "a reply is one of two");
    }
    const std::string text = to_string(printer.settings.fault);
    std::string error;
    const auto words = split_words(text);
    const auto fault = parse_fault(words, error);
    require(fault && to_string(*fault) == text, "a fault is read as it was written");
  }
  return 0;
}
