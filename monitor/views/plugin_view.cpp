// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/plugin_view.h"

#include <algorithm>
#include <set>

#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

/// A consumer may cut a long line: the performance data of all queues are to fit behind the troubles.
constexpr std::size_t MOST_TROUBLES = 10;

struct Entry {
  Verdict verdict;
  std::string text;
};

const char* state_name(Verdict verdict) {
  switch (verdict) {
    case Verdict::Well:
      return "OK";
    case Verdict::Low:
      return "WARNING";
    case Verdict::Error:
      return "CRITICAL";
    case Verdict::Unknown:
      return "UNKNOWN";
  }
  return "UNKNOWN";
}

std::string replaced(std::string text, char old_character, char new_character) {
  std::ranges::replace(text, old_character, new_character);
  return text;
}

/// Returns the queue's problem, or the prints left if the ribbon's level is the only one.
std::string trouble_line(const QueueReport& queue, const Limits& limits, std::string_view server) {
  const auto list = troubles(queue, limits, server);
  const bool is_only_low = list.size() == 1 && !is_empty(queue.reading) &&
                           (is_under(queue.reading, limits.low) || is_under(queue.reading, limits.critical));
  if (list.empty() || is_only_low) {
    return prints_left_text(queue.reading);
  }
  std::vector<std::string> causes;
  for (const auto& trouble : list) {
    causes.push_back(to_text(trouble));
    if (causes.back().ends_with('.')) {
      causes.back().pop_back();
    }
  }
  return joined(causes);
}

/// Labels makes the labels of the performance data, which are unique.
class Labels {
 public:
  explicit Labels(bool utf8) : utf8_(utf8) {}

  /// A label in quotation marks: a quotation mark in it is doubled, and an equals sign is not allowed.
  std::string next(const std::string& name) {
    const auto plain = replaced(replaced(printable(name), '=', '_'), '|', '_');
    const auto stem = utf8_ ? plain : to_ascii(plain);
    std::string label = stem;
    for (int number = 2; !used_.insert(label).second; ++number) {
      label = stem + "_" + std::to_string(number);
    }
    std::string text;
    for (const char c : label) {
      text += c == '\'' ? "''" : std::string(1, c);
    }
    return "'" + text + "_prints'";
  }

 private:
  bool utf8_;
  std::set<std::string> used_;
};

/// "'booth_prints'=200;44:;1:;0;400": the value, the lowest values without a warning and without an alarm,
/// and the least and the most; "U" for a value that is not known.
std::string performance_data(const QueueReport& queue, const std::string& label, const Limits& limits) {
  const auto& reading = queue.reading;
  if (!reading.prints_remaining || !reading.prints_total) {
    return label + "=U";
  }
  const int total = *reading.prints_total;
  return label + "=" + std::to_string(*reading.prints_remaining) + ";" +
         std::to_string(fewest_above(limits.low, total)) + ":;" +
         std::to_string(fewest_above(limits.critical, total)) + ":;0;" + std::to_string(total);
}

std::string summary(const std::vector<Entry>& entries, const Report& report, std::size_t queues) {
  std::vector<std::string> texts;
  for (const auto& entry : entries) {
    if (texts.size() < MOST_TROUBLES) {
      texts.push_back(entry.text);
    }
  }
  if (entries.size() > MOST_TROUBLES) {
    texts.push_back("and " + std::to_string(entries.size() - MOST_TROUBLES) + " more");
  }
  if (!texts.empty()) {
    return joined(texts, "; ");
  }
  if (queues == 0) {
    return "no Brenvellis queues found";
  }
  if (queues > 1) {
    return std::to_string(queues) + " printers, all well";
  }
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      return queue.reading.queue + ": " + prints_left_text(queue.reading);
    }
  }
  return {};
}

}  // namespace

std::string plugin_heading(Verdict verdict) {
  return std::string("BRENVELLIS ") + state_name(verdict) + " - ";
}

std::string plugin_view(const Report& report, bool utf8) {
  const bool with_server = report.servers.size() > 1;
  std::vector<Entry> entries;
  std::vector<std::string> data;
  Labels labels(utf8);
  std::size_t queues = 0;
  for (const auto& server : report.servers) {
    if (!server.error.empty()) {
      entries.push_back({Verdict::Unknown, "print server " + server.server + ": " + server.error});
    }
    for (const auto& queue : server.queues) {
      ++queues;
      const auto name = full_name(queue, server, with_server);
      const auto verdict = judge(queue, report.limits);
      if (verdict != Verdict::Well) {
        entries.push_back({verdict, name + ": " + trouble_line(queue, report.limits, server.server)});
      }
      if (queue.outcome != Outcome::NotFound && !has_other_supplies(queue.reading)) {
        data.push_back(performance_data(queue, labels.next(name), report.limits));
      }
    }
  }
  std::ranges::stable_sort(
      entries, [](const Entry& one, const Entry& other) { return is_worse(one.verdict, other.verdict); });

  // A vertical bar separates the text from the performance data.
  std::string line =
      plugin_heading(judge(report)) + replaced(printable(summary(entries, report, queues)), '|', '/');
  if (!data.empty()) {
    line += " | " + joined(data, " ");
  }
  return (utf8 ? line : to_ascii(line)) + "\n";
}
