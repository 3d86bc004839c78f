// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/prometheus_view.h"

#include <array>
#include <cstdio>
#include <functional>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "monitor/views/plain_text.h"

namespace {

std::string label(std::string_view name, std::string_view value) {
  std::string text = std::string(name) + "=\"";
  for (const char c : printable(value)) {
    if (c == '\\' || c == '"') {
      text += '\\';
    }
    text += c;
  }
  return text + "\"";
}

std::string number(double value) {
  std::array<char, 32> text{};
  const int length = snprintf(text.data(), text.size(), "%.10g", value);
  return {text.data(), static_cast<std::size_t>(length)};
}

/// A sample of a queue: its labels besides queue and server, and its value.
struct Sample {
  std::string labels;
  double value;
};

using Samples = std::vector<Sample>;

template <typename Value>
Samples single(const std::optional<Value>& value) {
  return value ? Samples{{{}, static_cast<double>(*value)}} : Samples{};
}

Samples single(bool value) {
  return {{{}, value ? 1.0 : 0.0}};
}

/// A metric with any number of samples for each queue.
struct QueueMetric {
  const char* name;
  const char* type;
  const char* help;
  std::function<Samples(const QueueReport&)> samples;
};

std::string header(const char* name, const char* type, const char* help) {
  return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string text_of(const Report& report, const QueueMetric& metric) {
  std::string text;
  std::set<std::string> seen;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      const auto own = label("queue", queue.reading.queue) + "," + label("server", server.server);
      for (const auto& sample : metric.samples(queue)) {
        const auto labels = sample.labels.empty() ? own : own + "," + sample.labels;
        if (seen.insert(labels).second) {
          text += std::string(metric.name) + "{" + labels + "} " + number(sample.value) + "\n";
        }
      }
    }
  }
  return text.empty() ? text : header(metric.name, metric.type, metric.help) + text;
}

/// A gauge with a sample for each server.
std::string server_text(const Report& report, const char* name, const char* help,
                        const std::function<double(const ServerReport&)>& value) {
  std::string text;
  std::set<std::string> seen;
  for (const auto& server : report.servers) {
    const auto labels = label("server", server.server);
    if (seen.insert(labels).second) {
      text += std::string(name) + "{" + labels + "} " + number(value(server)) + "\n";
    }
  }
  return text.empty() ? text : header(name, "gauge", help) + text;
}

Samples info_samples(const QueueReport& queue) {
  const auto& reading = queue.reading;
  return {{label("info", reading.info) + "," + label("location", reading.location) + "," +
               label("model", reading.make_and_model),
           1}};
}

/// Every outcome has a sample, so that no series appears or ends when the outcome changes.
Samples outcome_samples(const QueueReport& queue) {
  Samples samples;
  for (const auto& [outcome, name] : OUTCOME_NAMES) {
    samples.push_back({label("outcome", name), queue.outcome == outcome ? 1.0 : 0.0});
  }
  return samples;
}

Samples error_samples(const QueueReport& queue) {
  Samples samples;
  for (const auto& error : queue.reading.errors) {
    samples.push_back({label("group", error.group) + "," + label("code", error.code), 1});
  }
  return samples;
}

Samples limit_samples(const QueueReport& queue, const Limit& limit) {
  return queue.reading.level_percent ? single(is_under(queue.reading, limit)) : Samples{};
}

bool is_paused(const QueueReport& queue) {
  return queue.outcome == Outcome::Paused ||
         (queue.outcome == Outcome::NotAsked && queue.reading.state == QueueState::Stopped);
}

}  // namespace

std::string prometheus_view(const Report& report) {
  // prints_total is the size of the ribbon, no counter; only an untyped metric may have the name without one.
  const std::array<QueueMetric, 15> metrics = {{
      {"brenvellis_queue_info", "gauge", "1, with the queue's description, location and model as labels.",
       info_samples},
      {"brenvellis_queue_status", "gauge",
       "0 if all is well, 1 if the ribbon is low, 2 for an error, 3 if something is not known.",
       [&](const QueueReport& queue) {
         return single(std::optional(static_cast<int>(judge(queue, report.limits))));
       }},
      {"brenvellis_queue_up", "gauge",
       "Whether the queue could be read and, if it was to be refreshed, was (or is printing).",
       [](const QueueReport& queue) { return single(is_good(queue.outcome)); }},
      {"brenvellis_queue_outcome", "gauge", "1 for the outcome of the last refresh, 0 for all others.",
       outcome_samples},
      {"brenvellis_queue_paused", "gauge", "Whether an operator paused the queue.",
       [](const QueueReport& queue) { return single(is_paused(queue)); }},
      {"brenvellis_queue_stuck", "gauge", "Whether a print is stuck.",
       [](const QueueReport& queue) { return single(queue.stuck); }},
      {"brenvellis_queue_prints_waiting", "gauge", "Prints that wait for their turn.",
       [](const QueueReport& queue) { return single(std::optional(queue.prints_waiting)); }},
      {"brenvellis_queue_print_seconds", "gauge", "How long the current print has been printing.",
       [](const QueueReport& queue) { return single(queue.job_seconds); }},
      {"brenvellis_ribbon_prints_remaining", "gauge", "Prints left on the ink ribbon.",
       [](const QueueReport& queue) { return single(queue.reading.prints_remaining); }},
      {"brenvellis_ribbon_prints_total", "untyped", "Prints on the ink ribbon when it was new.",
       [](const QueueReport& queue) { return single(queue.reading.prints_total); }},
      {"brenvellis_ribbon_level_ratio", "gauge", "Prints left divided by prints when new.",
       [](const QueueReport& queue) { return single(ribbon_ratio(queue.reading)); }},
      {"brenvellis_ribbon_low", "gauge", "Whether the ribbon is at or under the limit that --low sets.",
       [&](const QueueReport& queue) { return limit_samples(queue, report.limits.low); }},
      {"brenvellis_ribbon_critical", "gauge",
       "Whether the ribbon is at or under the limit that --critical sets.",
       [&](const QueueReport& queue) { return limit_samples(queue, report.limits.critical); }},
      {"brenvellis_reading_age_seconds", "gauge", "Age of the ribbon's values when the metrics were written.",
       [](const QueueReport& queue) { return single(queue.reading.age_seconds); }},
      {"brenvellis_printer_error", "gauge", "1 for each error that the printer reports.", error_samples},
  }};
  std::string text = server_text(report, "brenvellis_server_up", "Whether the print server could be reached.",
                                 [](const ServerReport& server) { return server.error.empty() ? 1.0 : 0.0; });
  text +=
      server_text(report, "brenvellis_refresh_seconds", "Time that the last call took for the print server.",
                  [](const ServerReport& server) { return server.seconds; });
  text += server_text(report, "brenvellis_written_timestamp_seconds",
                      "Unix time at which the metrics were written.",
                      [&](const ServerReport&) { return static_cast<double>(report.time); });
  for (const auto& metric : metrics) {
    text += text_of(report, metric);
  }
  return text;
}
