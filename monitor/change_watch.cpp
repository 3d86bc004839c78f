// SPDX-License-Identifier: Apache-2.0
#include "monitor/change_watch.h"

#include <algorithm>

namespace {

constexpr unsigned IN_A_ROW = 2;

/// The report of the server, with this queue alone if there is one.
Report report_of(const Report& report, const ServerReport& server, const QueueReport* queue) {
  Report one;
  one.time = report.time;
  one.limits = report.limits;
  one.servers = {{server.server, server.error, server.seconds, {}, server.sightings}};
  one.servers[0].queues = queue != nullptr ? std::vector{*queue} : server.queues;
  return one;
}

}  // namespace

/// The entry of the name. One that is new during the watch was well before, unless it goes on where an entry
/// of the same queue ended: a queue that was named and is found nowhere is reported with another server.
ChangeWatch::Entry& ChangeWatch::entry_of(const Name& name) {
  const auto [found, is_new] = entries_.try_emplace(name);
  Entry& entry = found->second;
  if (is_new) {
    if (has_begun_ && !tell_first_) {
      entry.told = Condition{};
    }
    if (const auto lost = lost_.find(name.second); lost != lost_.end()) {
      entry.told = lost->second;
    }
  }
  return entry;
}

void ChangeWatch::mark_present(const Report& report) {
  for (auto& [name, entry] : entries_) {
    entry.present = name.second.empty();
  }
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      const auto known = entries_.find({server.server, queue.reading.queue});
      if (known != entries_.end()) {
        known->second.present = true;
      }
    }
  }
  lost_.clear();
  for (const auto& [name, entry] : entries_) {
    if (!entry.present) {
      lost_[name.second] = entry.told;
    }
  }
}

void ChangeWatch::see(const Report& report) {
  mark_present(report);
  const bool all_read =
      std::ranges::all_of(report.servers, [](const auto& server) { return server.error.empty(); });
  for (const auto& server : report.servers) {
    see({server.server, {}}, server.sightings, condition_of(server), report, server, nullptr);
    for (const auto& queue : server.queues) {
      // Nothing is known of the queues of a server that cannot be read.
      const bool is_seen = server.error.empty() && queue.outcome != Outcome::Asking &&
                           (queue.outcome != Outcome::NotFound || all_read);
      see({server.server, queue.reading.queue}, is_seen ? queue.sightings : 0,
          condition_of(queue, report.limits), report, server, &queue);
    }
  }
  std::erase_if(entries_, [](const auto& one) { return !one.second.present && !one.second.telling; });
  has_begun_ = true;
}

/// @param sighting  0 if it was not seen this time.
void ChangeWatch::see(const Name& name, unsigned sighting, const Condition& condition, const Report& report,
                      const ServerReport& server, const QueueReport* queue) {
  auto& entry = entry_of(name);
  entry.present = true;
  if (sighting == 0 || (entry.times > 0 && sighting == entry.sighting)) {
    return;
  }
  const bool again = entry.times > 0 && condition == entry.seen;
  entry.times = again ? entry.times + 1 : 1;
  entry.sighting = sighting;
  entry.seen = condition;
  if (!entry.told && !tell_first_) {
    entry.told = condition;
  }
  if (entry.times < IN_A_ROW) {
    return;
  }
  if (entry.told == condition) {
    entry.waiting.reset();
    return;
  }
  if (!entry.waiting) {
    entry.waiting_since = ++changes_;
  }
  entry.waiting = Change{name.first, name.second, {}, condition, report_of(report, server, queue)};
}

std::optional<Change> ChangeWatch::next() {
  Entry* first = nullptr;
  for (auto& [name, entry] : entries_) {
    if (entry.waiting && !entry.telling && (first == nullptr || entry.waiting_since < first->waiting_since)) {
      first = &entry;
    }
  }
  if (first == nullptr) {
    return std::nullopt;
  }
  auto change = std::move(*first->waiting);
  first->waiting.reset();
  first->telling = true;
  change.old = first->told;
  first->told = change.now;
  return change;
}

void ChangeWatch::told(const std::string& server, const std::string& queue) {
  if (const auto found = entries_.find({server, queue}); found != entries_.end()) {
    found->second.telling = false;
  }
}
