// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/ready_view.h"

#include "monitor/queue_watch.h"
#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

/// The queue with the outcome that asking it would have had: a queue that was only read, or whose values were
/// young enough, may be paused all the same.
QueueReport as_if_asked(QueueReport queue) {
  if (is_good(queue.outcome)) {
    if (queue.reading.state == QueueState::Stopped) {
      queue.outcome = Outcome::Paused;
    } else if (queue.reading.accepting == false) {
      queue.outcome = Outcome::Rejecting;
    }
  }
  return queue;
}

/// The prints that have a right to what is left of the ribbon.
int prints_ahead(const QueueReport& queue) {
  return queue.prints_waiting + (queue.job_seconds ? 1 : 0);
}

std::vector<Trouble> obstacles(const QueueReport& queue, Limits limits, std::string_view server) {
  limits.low = {-1, Limit::Unit::Prints};
  auto list = troubles(as_if_asked(queue), limits, server);
  const auto& reading = queue.reading;
  if (!list.empty()) {
    return list;
  }
  if (reading.state == QueueState::Unknown || !reading.accepting) {
    return {{"the queue's state is not known", "Check the print server.", {}}};
  }
  if (queue.outcome != Outcome::Refreshed && is_unreachable(reading)) {
    return {{"the printer is not responding", "", reading.state_message}};
  }
  const int ahead = prints_ahead(queue);
  if (reading.prints_remaining && *reading.prints_remaining <= ahead) {
    return {{"no print left after those that wait", "Have a new ribbon at hand.",
             prints_left_text(reading) + ", " + std::to_string(ahead) + " to print"}};
  }
  return list;
}

/// The obstacles as sentences.
std::string sentences(const std::vector<Trouble>& list) {
  std::vector<std::string> parts;
  for (const auto& trouble : list) {
    std::string cause = to_text(trouble);
    cause += cause.ends_with('.') ? "" : ".";
    parts.push_back(std::move(cause));
    if (!trouble.action.empty()) {
      parts.push_back(trouble.action);
    }
  }
  return joined(parts, " ");
}

}  // namespace

std::string ready_view(const Report& report, bool utf8) {
  std::vector<std::string> lines;
  for (const auto& server : report.servers) {
    if (!server.error.empty()) {
      lines.push_back("print server " + server.server + ": " + server.error);
    }
    for (const auto& queue : server.queues) {
      if (const auto list = obstacles(queue, report.limits, server.server); !list.empty()) {
        lines.push_back(full_name(queue, server, report.servers.size() > 1) + ": " + sentences(list));
      }
    }
  }
  std::string text;
  for (const auto& line : lines) {
    text += (utf8 ? printable(line) : to_ascii(printable(line))) + "\n";
  }
  return text;
}
