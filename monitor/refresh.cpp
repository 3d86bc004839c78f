#include "monitor/refresh.h"

#include <algorithm>
#include <exception>
#include <set>
#include <thread>
#include <utility>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// How long a request to a scheduler may take, and at the end all of them; never longer than the time-out.
constexpr seconds PATIENCE{10};
/// A scheduler that is started anew comes back within this time.
constexpr seconds ABSENCE{3};
/// A backend that was asked to end gets this long before it is killed.
constexpr milliseconds GRACE{1000};
/// The scheduler cancels a job by itself this long after this process should have.
constexpr seconds MARGIN{10};

constexpr milliseconds FIRST_PAUSE{10};
constexpr milliseconds LONGEST_PAUSE{250};

milliseconds longer(milliseconds pause) {
  return std::min(pause * 5 / 4 + milliseconds(1), LONGEST_PAUSE);
}

double seconds_since(steady_clock::time_point start) {
  return std::chrono::duration<double>(steady_clock::now() - start).count();
}

/// CommandJob is a job that is on its way.
struct CommandJob {
  std::size_t queue;  ///< in the report
  int number;
  steady_clock::time_point sent_at;
  Reading before;
};

/// ServerRefresh refreshes the queues of one server.
class ServerRefresh {
 public:
  ServerRefresh(const RefreshOptions& options, const Server& server, Progress& progress, StopRequest& stop)
      : options_(options),
        progress_(progress),
        stop_(stop),
        client_(server.name, options.encryption, std::min(PATIENCE, options.timeout), stop) {
    report_.server = server.label;
  }

  ServerReport run() {
    const auto start = steady_clock::now();
    if (!client_.connect() || !select()) {
      report_.error = client_.error();
    } else if (options_.refresh) {
      deadline_ = start + options_.timeout;
      send_all();
      wait_for_jobs();
      client_.finish_within(PATIENCE);
      cancel_jobs();
      read_again();
    }
    report_.seconds = seconds_since(start);
    return std::move(report_);
  }

 private:
  /// Puts the wanted queues into the report.
  bool select() {
    const auto readings = client_.read_queues();
    if (!readings) {
      return false;
    }
    for (const auto& reading : *readings) {
      const bool named = std::ranges::find(options_.queues, reading.queue) != options_.queues.end();
      if (named || (options_.queues.empty() && is_brenvellis_queue(reading))) {
        report_.queues.push_back({reading, Outcome::NotAsked, {}, {}});
      }
    }
    std::ranges::sort(report_.queues, {}, [](const QueueReport& queue) { return queue.reading.queue; });
    return true;
  }

  void send_all() {
    // Another monitor's command job stands in nobody's way, so only prints make a queue busy.
    std::map<std::string, int> prints;
    const bool any_active =
        std::ranges::any_of(report_.queues, [](const auto& queue) { return queue.reading.active_jobs > 0; });
    if (any_active) {
      if (auto counted = client_.count_print_jobs()) {
        prints = std::move(*counted);
      }
    }
    for (std::size_t i = 0; i < report_.queues.size() && stop_.signal == 0; ++i) {
      auto& queue = report_.queues[i];
      if (!queue.reading.reports_levels) {
        queue.outcome = Outcome::Unsupported;
      } else if (queue.reading.accepting == false) {
        queue.outcome = Outcome::Rejecting;
      } else if (queue.reading.state == QueueState::Stopped && !options_.wait) {
        queue.outcome = Outcome::Paused;
      } else if (prints[queue.reading.queue] > 0 && !options_.wait) {
        queue.outcome = Outcome::Busy;
      } else {
        send(i);
      }
    }
  }

  void send(std::size_t index) {
    auto& queue = report_.queues[index];
    if (steady_clock::now() >= deadline_) {
      queue.outcome = Outcome::Failed;
      queue.detail = "no time was left to ask";
      return;
    }
    const auto job = client_.send_report_levels(queue.reading.queue, options_.timeout + MARGIN);
    if (!job) {
      queue.outcome = Outcome::Failed;
      queue.detail = client_.error();
      return;
    }
    jobs_.push_back({index, *job, steady_clock::now(), queue.reading});
    first_job_ = first_job_ == 0 ? *job : std::min(first_job_, *job);
    ++progress_.asked;
  }

  [[nodiscard]] bool is_waiting_for_acceptance() const {
    return options_.wait && std::ranges::any_of(report_.queues, [](const auto& queue) {
             return queue.outcome == Outcome::Rejecting;
           });
  }

  /// Sends to queues that accept jobs by now.
  void send_to_accepting() {
    const auto readings = client_.read_queues();
    if (!readings) {
      return;
    }
    for (std::size_t i = 0; i < report_.queues.size(); ++i) {
      auto& queue = report_.queues[i];
      const auto now = std::ranges::find(*readings, queue.reading.queue, &Reading::queue);
      if (queue.outcome == Outcome::Rejecting && now != readings->end() && now->accepting != false) {
        queue.outcome = Outcome::NotAsked;
        send(i);
      }
    }
  }

  void wait_for_jobs() {
    auto pause = FIRST_PAUSE;
    auto last_answer = steady_clock::now();
    while ((!jobs_.empty() || is_waiting_for_acceptance()) && stop_.signal == 0 &&
           steady_clock::now() < deadline_) {
      std::this_thread::sleep_for(pause);
      pause = longer(pause);
      if (is_waiting_for_acceptance()) {
        send_to_accepting();
      }
      if (take_ended()) {
        last_answer = steady_clock::now();
      } else {
        was_away_ = true;
        if (steady_clock::now() - last_answer > ABSENCE) {
          give_up();
          return;
        }
      }
    }
  }

  /// Takes the jobs that have ended from the list. False if the scheduler does not answer.
  bool take_ended() {
    if (jobs_.empty()) {
      return true;
    }
    const auto states = client_.job_states(first_job_);
    if (!states) {
      return false;
    }
    std::erase_if(jobs_, [&](const CommandJob& job) {
      const auto state = states->find(job.number);
      if (state != states->end() && state->second < IPP_JSTATE_CANCELED) {
        return false;
      }
      auto& queue = report_.queues[job.queue];
      queue.seconds = seconds_since(job.sent_at);
      if (state == states->end()) {
        forgotten_.push_back(job);
      } else if (state->second == IPP_JSTATE_COMPLETED) {
        queue.outcome = Outcome::Refreshed;
      } else {
        queue.outcome = Outcome::Failed;
        queue.detail = state->second == IPP_JSTATE_CANCELED ? "somebody cancelled the command job"
                                                            : "the command job failed";
      }
      ++progress_.answered;
      return true;
    });
    return true;
  }

  void give_up() {
    for (const auto& job : jobs_) {
      report_.queues[job.queue].outcome = Outcome::Failed;
      report_.queues[job.queue].detail = "the print server went away: " + client_.error();
    }
    jobs_.clear();
  }

  void cancel_jobs() {
    const auto waited_for = jobs_;
    for (const auto& job : waited_for) {
      report_.queues[job.queue].outcome = Outcome::TimedOut;
      client_.cancel(report_.queues[job.queue].reading.queue, job.number, false);
    }
    // A backend that waits for the printer does not heed the request to end, and the queue stays taken.
    const auto start = steady_clock::now();
    auto pause = FIRST_PAUSE;
    while (!are_free(waited_for) && steady_clock::now() < start + GRACE) {
      std::this_thread::sleep_for(pause);
      pause = longer(pause);
    }
    for (const auto& job : taken(waited_for)) {
      client_.cancel(report_.queues[job.queue].reading.queue, job.number, true);
    }
  }

  [[nodiscard]] bool are_free(const std::vector<CommandJob>& cancelled) { return taken(cancelled).empty(); }

  /// The jobs whose queues still work on something, which may be them.
  [[nodiscard]] std::vector<CommandJob> taken(std::vector<CommandJob> jobs) {
    if (jobs.empty()) {
      return jobs;
    }
    const auto readings = client_.read_queues();
    const auto states = client_.job_states(first_job_);
    std::erase_if(jobs, [&](const CommandJob& job) {
      if (!readings || !states) {
        return false;
      }
      const auto state = states->find(job.number);
      const bool ended = state == states->end() || state->second >= IPP_JSTATE_CANCELED;
      const auto queue =
          std::ranges::find(*readings, report_.queues[job.queue].reading.queue, &Reading::queue);
      return ended && (queue == readings->end() || queue->state != QueueState::Processing);
    });
    return jobs;
  }

  /// The values after all jobs; those from before stay if the scheduler does not answer any more.
  void read_again() {
    const auto readings = client_.read_queues();
    if (!readings) {
      for (auto& queue : report_.queues) {
        if (queue.outcome != Outcome::Failed) {
          queue.outcome = Outcome::Failed;
          queue.detail = "the print server went away: " + client_.error();
        }
      }
      return;
    }
    for (auto& queue : report_.queues) {
      const auto now = std::ranges::find(*readings, queue.reading.queue, &Reading::queue);
      if (now != readings->end()) {
        queue.reading = *now;
      } else {
        queue.outcome = Outcome::NotFound;
      }
    }
    for (const auto& job : forgotten_) {
      auto& queue = report_.queues[job.queue];
      queue.outcome = has_reported(job, queue.reading) ? Outcome::Refreshed : Outcome::Failed;
      queue.detail = queue.outcome == Outcome::Refreshed ? "" : "the command job is gone";
    }
  }

  /// Whether a job that the scheduler does not list any more came to its end. That is what becomes of all
  /// jobs where no history is kept, and of some when the scheduler is killed.
  [[nodiscard]] bool has_reported(const CommandJob& job, const Reading& now) const {
    const bool within_a_second = job.before.age_seconds == 0;
    return now.reported_at != job.before.reported_at || (within_a_second && !was_away_);
  }

  const RefreshOptions& options_;
  Progress& progress_;
  StopRequest& stop_;
  RefreshClient client_;
  ServerReport report_;
  steady_clock::time_point deadline_;
  std::vector<CommandJob> jobs_;
  std::vector<CommandJob> forgotten_;
  int first_job_ = 0;
  bool was_away_ = false;  ///< the scheduler, for a while
};

/// Reports every queue that was named and found nowhere, with the first server that could be asked.
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
      asked->queues.push_back(missing);
    }
  }
}

}  // namespace

Report refresh(const RefreshOptions& options, Progress& progress, StopRequest& stop) {
  Report report;
  report.low_percent = options.low_percent;
  report.servers.resize(options.servers.size());
  {
    // A connection of the CUPS library belongs to a thread, hence one a server.
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < options.servers.size(); ++i) {
      threads.emplace_back([&, i] {
        try {
          report.servers[i] = ServerRefresh(options, options.servers[i], progress, stop).run();
        } catch (const std::exception& error) {
          // Such as no memory: the other servers are still worth their report.
          report.servers[i].server = options.servers[i].label;
          report.servers[i].error = error.what();
        }
      });
    }
  }
  add_not_found(options.queues, report.servers);
  report.time = std::time(nullptr);
  return report;
}
