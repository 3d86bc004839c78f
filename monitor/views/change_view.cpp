// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/change_view.h"

#include <string_view>
#include <vector>

#include "monitor/views/json_view.h"
#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

/// More than a person reads, and far less than an environment can hold.
constexpr std::size_t LONGEST_VALUE = 1000;

/// The text as a value of a variable.
std::string value_of(const std::string& text) {
  auto value = printable(text);
  if (value.size() > LONGEST_VALUE) {
    std::size_t end = LONGEST_VALUE;
    while ((static_cast<unsigned char>(value[end]) & 0xC0U) == 0x80U) {
      --end;  // not in the middle of a character
    }
    value.resize(end);
    value += "…";
  }
  return value;
}

std::string well_text(const Change& change) {
  return change.old && change.old->level != Level::Ok ? "all well again" : "all well";
}

std::string queue_text(const Change& change, const QueueReport& queue) {
  if (change.now.level == Level::Ok) {
    return well_text(change) + ", " + prints_left_text(queue.reading);
  }
  std::vector<std::string> parts;
  for (const auto& trouble : troubles(queue, change.report.limits, change.server)) {
    parts.push_back(to_text(trouble));
    if (!trouble.action.empty()) {
      parts.back() += ". " + trouble.action;
    }
  }
  return joined(parts, " ");
}

}  // namespace

std::string change_name(const Change& change) {
  if (change.queue.empty()) {
    return "print server " + change.server;
  }
  return change.server == LOCAL_SERVER ? change.queue : change.queue + " on " + change.server;
}

std::string change_text(const Change& change) {
  const auto& server = change.report.servers.at(0);
  const auto text = !change.queue.empty()  ? queue_text(change, server.queues.at(0))
                    : server.error.empty() ? well_text(change)
                                           : server.error;
  return change_name(change) + ": " + text;
}

std::map<std::string, std::string> change_variables(const Change& change) {
  return {
      {"BRENVELLIS_TEXT", value_of(change_text(change))},
      {"BRENVELLIS_QUEUE", value_of(change.queue)},
      {"BRENVELLIS_SERVER", value_of(change.server)},
      {"BRENVELLIS_STATUS", name_of(change.now.level)},
      {"BRENVELLIS_OLD_STATUS", change.old ? name_of(change.old->level) : ""},
      {"BRENVELLIS_CAUSE", value_of(joined(change.now.causes, " "))},
  };
}

std::string change_json(const Change& change) {
  return json_view(change.report, -1);
}
