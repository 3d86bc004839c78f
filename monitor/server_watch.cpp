// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_watch.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// The most command jobs at a time, so that a scheduler's limits are left to prints; and of these, for
/// printers that did not answer when they were last asked.
constexpr std::size_t MOST_JOBS = 32;
constexpr std::size_t MOST_DEAD_JOBS = 16;

/// Between two looks at the jobs while a command job is on its way: at its start an answer may come in a
/// moment; a print must not wait behind it.
constexpr milliseconds FIRST_PAUSE{20};
constexpr milliseconds LONGEST_PAUSE{200};
/// How old the reading may be by which a queue is found to be free.
constexpr milliseconds YOUNG{1000};
/// The most queues that a look names, and the part of a server's queues from which on a look at all of them
/// costs the scheduler less: 100 queues cost it as much together as 15 by name.
constexpr std::size_t MOST_NAMED = 64;
constexpr std::size_t NAMED_PART = 8;

/// A scheduler that is restarted comes back within this time.
constexpr seconds ABSENCE{3};
constexpr milliseconds FIRST_RETRY{250};
constexpr seconds LONGEST_RETRY{60};
/// The scheduler itself cancels a job so long after this program should have purged it.
constexpr seconds MARGIN{10};

/// Whether the error says nothing about the request, but that no answer came.
bool is_absence(const SchedulerError& error) {
  using enum SchedulerError::Kind;
  return error.kind == Unreachable || error.kind == NoAnswer || error.kind == InvalidAnswer;
}

}  // namespace

ServerWatch::ServerWatch(std::string label, std::vector<std::string> queues, const WatchRules& rules,
                         Moment now)
    : label_(std::move(label)),
      names_(std::move(queues)),
      rules_(rules),
      asked_at_(now),
      began_at_(now),
      sent_at_(now),
      sends_since_(now),
      sightings_(rules.shortest) {}

LookRequest ServerWatch::look_request(bool queues, std::vector<std::string> names) const {
  int first = newest_job_ > 0 ? newest_job_ + 1 : 0;
  for (const auto& [name, queue] : queues_) {
    if (queue.job() > 0) {
      first = first > 0 ? std::min(first, queue.job()) : queue.job();
    }
    if (queue.was_maybe_sent() && newest_job_ == 0) {
      first = 1;
    }
  }
  return {first, queues, std::move(names)};
}

/// A look at all queues if it is time, or else at those whose readings are soon too old.
LookRequest ServerWatch::next_look(Moment now) const {
  bool all = !looked_at_queues_ || (rules_.again && now - *looked_at_queues_ >= rules_.shortest);
  std::vector<std::string> names;
  for (const auto& [name, queue] : queues_) {
    const auto pause = queue.longest_read_pause();
    if (pause && queue.read_at() + *pause / 2 <= now) {
      names.push_back(name);
    }
  }
  all = all || names.size() > std::min(MOST_NAMED, all_queues_ / NAMED_PART);
  const bool queues = all || !names.empty();
  if (all) {
    names.clear();
  }
  return look_request(queues, std::move(names));
}

/// Whether the server can be sent one more command job in this interval. Two for each queue and some more are
/// enough; without a bound, a server whose every answer is different would get jobs without a pause.
bool ServerWatch::has_room(Moment now) const {
  return sends_ < 2 * queues_.size() + MOST_JOBS || now - sends_since_ >= rules_.shortest;
}

std::size_t ServerWatch::jobs() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(queues_, [](const auto& one) { return one.second.job() > 0; }));
}

std::size_t ServerWatch::dead_jobs() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      queues_, [](const auto& one) { return one.second.job() > 0 && one.second.is_dead(); }));
}

/// The queue that is due and has the best prospects, if there is room for its job.
QueueWatch* ServerWatch::next_to_ask(Moment now) {
  QueueWatch* best = nullptr;
  const auto rank = [](const QueueWatch& queue) {
    return std::tuple(queue.is_dead(), !queue.has_answered(), *queue.due());
  };
  for (auto& [name, queue] : queues_) {
    const auto due = queue.due();
    if (due && *due <= now && (best == nullptr || rank(queue) < rank(*best))) {
      best = &queue;
    }
  }
  const bool fits = best != nullptr && has_room(now) && jobs() < MOST_JOBS &&
                    (!best->is_dead() || dead_jobs() < MOST_DEAD_JOBS);
  return fits ? best : nullptr;
}

/// A job that is to be purged before anything else is done.
std::optional<SchedulerRequest> ServerWatch::urgent(Moment now) const {
  const bool is_full = jobs() >= MOST_JOBS;
  const bool others_wait = is_full && std::ranges::any_of(queues_, [&](const auto& one) {
                             const auto due = one.second.due();
                             return due && *due <= now && !one.second.is_dead();
                           });
  for (const auto& [name, queue] : queues_) {
    const auto at = queue.give_up_at();
    if ((at && *at <= now) || (others_wait && queue.is_hopeless(now))) {
      return PurgeRequest{name, queue.job()};
    }
  }
  return std::nullopt;
}

/// When the next look is due. Nothing if nothing is waited for.
std::optional<Moment> ServerWatch::look_due(Moment now) const {
  if (!looked_at_queues_) {
    return now;
  }
  Moment due = rules_.again ? *looked_at_queues_ + rules_.shortest : Moment::max();
  // A watch is in no hurry for an answer: one look serves all jobs that have ended meanwhile.
  const auto first = rules_.again ? LONGEST_PAUSE : FIRST_PAUSE;
  const auto pause = std::chrono::duration_cast<milliseconds>(now - sent_at_) / 4;
  for (const auto& [name, queue] : queues_) {
    if (queue.is_out()) {
      due = std::min(due, *looked_at_ + std::clamp(pause, first, LONGEST_PAUSE));
    }
    if (const auto longest = queue.longest_read_pause()) {
      due = std::min(due, queue.read_at() + *longest);
    }
  }
  return due == Moment::max() ? std::nullopt : std::optional(due);
}

ServerWatch::Plan ServerWatch::next(Moment now) {
  Plan plan;
  const auto make = [&](SchedulerRequest request) {
    asked_ = request;
    asked_at_ = now;
    plan.request = std::move(request);
    return plan;
  };
  if (given_up_) {
    return plan;
  }
  if (away_since_) {
    plan.at = asked_at_ + retry_pause_;
    return plan.at <= now ? make(look_request(true)) : plan;
  }
  if (auto request = urgent(now)) {
    return make(std::move(*request));
  }
  const auto look = look_due(now);
  if (look && *look <= now) {
    return make(next_look(now));
  }
  if (auto* queue = next_to_ask(now)) {
    if (now - queue->read_at() > YOUNG) {
      return make(look_request(true, {queue->name()}));
    }
    queue->sending(now);
    sent_at_ = now;
    if (now - sends_since_ >= rules_.shortest) {
      sends_since_ = now;
      sends_ = 0;
    }
    ++sends_;
    return make(SendRequest{queue->name(), queue->report_levels(),
                            static_cast<int>((rules_.timeout + MARGIN).count())});
  }
  for (auto& [name, queue] : queues_) {
    if (queue.wants_forgetting() && !may_purge_) {
      queue.purged(now);
    } else if (queue.wants_forgetting()) {
      return make(PurgeRequest{name, queue.job(), queue.has_job_ended()});
    }
  }

  plan.at = look.value_or(Moment::max());
  if (!has_room(now)) {
    plan.at = std::min(plan.at, sends_since_ + rules_.shortest);
  }
  for (const auto& [name, queue] : queues_) {
    for (const auto& at : {queue.due(), queue.give_up_at()}) {
      if (at && *at > now) {
        plan.at = std::min(plan.at, *at);
      }
    }
  }
  return plan;
}

void ServerWatch::take(const SchedulerAnswer& answer, Moment now) {
  const auto request = std::exchange(asked_, std::nullopt);
  if (!request) {
    return;
  }
  seconds_ = std::chrono::duration<double>(now - (rules_.again ? asked_at_ : began_at_)).count();
  const auto queue_of = [&](const std::string& name) {
    const auto found = queues_.find(name);
    return found == queues_.end() ? nullptr : &found->second;
  };
  const auto* error = std::get_if<SchedulerError>(&answer);
  if (const auto* look = std::get_if<LookRequest>(&*request)) {
    if (const auto* seen = std::get_if<Look>(&answer)) {
      take_look(*look, *seen, now);
    }
  } else if (const auto* send = std::get_if<SendRequest>(&*request)) {
    auto* queue = queue_of(send->queue);
    if (const auto* sent = std::get_if<Sent>(&answer); sent != nullptr && queue != nullptr) {
      queue->sent(sent->job, now);
      // Only looks tell which jobs were seen, and the numbers of a scheduler that was killed may begin anew.
      newest_job_ = std::min(newest_job_, sent->job - 1);
    } else if (queue != nullptr && error != nullptr) {
      queue->not_sent(*error, now);
    }
  } else if (const auto* purge = std::get_if<PurgeRequest>(&*request)) {
    auto* queue = queue_of(purge->queue);
    const bool refused = error != nullptr && !is_absence(*error);
    if (refused && may_purge_ && error->kind != SchedulerError::Kind::NotFound) {
      may_purge_ = false;
      notes_.push_back(label_ + ": ended command jobs stay in the job history: " + explanation(*error));
    }
    if (queue != nullptr && (error == nullptr || refused)) {
      queue->purged(now);
    }
  }
  if (error != nullptr && (is_absence(*error) || std::holds_alternative<LookRequest>(*request))) {
    take_error(*error, now);
  }
}

void ServerWatch::take_look(const LookRequest& request, const Look& look, Moment now) {
  away_since_.reset();
  error_.clear();
  retry_pause_ = milliseconds(0);
  looked_at_ = now;

  std::map<std::string, std::vector<Job>> jobs;
  for (const auto& job : look.jobs) {
    jobs[job.queue].push_back(job);
    newest_job_ = std::max(newest_job_, job.number);
  }
  const bool at_all = request.queues && request.names.empty();
  if (request.queues) {
    sightings_.note(now);
  }
  if (at_all) {
    looked_at_queues_ = now;
    all_queues_ = look.queues.size();
  }
  std::map<std::string, const Reading*> readings;
  for (const auto& reading : look.queues) {
    const bool wanted = names_.empty() ? is_brenvellis_queue(reading)
                                       : std::ranges::find(names_, reading.queue) != names_.end();
    if (wanted) {
      readings[reading.queue] = &reading;
      if (at_all) {
        queues_.try_emplace(reading.queue, reading.queue, rules_, now);
      }
    }
  }
  for (auto one = queues_.begin(); one != queues_.end();) {
    const auto reading = readings.find(one->first);
    if (reading != readings.end()) {
      one->second.see(jobs[one->first], *reading->second, now);
    } else if (!at_all) {
      one->second.see(jobs[one->first], now);
      if (std::ranges::find(request.names, one->first) != request.names.end()) {
        looked_at_queues_.reset();  // the queue is gone, or its driver is another
      }
    } else if (rules_.again) {
      one = queues_.erase(one);
      continue;
    } else {
      one->second.miss();
    }
    ++one;
  }
  if (winding_up_) {
    wind_up();
  }
}

void ServerWatch::take_error(const SchedulerError& error, Moment now) {
  if (!away_since_) {
    away_since_ = asked_at_;
  }
  for (auto& [name, queue] : queues_) {
    queue.note_absence();
  }
  retry_pause_ = rules_.again ? std::clamp<milliseconds>(retry_pause_ * 2, FIRST_RETRY,
                                                         std::min(rules_.shortest, LONGEST_RETRY))
                              : FIRST_RETRY;
  const bool comes_back = is_absence(error) && looked_at_;
  if (winding_up_ || !comes_back || now - *away_since_ > ABSENCE) {
    error_ = explanation(error);
    sightings_.note(now);
    if (!rules_.again) {
      give_up(error_);
    }
  }
  given_up_ = given_up_ || winding_up_;
}

void ServerWatch::wind_up() {
  winding_up_ = true;
  for (auto& [name, queue] : queues_) {
    queue.wind_up();
  }
  if (away_since_) {
    give_up(error_.empty() ? "no answer" : error_);
  }
}

void ServerWatch::drop_request() {
  asked_.reset();
}

void ServerWatch::give_up(const std::string& why) {
  given_up_ = true;
  error_ = why;
  for (auto& [name, queue] : queues_) {
    queue.lose("the print server went away: " + why);
  }
}

bool ServerWatch::is_done() const {
  return given_up_ || (looked_at_queues_ && !asked_ &&
                       std::ranges::all_of(queues_, [](const auto& one) { return one.second.is_done(); }));
}

bool ServerWatch::is_looking() const {
  return asked_ && std::holds_alternative<LookRequest>(*asked_);
}

bool ServerWatch::has_jobs() const {
  return !given_up_ && (jobs() > 0 || (asked_ && !is_looking()));
}

ServerReport ServerWatch::report(Moment now, TimeOfDay time) const {
  ServerReport report{label_, error_, seconds_, {}, sightings_.count()};
  for (const auto& [name, queue] : queues_) {
    auto one = queue.report(now, time);
    if (rules_.again && !error_.empty()) {
      one.outcome = Outcome::Failed;
      one.detail = "the print server went away: " + error_;
    }
    report.queues.push_back(std::move(one));
  }
  return report;
}

std::size_t ServerWatch::sent() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(queues_, [](const auto& one) { return one.second.was_sent(); }));
}

std::size_t ServerWatch::answered() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      queues_, [](const auto& one) { return one.second.was_sent() && one.second.job() == 0; }));
}

std::vector<std::string> ServerWatch::take_notes() {
  return std::exchange(notes_, {});
}
