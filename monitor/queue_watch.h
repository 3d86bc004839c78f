// SPDX-License-Identifier: Apache-2.0
// The rules for one queue: when to query its printer, and what to report.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "monitor/condition.h"
#include "monitor/report.h"
#include "monitor/scheduler.h"
#include "monitor/scheduler_error.h"
#include "monitor/sightings.h"

/// A point in time. The watches have no clock; their callers pass the time.
using Moment = std::chrono::steady_clock::time_point;

/// The time of day, which may be set while the monitor runs.
using TimeOfDay = std::chrono::system_clock::time_point;

/// WatchRules holds the rules for querying printers and for reporting problems.
struct WatchRules {
  bool ask = true;     ///< whether to query printers; false: only read the queues
  bool again = false;  ///< whether to query repeatedly; false: each queue once
  bool wait = false;   ///< whether to wait for queues that are printing, paused or rejecting jobs
  Limits limits;
  std::chrono::seconds timeout{10};   ///< a command job that has not ended by then is purged
  std::chrono::seconds shortest{60};  ///< between two command jobs of a queue
  std::chrono::seconds longest{900};  ///< likewise, where nothing changes
  std::chrono::seconds stuck{300};    ///< a print without a completed sheet for so long is stuck
  /// Only queues whose values are older than this are queried.
  std::optional<std::chrono::seconds> max_age;
};

/// Returns whether the queue's reasons or message show that its backend cannot reach the printer.
[[nodiscard]] bool is_unreachable(const Reading& reading);

/// QueueWatch is the state machine of a queue. It receives readings of the queue, and decides what to do and
/// report.
class QueueWatch {
 public:
  QueueWatch(const std::string& queue, const WatchRules& rules, Moment now);

  [[nodiscard]] const std::string& name() const { return reading_.queue; }
  /// When the queue itself was last read, not only its jobs.
  [[nodiscard]] Moment read_at() const { return read_at_; }
  /// How old the reading may become before the queue is read again; nothing if only a look at all queues
  /// renews it.
  [[nodiscard]] std::optional<std::chrono::milliseconds> longest_read_pause() const;

  /// Processes the queue's jobs from a look that did not read the queue.
  void see(const std::vector<Job>& jobs, Moment now);
  /// Processes the queue's jobs and its reading from a look.
  void see(const std::vector<Job>& jobs, const Reading& reading, Moment now);
  /// Handles that the scheduler has no such queue.
  void miss();
  /// Handles that the scheduler did not answer for a while and may have forgotten jobs.
  void note_absence() { was_away_ = true; }

  /// Returns when the printer should be queried; nothing if it should not.
  [[nodiscard]] std::optional<Moment> due() const;
  /// Returns whether the last command job failed.
  [[nodiscard]] bool is_dead() const { return failures_ > 0; }
  /// Returns whether the printer answered the last query of any program.
  [[nodiscard]] bool has_answered() const { return reading_.answered == true; }
  /// Returns the number of ReportLevels lines for the next command job: 1, or 2 if the first reply may be a
  /// late one or the printer has not answered yet.
  [[nodiscard]] int report_levels() const;

  /// Handles that a command job is about to be sent.
  void sending(Moment now);
  /// Handles that the scheduler has accepted the command job and gave it this number.
  void sent(int job, Moment now);
  /// Handles that the command job was not sent, or that no answer came.
  void not_sent(const SchedulerError& error, Moment now);

  /// Returns whether the scheduler may have accepted the job although no answer came.
  [[nodiscard]] bool was_maybe_sent() const { return maybe_sent_; }

  /// Returns the number of the command job that the scheduler has; 0 if there is none.
  [[nodiscard]] int job() const { return job_; }
  /// Returns whether this job has not ended yet, as far as is known.
  [[nodiscard]] bool is_out() const { return step_ == Step::Out; }
  /// Returns whether its values were read, so that it can be removed from the history.
  [[nodiscard]] bool wants_forgetting() const { return step_ == Step::Told; }
  /// Returns whether the scheduler has ended the job.
  [[nodiscard]] bool has_job_ended() const { return end_state_ >= IPP_JSTATE_CANCELED && !lingers_; }
  /// Returns when the job should be purged; nothing if it has ended.
  [[nodiscard]] std::optional<Moment> give_up_at() const;
  /// Returns whether the job has failed to reach the printer for some time.
  [[nodiscard]] bool is_hopeless(Moment now) const;
  /// Handles that the job was purged, or cannot be purged.
  void purged(Moment now);

  /// Ends the queries: sends no more command jobs; an active one should be purged.
  void wind_up();
  /// Handles that the scheduler went away with the queue's jobs.
  void lose(const std::string& why);

  /// Returns whether the queue was queried, or cannot be, and has no job left.
  [[nodiscard]] bool is_done() const { return done_ && step_ == Step::Resting && !was_killed_; }
  /// Returns whether sending a command job has been tried.
  [[nodiscard]] bool was_sent() const { return was_sent_; }
  /// Returns whether prints are printing or waiting.
  [[nodiscard]] bool has_prints() const { return !moving_.empty() || print_.has_value(); }

  /// @param time  the time of day at `now`.
  [[nodiscard]] QueueReport report(Moment now, TimeOfDay time) const;

 private:
  enum class Step : std::uint8_t { Resting, Sending, Out, Ended, Told };

  /// The print that is on the printer, or that failed there and is to be tried again.
  struct Print {
    int number = 0;
    bool seen_before = false;
    bool has_failed = false;
    std::optional<int> sheets;
    std::optional<int> seconds;
    Moment seen_at;
    Moment moved_at;  ///< when it began, or completed its last sheet
    std::optional<Moment> unreachable_since;
  };

  [[nodiscard]] std::optional<Outcome> obstacle() const;
  void see_prints(const std::vector<Job>& jobs, Moment now);
  void see_own_job(const std::vector<Job>& jobs);
  void see_print(const Job& job, Moment now);
  void take_values(Moment now);
  void take_report_of_others(Moment now);
  void accept_values();
  void compare_condition();
  void note_sighting(Moment now);
  void finish(Outcome outcome, const std::string& detail, Moment asked_at, Moment now);
  [[nodiscard]] bool is_surprising() const;
  [[nodiscard]] Condition told_condition() const;
  [[nodiscard]] bool is_stuck(Moment now) const;
  [[nodiscard]] bool is_fresh() const;

  WatchRules rules_;
  Reading reading_;
  Moment read_at_;
  /// What the report says about the ribbon. It takes a reading when its command job has ended and the reading
  /// is credible.
  Reading told_;
  Moment told_at_;
  std::optional<Moment> values_at_;  ///< when the printer was asked for them

  // The command job.
  Moment sent_at_;
  std::optional<Moment> struggling_since_;
  std::optional<Moment> reported_since_;
  std::string last_words_;                 ///< of the backend, while the job was on its way
  std::optional<ipp_jstate_t> end_state_;  ///< nothing if the scheduler forgot it
  int job_ = 0;
  int lines_ = 1;
  int newest_before_ = 0;
  Step step_ = Step::Resting;
  bool was_sent_ = false;
  bool was_away_ = false;
  bool maybe_sent_ = false;  ///< the scheduler did not say so
  bool overtaken_ = false;   ///< a print waits behind it
  bool lingers_ = false;     ///< it has reported, and its backend has not ended
  bool was_killed_ = false;  ///< since the queue was last read
  bool winding_up_ = false;

  // The result of the last command job, and the time of the next.
  bool done_ = false;
  Outcome outcome_ = Outcome::NotAsked;
  bool doubtful_ = false;    ///< the printer may still owe an answer to the last command job
  bool confirming_ = false;  ///< the last values surprised and are not told yet
  bool in_trouble_ = false;
  bool print_ended_ = false;  ///< since the queue was last asked
  int failures_ = 0;
  std::string detail_;
  std::optional<double> seconds_;
  Moment asked_at_;
  Moment due_;
  std::chrono::seconds interval_{0};
  bool was_hindered_ = false;       ///< it could not be asked, for another reason than a print
  std::optional<Condition> known_;  ///< after the last query
  bool has_changed_ = false;        ///< since then
  bool was_changed_ = false;        ///< in the previous look
  Sightings sightings_;

  // The queue and its prints.
  bool found_ = true;
  bool has_been_read_ = false;
  bool went_down_ = false;  ///< it is stopped, but not paused by an operator
  /// A command job of this program may have failed and stopped the queue since the queue was last read.
  bool may_have_begun_ = false;
  int newest_job_ = 0;
  int waiting_ = 0;
  std::set<int> moving_;  ///< prints that are printing or waiting
  std::optional<Print> print_;
};
