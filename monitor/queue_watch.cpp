// SPDX-License-Identifier: Apache-2.0
#include "monitor/queue_watch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A backend that cannot reach the printer for so long has a print stuck.
constexpr seconds UNREACHABLE{30};
/// A command job whose backend cannot reach the printer for so long is not worth the wait if others wait too.
constexpr seconds HOPELESS{2};
/// A command job that has reported for so long has nothing more to do.
constexpr seconds LINGERING{1};
/// A refused command job is sent again after so long if the scheduler only has too much to do.
constexpr seconds BUSY_PAUSE{1};

/// How old the reading of a queue may become while its command job is active, while a one-time call waits for
/// the queue, and in a watch while it prints.
constexpr seconds OUT_READ_PAUSE{1};
constexpr milliseconds WAITING_READ_PAUSE{500};
constexpr seconds PRINTING_READ_PAUSE{5};

/// The reasons and messages of CUPS' backends while they try to reach the printer.
constexpr std::array<std::string_view, 2> UNREACHABLE_REASONS = {"connecting-to-device", "offline-report"};
constexpr std::array<std::string_view, 7> UNREACHABLE_MESSAGES = {
    "Connecting to printer.",
    "The printer did not respond.",
    "The printer is not connected.",
    "The printer is not responding.",
    "The printer is unreachable at this time.",
    "The printer may not exist or is unavailable at this time.",
    "Waiting for printer to become available.",
};

bool has_ended(const Job& job) {
  return job.state >= IPP_JSTATE_CANCELED;
}

/// Whether its backend failed and the scheduler is going to try it again.
bool has_failed(const Job& job) {
  return job.state == IPP_JSTATE_HELD && job.processing_seconds;
}

bool moves(const Job& job) {
  return job.state == IPP_JSTATE_PENDING || job.state == IPP_JSTATE_PROCESSING;
}

/// Copies what the command job reports, and leaves the queue's own state alone.
void copy_ribbon(const Reading& from, Reading& to) {
  to.prints_remaining = from.prints_remaining;
  to.prints_total = from.prints_total;
  to.level_percent = from.level_percent;
  to.sheet = from.sheet;
  to.ribbon_words = from.ribbon_words;
  to.answered = from.answered;
  to.markers = from.markers;
  to.errors = from.errors;
  to.reported_at = from.reported_at;
  to.age_seconds = from.age_seconds;
}

void add_time(std::optional<int>& seconds_then, Moment then, Moment now) {
  if (seconds_then) {
    *seconds_then += static_cast<int>(std::chrono::duration_cast<seconds>(now - then).count());
  }
}

}  // namespace

bool is_unreachable(const Reading& reading) {
  const auto holds = [](const auto& list, std::string_view text) {
    return std::ranges::find(list, text) != list.end();
  };
  return holds(UNREACHABLE_MESSAGES, reading.state_message) ||
         std::ranges::any_of(reading.reasons,
                             [&](const auto& reason) { return holds(UNREACHABLE_REASONS, reason); });
}

QueueWatch::QueueWatch(const std::string& queue, const WatchRules& rules, Moment now)
    : rules_(rules),
      read_at_(now),
      told_at_(now),
      sent_at_(now),
      asked_at_(now),
      due_(now),
      sightings_(rules.shortest) {
  reading_.queue = queue;
}

void QueueWatch::see(const std::vector<Job>& jobs, Moment now) {
  see_prints(jobs, now);
  see_own_job(jobs);
}

void QueueWatch::see(const std::vector<Job>& jobs, const Reading& reading, Moment now) {
  see(jobs, now);
  const bool is_first = !has_been_read_;
  const bool is_of_others = rules_.again && rules_.ask && !is_first && step_ == Step::Resting &&
                            reading.answered == true && reading.reported_at != reading_.reported_at;
  has_been_read_ = true;
  was_killed_ = false;
  found_ = true;
  reading_ = reading;
  read_at_ = now;
  const bool is_stopped = reading.state == QueueState::Stopped;
  const bool is_processing =
      std::ranges::any_of(jobs, [](const Job& job) { return job.state == IPP_JSTATE_PROCESSING; });
  const bool has_failed_job = std::ranges::any_of(jobs, &Job::stopped_queue);
  went_down_ = is_stopped && reading.state_message != PAUSED_MESSAGE &&
               (has_failed_job || (may_have_begun_ && step_ != Step::Out) || went_down_);
  // The jobs are read before the queue.
  may_have_begun_ = step_ == Step::Out ? !is_stopped || is_processing : may_have_begun_ && is_stopped;

  if (step_ == Step::Out) {
    last_words_ = reading.state_message;
    if (!is_unreachable(reading)) {
      struggling_since_.reset();
    } else if (!struggling_since_) {
      struggling_since_ = now;
    }
    if (lines_ == 1 && reading.reported_at != told_.reported_at && reading.answered == true) {
      reported_since_ = reported_since_.value_or(now);
    }
    // The filter has reported and ended. A backend may still wait for the printer, over USB for 8 seconds.
    if (reported_since_ && now - *reported_since_ >= LINGERING) {
      step_ = Step::Ended;
      end_state_ = IPP_JSTATE_COMPLETED;
      lingers_ = true;
    }
  }
  if (step_ == Step::Ended) {
    take_values(now);
  } else if (is_of_others && !confirming_) {
    take_report_of_others(now);
  }
  if ((step_ == Step::Resting || step_ == Step::Told) && !confirming_) {
    accept_values();
    compare_condition();
  }
  if (print_) {
    if (!is_unreachable(reading)) {
      print_->unreachable_since.reset();
    } else if (!print_->unreachable_since) {
      print_->unreachable_since = print_->seen_before ? now : print_->moved_at;
    }
  }
  note_sighting(now);
  if (!rules_.again && !done_ && step_ == Step::Resting) {
    const auto why = obstacle();
    if (!rules_.ask || (!confirming_ && is_fresh() && (!why || *why == Outcome::Busy))) {
      done_ = true;
      outcome_ = why == Outcome::Stopped ? Outcome::Stopped : Outcome::NotAsked;
    } else if (why && (!rules_.wait || *why == Outcome::Unsupported)) {
      done_ = true;
      outcome_ = *why;
    }
  }
}

/// Compares the condition with the one after the last query. Something else has changed it: another program's
/// query, a filter or the scheduler. The printer is queried soon.
void QueueWatch::compare_condition() {
  auto condition = told_condition();
  has_changed_ = known_ && (has_changed_ || condition != *known_);
  if (!known_) {
    known_ = std::move(condition);
  }
  if (has_changed_) {
    due_ = std::min(due_, asked_at_ + rules_.shortest);
  }
}

/// A look is a sighting where the printer cannot be asked. Where it can, only its answers are: what it said
/// before may be over. A change is one, too: once, or with each look during a print.
void QueueWatch::note_sighting(Moment now) {
  const auto why = obstacle();
  const bool is_printing = why == Outcome::Busy;
  const bool is_change = has_changed_ && (is_printing || !was_changed_);
  was_changed_ = has_changed_;
  if (!rules_.ask || (why && (!is_printing || is_stuck(now))) || is_change) {
    sightings_.note(now);
  }
  if (was_hindered_ && !why) {
    // Query it now, and once more before the intervals grow again.
    due_ = std::min(due_, asked_at_ + rules_.shortest);
    interval_ = seconds(0);
  }
  was_hindered_ = why && !is_printing;
}

/// Processes a reading that may come from another program's command job. It may also be the late reply to a
/// job of this program.
void QueueWatch::take_report_of_others(Moment now) {
  if (doubtful_) {
    confirming_ = true;
    due_ = now;
  } else {
    accept_values();
    finish(Outcome::Refreshed, {}, now - seconds(reading_.age_seconds.value_or(0)), now);
  }
}

std::optional<milliseconds> QueueWatch::longest_read_pause() const {
  if (step_ == Step::Ended || was_killed_) {
    return milliseconds(0);
  }
  if (step_ == Step::Out) {
    return OUT_READ_PAUSE;
  }
  if (!rules_.again) {
    const bool is_waited_for = !done_ && !winding_up_ && !due();
    return is_waited_for ? std::optional(WAITING_READ_PAUSE) : std::nullopt;
  }
  return has_prints() ? std::optional<milliseconds>(std::min(rules_.shortest, PRINTING_READ_PAUSE))
                      : std::nullopt;
}

void QueueWatch::miss() {
  found_ = false;
  was_killed_ = false;
  step_ = Step::Resting;
  job_ = 0;
  outcome_ = Outcome::NotFound;
  done_ = true;
}

std::optional<Outcome> QueueWatch::obstacle() const {
  if (!found_) {
    return Outcome::NotFound;
  }
  if (!reading_.reports_levels) {
    return Outcome::Unsupported;
  }
  if (reading_.accepting == false) {
    return Outcome::Rejecting;
  }
  if (reading_.state == QueueState::Stopped) {
    return went_down_ ? Outcome::Stopped : Outcome::Paused;
  }
  if (!moving_.empty()) {
    return Outcome::Busy;
  }
  return std::nullopt;
}

void QueueWatch::see_prints(const std::vector<Job>& jobs, Moment now) {
  std::set<int> moving;
  const Job* current = nullptr;
  bool ended = false;
  waiting_ = 0;
  for (const auto& job : jobs) {
    if (job.is_command) {
      continue;
    }
    if (moves(job)) {
      moving.insert(job.number);
    }
    ended = ended || (has_ended(job) && job.number > newest_job_);
    waiting_ += job.state == IPP_JSTATE_PENDING ? 1 : 0;
    if (job.state == IPP_JSTATE_PROCESSING || (has_failed(job) && current == nullptr)) {
      current = &job;
    }
  }
  for (const auto& job : jobs) {
    newest_job_ = std::max(newest_job_, job.number);
  }
  ended = ended || !std::ranges::includes(moving, moving_);
  moving_ = std::move(moving);
  if (ended) {
    print_ended_ = true;
    due_ = std::min(due_, asked_at_ + rules_.shortest);
  }
  overtaken_ = overtaken_ || (step_ == Step::Out && !moving_.empty());
  if (current == nullptr) {
    print_.reset();
  } else {
    see_print(*current, now);
  }
}

void QueueWatch::see_print(const Job& job, Moment now) {
  const bool seen_before = print_ && print_->number == job.number;
  if (!seen_before) {
    print_ = Print{};
    print_->number = job.number;
    print_->moved_at =
        now - seconds(job.sheets_completed.value_or(0) == 0 ? job.processing_seconds.value_or(0) : 0);
  } else if (print_->sheets != job.sheets_completed) {
    print_->moved_at = now;
  }
  print_->seen_before = seen_before;
  print_->has_failed = job.state == IPP_JSTATE_HELD;
  print_->sheets = job.sheets_completed;
  print_->seconds = job.processing_seconds;
  print_->seen_at = now;
}

void QueueWatch::see_own_job(const std::vector<Job>& jobs) {
  if (maybe_sent_) {
    maybe_sent_ = false;
    const auto job = std::ranges::find_if(
        jobs, [&](const Job& one) { return one.is_own && one.is_command && one.number > newest_before_; });
    if (job != jobs.end()) {
      step_ = Step::Out;
      job_ = job->number;
    }
  }
  const auto job = std::ranges::find(jobs, job_, &Job::number);
  // A scheduler that was killed may give the number of a job that it has lost to a job of any queue.
  const bool is_lost = job == jobs.end() || !job->is_command;
  if (step_ == Step::Told && is_lost) {
    step_ = Step::Resting;
    job_ = 0;
  }
  if (step_ != Step::Out) {
    return;
  }
  if (is_lost) {
    step_ = Step::Ended;
    end_state_.reset();
  } else if (has_ended(*job) || has_failed(*job)) {
    step_ = Step::Ended;
    end_state_ = job->state;
    may_have_begun_ = may_have_begun_ && end_state_ != IPP_JSTATE_COMPLETED;
  }
}

/// Takes the first reading after the end of the command job.
void QueueWatch::take_values(Moment now) {
  step_ = end_state_ ? Step::Told : Step::Resting;
  job_ = end_state_ ? job_ : 0;
  // Times are whole seconds: two reports within one have the same.
  const bool has_reported =
      reading_.reported_at != told_.reported_at || (told_.age_seconds == 0 && !was_away_);
  was_away_ = false;
  const bool is_unsure = !end_state_ || *end_state_ == IPP_JSTATE_HELD;
  if (end_state_ == IPP_JSTATE_COMPLETED || (is_unsure && has_reported)) {
    if (lines_ == 1 && is_surprising()) {
      confirming_ = true;
      due_ = now;
      return;
    }
    confirming_ = false;
    accept_values();
    finish(Outcome::Refreshed, {}, sent_at_, now);
    return;
  }
  finish(Outcome::Failed,
         !end_state_                          ? "the command job is gone"
         : *end_state_ == IPP_JSTATE_CANCELED ? "the command job was cancelled"
                                              : "the command job failed",
         sent_at_, now);
}

void QueueWatch::accept_values() {
  // Ages are whole seconds: computed from each of them, this moment would vary.
  if (!reading_.age_seconds) {
    values_at_.reset();
  } else if (!values_at_ || reading_.reported_at != told_.reported_at) {
    values_at_ = read_at_ - seconds(*reading_.age_seconds);
  }
  told_ = reading_;
  told_at_ = read_at_;
}

/// Whether the values after the job differ from those before as they do when the printer's answer to an
/// earlier question came late: such a reading is confirmed before it is shown.
bool QueueWatch::is_surprising() const {
  if (told_.answered != true || reading_.answered != true) {
    return false;
  }
  constexpr int few = 10;
  const auto total = told_.prints_total.value_or(0);
  const auto before = told_.prints_remaining.value_or(0);
  const auto after = reading_.prints_remaining.value_or(0);
  const int used = before - after;
  return told_.errors != reading_.errors || told_.prints_total != reading_.prints_total ||
         told_.sheet != reading_.sheet || used < 0 || used > std::max(few, total / 4) ||
         (after == 0 && used > 1);
}

/// The condition by the last values alone, regardless of how they were read.
Condition QueueWatch::told_condition() const {
  QueueReport report;
  report.reading = told_;
  report.outcome = Outcome::Refreshed;
  return condition_of(report, rules_.limits);
}

/// Whether the values are young enough in the reading that has just come.
bool QueueWatch::is_fresh() const {
  return rules_.max_age && reading_.age_seconds && seconds(*reading_.age_seconds) <= *rules_.max_age;
}

/// Ends an exchange and says when the next is due.
void QueueWatch::finish(Outcome outcome, const std::string& detail, Moment asked_at, Moment now) {
  sightings_.note(now);
  outcome_ = outcome;
  detail_ = detail;
  seconds_.reset();
  if (asked_at == sent_at_) {
    seconds_ = std::chrono::duration<double>(now - sent_at_).count();
  }
  asked_at_ = asked_at;
  done_ = true;

  const bool good = outcome == Outcome::Refreshed;
  const bool in_trouble = !good || told_condition().level != Level::Ok;
  const bool has_recovered = in_trouble_ && !in_trouble;
  failures_ = good ? 0 : failures_ + 1;
  doubtful_ = !good || told_.answered == false;
  const bool changed = good && (in_trouble || has_recovered || print_ended_);
  interval_ = changed || interval_ == seconds(0) || failures_ == 1 ? rules_.shortest
                                                                   : std::min(interval_ * 2, rules_.longest);
  interval_ = std::max(interval_, rules_.shortest);
  in_trouble_ = in_trouble;
  known_.reset();
  print_ended_ = false;
  due_ = asked_at_ + interval_;
}

std::optional<Moment> QueueWatch::due() const {
  if (!rules_.ask || winding_up_ || step_ != Step::Resting || !has_been_read_ || obstacle() ||
      (done_ && !rules_.again)) {
    return std::nullopt;
  }
  if (rules_.max_age && reading_.age_seconds && !confirming_) {
    // A second more, since ages are whole seconds.
    return std::max(due_, read_at_ - seconds(*reading_.age_seconds) + *rules_.max_age + seconds(1));
  }
  return due_;
}

int QueueWatch::report_levels() const {
  return doubtful_ || confirming_ || !reading_.answered.value_or(false) ? 2 : 1;
}

void QueueWatch::sending(Moment now) {
  lines_ = report_levels();
  step_ = Step::Sending;
  may_have_begun_ = true;
  sent_at_ = now;
  was_sent_ = true;
  overtaken_ = false;
  lingers_ = false;
  struggling_since_.reset();
  reported_since_.reset();
  last_words_.clear();
  newest_before_ = newest_job_;
}

void QueueWatch::sent(int job, Moment now) {
  step_ = Step::Out;
  job_ = job;
  sent_at_ = now;
  newest_job_ = std::min(newest_job_, job - 1);
}

void QueueWatch::not_sent(const SchedulerError& error, Moment now) {
  step_ = Step::Resting;
  using enum SchedulerError::Kind;
  switch (error.kind) {
    case Unreachable:
    case NoAnswer:
    case InvalidAnswer:
      // It may have taken the job all the same.
      maybe_sent_ = true;
      due_ = now;
      return;
    case Busy:
      due_ = now + BUSY_PAUSE;
      outcome_ = Outcome::Failed;
      sightings_.note(now);
      detail_ = explanation(error, reading_.shared);
      return;
    default:
      finish(Outcome::Failed, explanation(error, reading_.shared), now, now);
  }
}

std::optional<Moment> QueueWatch::give_up_at() const {
  if (step_ != Step::Out) {
    return std::nullopt;
  }
  return overtaken_ || winding_up_ ? sent_at_ : sent_at_ + rules_.timeout;
}

bool QueueWatch::is_hopeless(Moment now) const {
  return step_ == Step::Out && struggling_since_ && now - *struggling_since_ >= HOPELESS;
}

void QueueWatch::purged(Moment now) {
  const bool was_out = step_ == Step::Out;
  step_ = Step::Resting;
  job_ = 0;
  if (!was_out) {
    return;
  }
  was_killed_ = !winding_up_;
  if (overtaken_) {
    doubtful_ = true;
    due_ = now;
    if (!rules_.again && !rules_.wait) {
      outcome_ = Outcome::Busy;
      done_ = true;
    }
    return;
  }
  if (reading_.reported_at != told_.reported_at) {
    // That there was no answer is true; an answer may belong to an earlier request.
    confirming_ = reading_.answered == true;
    if (!confirming_) {
      accept_values();
    }
  }
  finish(Outcome::TimedOut, last_words_, sent_at_, now);
}

void QueueWatch::wind_up() {
  winding_up_ = true;
  was_killed_ = false;
  if (done_ || step_ != Step::Resting) {
    return;
  }
  done_ = true;
  if (const auto why = has_been_read_ ? obstacle() : std::nullopt) {
    outcome_ = *why;
  } else if (rules_.ask && outcome_ == Outcome::NotAsked) {
    outcome_ = Outcome::Failed;
    detail_ = "no time was left to ask";
  }
}

void QueueWatch::lose(const std::string& why) {
  step_ = Step::Resting;
  job_ = 0;
  if (!done_) {
    done_ = true;
    outcome_ = Outcome::Failed;
    detail_ = why;
  }
}

bool QueueWatch::is_stuck(Moment now) const {
  if (!print_) {
    return false;
  }
  return print_->has_failed || now - print_->moved_at >= rules_.stuck ||
         (print_->unreachable_since && now - *print_->unreachable_since >= UNREACHABLE);
}

QueueReport QueueWatch::report(Moment now, TimeOfDay time) const {
  QueueReport report;
  report.reading = reading_;
  copy_ribbon(told_, report.reading);
  add_time(report.reading.age_seconds, told_at_, now);
  add_time(report.reading.state_seconds, read_at_, now);
  if (values_at_) {
    report.read_at = std::chrono::system_clock::to_time_t(std::chrono::floor<seconds>(
        time - std::chrono::duration_cast<TimeOfDay::duration>(now - *values_at_)));
  }
  // The scheduler calls a queue that works on a command job processing, too.
  if (report.reading.state == QueueState::Processing && !print_) {
    report.reading.state = QueueState::Idle;
  }
  report.detail = detail_;
  report.seconds = seconds_;
  report.outcome = outcome_;
  const auto why = obstacle();
  const bool is_asking = (step_ != Step::Resting && step_ != Step::Told) || (confirming_ && failures_ == 0) ||
                         (due() && *due() <= now && (!was_sent_ || overtaken_));
  if (rules_.again && why && (rules_.ask || *why == Outcome::Stopped)) {
    report.outcome = *why;
  } else if (is_asking && (!done_ || is_good(outcome_))) {
    // A queue in trouble does not look well during the next attempt.
    report.outcome = Outcome::Asking;
  }
  if (report.outcome != outcome_) {
    report.detail.clear();
    report.seconds.reset();
  }
  report.stuck = is_stuck(now);
  report.sightings = sightings_.count();
  report.prints_waiting = waiting_;
  if (print_) {
    report.job_seconds = print_->seconds;
    add_time(report.job_seconds, print_->seen_at, now);
  }
  return report;
}
