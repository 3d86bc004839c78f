// SPDX-License-Identifier: Apache-2.0
// Reads a scheduler's answer with any attributes of any types. All views of it are well-formed, and it is
// within the limits for messages between the processes.

#include <cups/cups.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <sstream>

#include "monitor/reading.h"
#include "monitor/server_messages.h"
#include "monitor/views/html_view.h"
#include "monitor/views/json_view.h"
#include "monitor/views/plugin_view.h"
#include "monitor/views/prometheus_view.h"
#include "monitor/views/ready_view.h"
#include "monitor/views/text_view.h"
#include "tests/fuzz/require.h"

namespace {

/// Adds an attribute with a name that the monitor reads; the input chooses its type and values.
void add_attribute(ipp_t* answer, FuzzedDataProvider& input) {
  const auto& names = reading_attributes();
  const char* name = names.at(input.ConsumeIntegralInRange<std::size_t>(0, names.size() - 1));
  const int count = input.ConsumeIntegralInRange(1, 4);
  std::vector<std::string> texts;
  std::vector<const char*> pointers;
  std::vector<int> numbers;
  for (int i = 0; i < count; ++i) {
    texts.push_back(input.ConsumeRandomLengthString(200));
    texts.back().resize(std::char_traits<char>::length(texts.back().c_str()));
    numbers.push_back(input.ConsumeIntegral<int>());
  }
  for (const auto& text : texts) {
    pointers.push_back(text.c_str());
  }
  static constexpr std::array TEXTS = {IPP_TAG_TEXT, IPP_TAG_NAME, IPP_TAG_KEYWORD, IPP_TAG_URI};
  const int kind = input.ConsumeIntegralInRange(0, 6);
  if (kind < 4) {
    ippAddStrings(answer, IPP_TAG_PRINTER, TEXTS.at(static_cast<std::size_t>(kind)), name, count, nullptr,
                  pointers.data());
  } else if (kind == 4) {
    ippAddIntegers(answer, IPP_TAG_PRINTER, IPP_TAG_INTEGER, name, count, numbers.data());
  } else if (kind == 5) {
    ippAddIntegers(answer, IPP_TAG_PRINTER, IPP_TAG_ENUM, name, count, numbers.data());
  } else {
    ippAddBoolean(answer, IPP_TAG_PRINTER, name, static_cast<char>(numbers.front() & 1));
  }
}

void check_views(const Report& report) {
  const auto json = nlohmann::json::parse(json_view(report), nullptr, false);
  require(!json.is_discarded(), "the JSON is valid");

  for (const bool utf8 : {false, true}) {
    const auto plugin = plugin_view(report, utf8);
    require(std::ranges::count(plugin, '\n') == 1 && std::ranges::count(plugin, '|') <= 1,
            "a plug-in's output is one line with one bar");
    for (const auto& text :
         {text_view(report, {.utf8 = utf8, .color = false}),
          text_view(report, {.utf8 = utf8, .color = false, .width = 40}), ready_view(report, utf8), plugin}) {
      for (const char byte : text) {
        const auto c = static_cast<unsigned char>(byte);
        require(c == '\n' || (c >= ' ' && c != 0x7f), "no control character reaches the terminal");
        require(utf8 || c < 0x80, "ASCII is ASCII");
      }
    }
  }

  std::istringstream samples(prometheus_view(report));
  for (std::string line; std::getline(samples, line);) {
    require(!line.empty() && (line.starts_with("# ") || line.starts_with("brenvellis_")),
            "a sample is a line");
  }

  const std::string page = html_view(report);
  require(page.find("<script") == page.rfind("<script") && page.find("<img") == std::string::npos,
          "no text becomes an element");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  ipp_t* answer = ippNew();
  const int queues = input.ConsumeIntegralInRange(1, 3);
  for (int i = 0; i < queues; ++i) {
    if (i > 0) {
      ippAddSeparator(answer);
    }
    for (int k = input.ConsumeIntegralInRange(0, 12); k > 0; --k) {
      add_attribute(answer, input);
    }
  }
  Report report;
  report.time = 1795193162;
  report.limits.low.number = input.ConsumeIntegralInRange(0, 100);
  ServerReport server;
  server.server = input.ConsumeRandomLengthString(40);
  const auto readings = read_queues(answer);
  const auto sent = decode_answer(encode(SchedulerAnswer(Look{readings, {}})));
  require(sent && std::get<Look>(*sent).queues == readings, "what was read can be sent");
  for (auto reading : readings) {
    static_cast<void>(ribbon_ratio(reading));
    server.queues.push_back({std::move(reading), static_cast<Outcome>(input.ConsumeIntegralInRange(0, 8)),
                             input.ConsumeRandomLengthString(40), 0.5});
  }
  report.servers.push_back(server);
  ippDelete(answer);
  check_views(report);
  return 0;
}
