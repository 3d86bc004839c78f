// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/prometheus_view.h"

#include <array>
#include <cstdio>
#include <functional>
#include <set>
#include <string_view>

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

std::string labels_of(const ServerReport& server, const QueueReport& queue) {
  return label("queue", queue.reading.queue) + "," + label("server", server.server);
}

/// A metric with a sample for each queue that has a value.
struct QueueMetric {
  const char* name;
  const char* type;
  const char* help;
  std::function<std::optional<double>(const QueueReport&)> value;
};

template <typename Value>
std::optional<double> as_double(const std::optional<Value>& value) {
  return value ? std::optional<double>(static_cast<double>(*value)) : std::nullopt;
}

std::string header(const char* name, const char* type, const char* help) {
  return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string samples(const Report& report, const QueueMetric& metric) {
  std::string text;
  std::set<std::string> seen;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      const auto value = metric.value(queue);
      const auto labels = labels_of(server, queue);
      if (value && seen.insert(labels).second) {
        text += std::string(metric.name) + "{" + labels + "} " + number(*value) + "\n";
      }
    }
  }
  return text.empty() ? text : header(metric.name, metric.type, metric.help) + text;
}

std::string error_samples(const Report& report) {
  constexpr const char* name = "brenvellis_printer_error";
  std::string text;
  std::set<std::string> seen;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      for (const auto& error : queue.reading.errors) {
        const auto labels =
            labels_of(server, queue) + "," + label("group", error.group) + "," + label("code", error.code);
        if (seen.insert(labels).second) {
          text += std::string(name) + "{" + labels + "} 1\n";
        }
      }
    }
  }
  return text.empty() ? text : header(name, "gauge", "1 for each error that the printer reports.") + text;
}

std::string server_samples(const Report& report) {
  constexpr const char* up = "brenvellis_server_up";
  constexpr const char* seconds = "brenvellis_refresh_seconds";
  std::string up_text = header(up, "gauge", "Whether the print server could be reached.");
  std::string seconds_text = header(seconds, "gauge", "Time that the last call took for the print server.");
  std::set<std::string> seen;
  for (const auto& server : report.servers) {
    const auto labels = label("server", server.server);
    if (!seen.insert(labels).second) {
      continue;
    }
    up_text += std::string(up) + "{" + labels + "} " + (server.error.empty() ? "1" : "0") + "\n";
    seconds_text += std::string(seconds) + "{" + labels + "} " + number(server.seconds) + "\n";
  }
  return report.servers.empty() ? "" : up_text + seconds_text;
}

}  // namespace

std::string prometheus_view(const Report& report) {
  // prints_total is the size of the ribbon, no counter; only an untyped metric may have the name without one.
  const std::array<QueueMetric, 9> metrics = {{
      {"brenvellis_queue_up", "gauge",
       "Whether the queue could be read and, if it was to be refreshed, was (or is printing).",
       [](const QueueReport& queue) { return is_good(queue.outcome) ? 1.0 : 0.0; }},
      {"brenvellis_queue_paused", "gauge", "Whether somebody paused the queue.",
       [](const QueueReport& queue) { return queue.outcome == Outcome::Paused ? 1.0 : 0.0; }},
      {"brenvellis_queue_stuck", "gauge", "Whether a print does not move.",
       [](const QueueReport& queue) { return queue.stuck ? 1.0 : 0.0; }},
      {"brenvellis_queue_prints_waiting", "gauge", "Prints that wait for their turn.",
       [](const QueueReport& queue) { return static_cast<double>(queue.prints_waiting); }},
      {"brenvellis_queue_print_seconds", "gauge", "How long the current print has been printing.",
       [](const QueueReport& queue) { return as_double(queue.job_seconds); }},
      {"brenvellis_ribbon_prints_remaining", "gauge", "Prints left on the ink ribbon.",
       [](const QueueReport& queue) { return as_double(queue.reading.prints_remaining); }},
      {"brenvellis_ribbon_prints_total", "untyped", "Prints on the ink ribbon when it was new.",
       [](const QueueReport& queue) { return as_double(queue.reading.prints_total); }},
      {"brenvellis_ribbon_level_ratio", "gauge", "Prints left divided by prints when new.",
       [](const QueueReport& queue) { return ribbon_ratio(queue.reading); }},
      {"brenvellis_reading_age_seconds", "gauge", "Age of the ribbon's values when the metrics were written.",
       [](const QueueReport& queue) { return as_double(queue.reading.age_seconds); }},
  }};
  std::string text = server_samples(report);
  for (const auto& metric : metrics) {
    text += samples(report, metric);
  }
  return text + error_samples(report);
}
