// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "monitor/server_watch.h"
#include "tests/unit/sample_report.h"

using std::chrono::milliseconds;
using std::chrono::seconds;

/// FakePrinter is a printer of the fake scheduler, and how a command job for it ends.
struct FakePrinter {
  enum class Manner : std::uint8_t { Answers, IsSilent, NeverEnds, IsUnreachable };
  Manner manner = Manner::Answers;
  milliseconds takes{100};
  milliseconds lingers{0};  ///< a command job, after its report
  int remaining = 200;
  int total = 400;
  std::vector<ReasonCode> errors;
  /// Replaces the values of the next report once; a second command of the same job gets the correct values.
  std::optional<int> false_remaining;
};

/// FakeScheduler is a scheduler with simulated time: it has no process and no clock, and never waits.
class FakeScheduler {
 public:
  struct FakeJob {
    Job job;
    Moment began;
    bool has_begun = false;
    bool has_reported = false;
    int lines = 1;
    milliseconds takes{0};  ///< a print's
  };

  FakePrinter& add(const std::string& name) {
    Reading reading;
    reading.queue = name;
    reading.make_and_model = "Brenvellis Photo Printer, 0.1";
    reading.state = QueueState::Idle;
    reading.accepting = true;
    reading.reports_levels = true;
    reading.reports_status = true;
    readings[name] = reading;
    return printers[name];
  }

  /// Sends a print that takes `takes` on the printer.
  int print(const std::string& queue, milliseconds takes = seconds(10), bool is_command = false) {
    FakeJob job;
    job.job.number = ++last_job;
    job.job.queue = queue;
    job.job.is_command = is_command;
    job.takes = takes;
    jobs[last_job] = job;
    begin_jobs();
    return last_job;
  }

  SchedulerAnswer answer(const SchedulerRequest& request) {
    if (error) {
      return *error;
    }
    if (const auto* look = std::get_if<LookRequest>(&request)) {
      ++looks;
      return answer_look(*look);
    }
    if (const auto* send = std::get_if<SendRequest>(&request)) {
      return answer_send(*send);
    }
    const auto& purge = std::get<PurgeRequest>(request);
    if (purge_error) {
      end(purge.job, IPP_JSTATE_CANCELED);
      return *purge_error;
    }
    jobs.erase(purge.job);
    ++purged;
    begin_jobs();
    return Purged{};
  }

  /// Advances the time.
  void pass_to(Moment time) {
    for (bool changed = true; changed;) {
      changed = false;
      for (auto& [number, one] : jobs) {
        const auto end_at = end_of(one);
        if (one.job.is_own && one.job.state == IPP_JSTATE_PROCESSING && !one.has_reported &&
            end_at < Moment::max() && end_at - printers.at(one.job.queue).lingers <= time) {
          now = std::max(now, end_at - printers.at(one.job.queue).lingers);
          one.has_reported = true;
          report(one.job.queue, one.lines);
        }
        if (one.job.state == IPP_JSTATE_PROCESSING && end_at <= time) {
          now = std::max(now, end_at);
          one.job.state = IPP_JSTATE_COMPLETED;
          begin_jobs();
          changed = true;
        }
      }
    }
    now = std::max(now, time);
    if (!keeps_history) {
      std::erase_if(jobs, [](const auto& one) { return one.second.job.state >= IPP_JSTATE_CANCELED; });
    }
  }

  void end(int number, ipp_jstate_t state) {
    jobs.at(number).job.state = state;
    begin_jobs();
  }

  [[nodiscard]] std::size_t own_jobs() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(jobs, [](const auto& one) { return one.second.job.is_own; }));
  }

  Moment now{};
  std::map<std::string, Reading> readings;
  std::map<std::string, FakePrinter> printers;
  std::map<int, FakeJob> jobs;
  std::map<std::string, std::vector<Moment>> sends;
  std::map<std::string, int> lines;  ///< of the last command job
  std::optional<SchedulerError> error;
  std::optional<SchedulerError> send_error;
  std::optional<SchedulerError> purge_error;
  bool keeps_history = true;
  std::size_t most_own_jobs = 0;
  int last_job = 100;
  int purged = 0;
  int looks = 0;
  int queues_read = 0;

 private:
  [[nodiscard]] Moment end_of(const FakeJob& one) const {
    if (!one.job.is_own) {
      return one.began + one.takes;
    }
    const auto& printer = printers.at(one.job.queue);
    const bool ends =
        printer.manner == FakePrinter::Manner::Answers || printer.manner == FakePrinter::Manner::IsSilent;
    return ends ? one.began + printer.takes * one.lines + printer.lingers : Moment::max();
  }

  void begin_jobs() {
    std::set<std::string> taken;
    for (auto& [number, one] : jobs) {
      if (one.job.state == IPP_JSTATE_PROCESSING) {
        taken.insert(one.job.queue);
      }
    }
    for (auto& [number, one] : jobs) {
      const bool stopped = readings[one.job.queue].state == QueueState::Stopped;
      if (one.job.state == IPP_JSTATE_PENDING && !stopped && taken.insert(one.job.queue).second) {
        one.job.state = IPP_JSTATE_PROCESSING;
        one.began = now;
        one.has_begun = true;
      }
    }
  }

  void report(const std::string& queue, int count) {
    auto& printer = printers.at(queue);
    auto& reading = readings.at(queue);
    const bool answers = printer.manner == FakePrinter::Manner::Answers;
    const int remaining =
        count == 1 && printer.false_remaining ? *printer.false_remaining : printer.remaining;
    printer.false_remaining.reset();
    reading.answered = answers;
    reading.prints_remaining = answers ? std::optional(remaining) : std::nullopt;
    reading.prints_total = answers ? std::optional(printer.total) : std::nullopt;
    reading.level_percent = answers ? std::optional(remaining * 100 / printer.total) : std::nullopt;
    reading.errors = answers ? printer.errors : std::vector<ReasonCode>{{"0004", "0004"}};
    reading.reported_at =
        1000 + static_cast<int>(std::chrono::duration_cast<seconds>(now - Moment()).count());
  }

  SchedulerAnswer answer_look(const LookRequest& request) {
    Look look;
    if (request.queues) {
      const auto clock = 1000 + static_cast<int>(std::chrono::duration_cast<seconds>(now - Moment()).count());
      std::set<std::string> processing;
      for (const auto& [number, one] : jobs) {
        if (one.job.state == IPP_JSTATE_PROCESSING) {
          processing.insert(one.job.queue);
        }
      }
      const auto& names = request.names;
      for (const auto& [name, reading] : readings) {
        if (!names.empty() && std::ranges::find(names, name) == names.end()) {
          continue;
        }
        ++queues_read;
        auto& one = look.queues.emplace_back(reading);
        if (one.reported_at > 0) {
          one.age_seconds = clock - one.reported_at;
        }
        if (processing.contains(name)) {
          one.state = QueueState::Processing;
          if (printers.at(name).manner == FakePrinter::Manner::IsUnreachable) {
            one.state_message = "The printer may not exist or is unavailable at this time.";
          }
        }
      }
    }
    for (const auto& [number, one] : jobs) {
      const bool wanted = request.first_job > 0 && number >= request.first_job;
      if (one.job.state < IPP_JSTATE_CANCELED || wanted) {
        look.jobs.push_back(one.job);
        if (one.has_begun) {
          look.jobs.back().processing_seconds =
              static_cast<int>(std::chrono::duration_cast<seconds>(now - one.began).count());
        }
      }
    }
    return look;
  }

  SchedulerAnswer answer_send(const SendRequest& request) {
    if (send_error) {
      return *send_error;
    }
    FakeJob job;
    job.job.number = ++last_job;
    job.job.queue = request.queue;
    job.job.is_command = true;
    job.job.is_own = true;
    job.lines = request.report_levels;
    jobs[last_job] = job;
    sends[request.queue].push_back(now);
    lines[request.queue] = request.report_levels;
    most_own_jobs = std::max(most_own_jobs, own_jobs());
    begin_jobs();
    return Sent{last_job};
  }
};

/// Simulation runs a watch against the fake scheduler, which answers each request after `latency`.
class Simulation {
 public:
  explicit Simulation(const WatchRules& rules = {}, std::vector<std::string> queues = {})
      : watch("localhost", std::move(queues), rules, Moment()), rules_(rules) {}

  /// Runs until the time, or until the watch is done. `happen` is called whenever something was answered.
  void run_to(Moment end) {
    while (now() < end && (rules_.again || !watch.is_done())) {
      if (!rules_.again && now() >= Moment() + rules_.timeout && !wound_up_) {
        wound_up_ = true;
        watch.wind_up();
        continue;
      }
      const auto plan = watch.next(now());
      if (plan.request) {
        auto answer = scheduler.answer(*plan.request);
        pass_to(now() + latency);
        watch.take(answer, now());
      } else {
        const auto deadline = rules_.again || wound_up_ ? end : Moment() + rules_.timeout;
        pass_to(std::min({plan.at, end, std::max(deadline, now())}));
        if (plan.at == Moment::max() && wound_up_) {
          break;
        }
      }
    }
  }
  void run(seconds length = seconds(60)) { run_to(now() + length); }

  /// Adds an event that happens at a time, regardless of the watch.
  void at(milliseconds time, std::function<void()> what) {
    events_[Moment() + time].push_back(std::move(what));
  }

  [[nodiscard]] Moment now() const { return scheduler.now; }
  [[nodiscard]] QueueReport queue(const std::string& name) const {
    for (const auto& queue : watch.report(now(), TimeOfDay() + now().time_since_epoch()).queues) {
      if (queue.reading.queue == name) {
        return queue;
      }
    }
    return {};
  }
  [[nodiscard]] Outcome outcome(const std::string& name = "booth") const { return queue(name).outcome; }
  /// The whole seconds between the command jobs of a queue.
  [[nodiscard]] std::vector<int> intervals(const std::string& name = "booth") {
    std::vector<int> result;
    const auto& times = scheduler.sends[name];
    for (std::size_t i = 1; i < times.size(); ++i) {
      result.push_back(static_cast<int>(std::chrono::round<seconds>(times[i] - times[i - 1]).count()));
    }
    return result;
  }

  FakeScheduler scheduler;
  ServerWatch watch;
  milliseconds latency{5};

 private:
  void pass_to(Moment time) {
    while (!events_.empty() && events_.begin()->first <= time) {
      scheduler.pass_to(events_.begin()->first);
      for (const auto& what : events_.begin()->second) {
        what();
      }
      events_.erase(events_.begin());
    }
    scheduler.pass_to(time);
  }

  WatchRules rules_;
  bool wound_up_ = false;
  std::map<Moment, std::vector<std::function<void()>>> events_;
};
