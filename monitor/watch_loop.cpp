// SPDX-License-Identifier: Apache-2.0
#include "monitor/watch_loop.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <set>
#include <utility>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// The time limit for purging the last jobs on all servers; enough for working servers.
constexpr seconds LAST_WORDS{3};
/// The minimum time between two outputs; also how long the first output waits for the printers.
constexpr seconds VIEW_PAUSE{1};

/// A server, its next request, and whether the request was sent.
struct Watched {
  Scheduler& scheduler;
  ServerWatch watch;
  bool is_out = false;
};

/// Reports each given queue that was not found on any server, with the first reachable server.
void add_not_found(const std::vector<std::string>& names, std::vector<ServerReport>& servers) {
  std::set<std::string> found;
  for (const auto& server : servers) {
    for (const auto& queue : server.queues) {
      found.insert(queue.reading.queue);
    }
  }
  const auto asked = std::ranges::find_if(servers, [](const auto& server) { return server.error.empty(); });
  if (asked == servers.end()) {
    return;
  }
  for (const auto& name : names) {
    if (found.insert(name).second) {
      QueueReport missing;
      missing.reading.queue = name;
      missing.outcome = Outcome::NotFound;
      missing.sightings = asked->sightings;
      asked->queues.push_back(missing);
    }
  }
}

/// Returns whether two reports differ for a user. Ages, and whether a queue is being queried, are ignored.
bool is_news(const QueueReport& one, const QueueReport& other, const Limits& limits) {
  const auto& a = one.reading;
  const auto& b = other.reading;
  const bool asking = one.outcome == Outcome::Asking || other.outcome == Outcome::Asking;
  return a.queue != b.queue || (one.outcome != other.outcome && !asking) ||
         judge(one, limits) != judge(other, limits) || one.stuck != other.stuck ||
         one.prints_waiting != other.prints_waiting || a.state != b.state || a.accepting != b.accepting ||
         a.prints_remaining != b.prints_remaining || a.prints_total != b.prints_total ||
         a.level_percent != b.level_percent || a.sheet != b.sheet || a.answered != b.answered ||
         a.errors != b.errors || a.reasons != b.reasons || (one.stuck && a.state_message != b.state_message);
}

bool is_news(const Report& one, const Report& other) {
  return !std::ranges::equal(one.servers, other.servers, [&](const auto& a, const auto& b) {
    return a.error == b.error && std::ranges::equal(a.queues, b.queues, [&](const auto& x, const auto& y) {
             return !is_news(x, y, one.limits);
           });
  });
}

bool is_asking(const Report& report) {
  return std::ranges::any_of(report.servers, [](const auto& server) {
    return std::ranges::any_of(server.queues,
                               [](const auto& queue) { return queue.outcome == Outcome::Asking; });
  });
}

class WatchLoop {
 public:
  WatchLoop(std::vector<WatchedServer>& servers, const std::vector<std::string>& queues,
            const WatchRules& rules, const WatchCaller& caller)
      : names_(queues), rules_(rules), caller_(caller), began_(steady_clock::now()) {
    for (auto& server : servers) {
      servers_.push_back({*server.scheduler, ServerWatch(server.label, queues, rules, began_)});
    }
  }

  WatchEnd run() {
    const Moment deadline = rules_.again ? Moment::max() : began_ + rules_.timeout;
    for (bool wound_up = false;;) {
      const auto now = steady_clock::now();
      if (now >= deadline && !wound_up) {
        wound_up = true;
        wind_up();
      }
      Moment wake = std::min(advance(now), wound_up ? Moment::max() : deadline);
      if (rules_.again) {
        if (!show_if_due(now, wake)) {
          return end(WatchEnd::OutputLost);
        }
      } else if (std::ranges::all_of(servers_, [](const auto& one) { return one.watch.is_done(); })) {
        static_cast<void>(caller_.show(report(now)));
        return WatchEnd::Done;
      }
      switch (wait(wake, true)) {
        case Event::Stop:
          return end(WatchEnd::Stopped);
        case Event::OutputLost:
          return end(WatchEnd::OutputLost);
        case Event::None:
          break;
      }
    }
  }

 private:
  enum class Event : std::uint8_t { None, Stop, OutputLost };

  /// Reads answers, sends requests and handles commands. Returns the time of the next action.
  Moment advance(Moment now) {
    Moment wake = Moment::max();
    for (auto& server : servers_) {
      if (server.is_out) {
        if (const auto answer = server.scheduler.take_answer()) {
          server.is_out = false;
          server.watch.take(*answer, now);
          has_changed_ = true;
        }
      }
      if (!server.is_out) {
        const auto plan = server.watch.next(now);
        if (plan.request) {
          server.scheduler.ask(*plan.request);
          server.is_out = true;
        } else {
          wake = std::min(wake, plan.at);
        }
      }
      for (const auto& note : server.watch.take_notes()) {
        caller_.note(note);
      }
    }
    if (caller_.changes != nullptr) {
      caller_.changes->serve();
    }
    std::size_t answered = 0;
    std::size_t sent = 0;
    for (const auto& server : servers_) {
      answered += server.watch.answered();
      sent += server.watch.sent();
    }
    caller_.progress(answered, sent);
    return wake;
  }

  /// Waits for an answer, the user or the time.
  Event wait(Moment wake, bool heeds_caller) {
    std::vector<pollfd> polls;
    for (const auto& server : servers_) {
      polls.push_back({server.is_out ? server.scheduler.descriptor() : -1, POLLIN, 0});
    }
    const auto* changes = caller_.changes;
    polls.push_back({changes != nullptr ? changes->descriptor() : -1, POLLIN, 0});
    polls.push_back({heeds_caller ? caller_.stop : -1, POLLIN, 0});
    polls.push_back({heeds_caller ? caller_.output : -1, 0, 0});
    int limit = -1;
    if (wake != Moment::max()) {
      const auto left = std::chrono::ceil<milliseconds>(wake - steady_clock::now());
      constexpr milliseconds longest = std::chrono::hours(1);
      limit = static_cast<int>(std::clamp(left, milliseconds(0), longest).count());
    }
    if (poll(polls.data(), polls.size(), limit) <= 0) {
      return Event::None;
    }
    if (polls[servers_.size() + 1].revents != 0) {
      return Event::Stop;
    }
    return polls.back().revents != 0 ? Event::OutputLost : Event::None;
  }

  /// Stops sending jobs and purges the active ones. Pending readings are dropped because they may take too
  /// long.
  void wind_up() {
    for (auto& server : servers_) {
      if (server.is_out && server.watch.is_looking() && server.watch.has_looked()) {
        server.scheduler.give_up();
        server.watch.drop_request();
        server.is_out = false;
      }
      server.watch.wind_up();
    }
  }

  WatchEnd end(WatchEnd why) {
    wind_up();
    auto* changes = caller_.changes;
    if (changes != nullptr) {
      changes->wind_up();
    }
    const Moment limit = steady_clock::now() + LAST_WORDS;
    for (auto now = steady_clock::now(); now < limit; now = steady_clock::now()) {
      const auto wake = advance(now);
      const bool are_running = changes != nullptr && changes->is_running();
      if (!are_running &&
          std::ranges::none_of(servers_, [](const auto& one) { return one.watch.has_jobs(); })) {
        break;
      }
      wait(std::min(wake, limit), false);
    }
    return why;
  }

  [[nodiscard]] Report report(Moment now) const {
    Report report;
    const TimeOfDay time = std::chrono::system_clock::now() - (steady_clock::now() - now);
    report.time = std::chrono::system_clock::to_time_t(time);
    report.limits = rules_.limits;
    for (const auto& server : servers_) {
      report.servers.push_back(server.watch.report(now, time));
    }
    add_not_found(names_, report.servers);
    return report;
  }

  /// Shows the report if it is time or if it has changed. Returns false if the output is lost.
  bool show_if_due(Moment now, Moment& wake) {
    const Moment due = shown_at_ ? *shown_at_ + rules_.shortest : Moment::max();
    const Moment earliest = shown_at_.value_or(began_) + VIEW_PAUSE;
    if (now >= due || has_changed_) {
      const bool all_known = std::ranges::all_of(
          servers_, [&](const auto& one) { return one.watch.has_looked() || one.watch.has_error(); });
      auto next = report(now);
      const bool is_first = all_known && !shown_at_ && (now >= earliest || !is_asking(next));
      const bool is_next = shown_at_ && (now >= due || (now >= earliest && is_news(next, shown_)));
      if (caller_.changes != nullptr && (is_first || shown_at_)) {
        caller_.changes->see(next);
      }
      if (is_first || is_next) {
        shown_ = std::move(next);
        shown_at_ = now;
        has_changed_ = false;
        wake = std::min(wake, now + rules_.shortest);
        return caller_.show(shown_);
      }
      if (now >= earliest) {
        has_changed_ = !shown_at_;
      }
    }
    wake = std::min({wake, due, has_changed_ && now < earliest ? earliest : Moment::max()});
    return true;
  }

  const std::vector<std::string>& names_;
  const WatchRules& rules_;
  const WatchCaller& caller_;
  Moment began_;
  std::vector<Watched> servers_;
  bool has_changed_ = false;  ///< since the last comparison with the shown report
  std::optional<Moment> shown_at_;
  Report shown_;
};

}  // namespace

WatchEnd watch(std::vector<WatchedServer>& servers, const std::vector<std::string>& queues,
               const WatchRules& rules, const WatchCaller& caller) {
  return WatchLoop(servers, queues, rules, caller).run();
}
