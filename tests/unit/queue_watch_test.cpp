// SPDX-License-Identifier: Apache-2.0
// The rules for one queue, without a server.
#include "monitor/queue_watch.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/unit/sample_report.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A queue, watched without a server.
struct OneQueue {
  explicit OneQueue(const WatchRules& rules = again()) : watch("booth", rules, Moment()) {
    reading = ribbon_reading("booth", 200, 400, "");
    reading.reports_levels = true;
    reading.accepting = true;
    reading.answered = true;
    reading.reported_at = 500;
    reading.age_seconds = 60;
    job.queue = "booth";
    job.is_command = true;
    job.is_own = true;
    job.state = IPP_JSTATE_PROCESSING;
    watch.see({}, reading, Moment());
  }

  void send(Moment now) {
    ++job.number;
    job.state = IPP_JSTATE_PROCESSING;
    watch.sending(now);
    watch.sent(job.number, now);
  }
  /// Sends a command job that ends with another report of the same values.
  void exchange(Moment now) {
    send(now);
    ++reading.reported_at;
    job.state = IPP_JSTATE_COMPLETED;
    watch.see({job}, reading, now);
    watch.purged(now);
  }
  [[nodiscard]] QueueReport report(Moment now = Moment()) const { return watch.report(now, TimeOfDay()); }

  QueueWatch watch;
  Reading reading;
  Job job;
};

TEST(Queue, EachCommandJobIsHopelessInItsOwnTime) {
  OneQueue one;
  one.reading.state_message = "The printer is not responding.";
  for (const auto begin : {Moment(), Moment() + seconds(100)}) {
    one.send(begin);
    one.watch.see({one.job}, one.reading, begin);
    EXPECT_FALSE(one.watch.is_hopeless(begin + milliseconds(1999)));
    EXPECT_TRUE(one.watch.is_hopeless(begin + seconds(2)));
    one.watch.purged(begin + seconds(3));
  }
}

TEST(Queue, EachCommandJobHasItsOwnWords) {
  OneQueue one;
  one.send(Moment());
  one.reading.state_message = "The printer is not responding.";
  one.watch.see({one.job}, one.reading, Moment() + seconds(1));
  one.watch.purged(Moment() + seconds(10));
  EXPECT_EQ(one.watch.report(Moment() + seconds(10), TimeOfDay()).detail, "The printer is not responding.");
  one.send(Moment() + seconds(100));
  one.watch.purged(Moment() + seconds(110));
  EXPECT_EQ(one.watch.report(Moment() + seconds(110), TimeOfDay()).detail, "");
}

TEST(Queue, ValuesAreKeptUntilTheJobHasEnded) {
  OneQueue one;
  const auto before = one.reading;
  one.send(Moment());
  one.reading.prints_remaining.reset();
  one.reading.ribbon_words = "none";
  one.reading.answered = false;
  one.reading.reported_at = 560;
  one.reading.age_seconds = 0;
  one.watch.see({one.job}, one.reading, Moment());
  const auto shown = one.watch.report(Moment(), TimeOfDay()).reading;
  EXPECT_EQ(shown.prints_remaining, before.prints_remaining);
  EXPECT_EQ(shown.ribbon_words, before.ribbon_words);
  EXPECT_EQ(shown.answered, before.answered);
  EXPECT_EQ(shown.reported_at, before.reported_at);
  EXPECT_EQ(shown.age_seconds, before.age_seconds);
}

TEST(Queue, AMissingQueueIsDoneAndNotDue) {
  OneQueue one;
  EXPECT_TRUE(one.watch.due());
  one.watch.miss();
  EXPECT_FALSE(one.watch.due());
  EXPECT_TRUE(one.watch.is_done());
}

TEST(Queue, ALostServerLeavesNoJob) {
  OneQueue one;
  one.send(Moment());
  one.watch.lose("gone");
  EXPECT_EQ(one.watch.job(), 0);
  EXPECT_TRUE(one.watch.is_done());
  EXPECT_FALSE(one.watch.report(Moment(), TimeOfDay()).stuck);
}

/// A print that is printing.
Job print_job(int number) {
  Job print;
  print.number = number;
  print.queue = "booth";
  print.state = IPP_JSTATE_PROCESSING;
  return print;
}

TEST(Queue, OnlyAnAnswerToAnotherProgramIsItsReport) {
  auto only_read = again();
  only_read.ask = false;
  const struct {
    const char* name;
    WatchRules rules;
    bool answered;
    int reported_at;
    bool counts;
  } cases[] = {
      {"report", again(), true, 501, true},
      {"same report", again(), true, 500, false},
      {"no answer", again(), false, 501, false},
      {"not asking", only_read, true, 501, false},
      {"once", {}, true, 501, false},
  };
  for (const auto& one_case : cases) {
    OneQueue one(one_case.rules);
    EXPECT_NE(one.report().outcome, Outcome::Refreshed);
    one.reading.answered = one_case.answered;
    one.reading.reported_at = one_case.reported_at;
    one.reading.age_seconds = 5;
    one.watch.see({}, one.reading, Moment());
    EXPECT_EQ(one.report().outcome == Outcome::Refreshed, one_case.counts) << one_case.name;
  }
}

TEST(Queue, AReportOfAnotherProgramPostponesTheNextQuery) {
  OneQueue one;
  one.exchange(Moment());
  EXPECT_TRUE(one.report().seconds);
  one.reading.reported_at = 600;
  one.reading.age_seconds = 7;
  one.watch.see({}, one.reading, Moment() + seconds(50));
  EXPECT_EQ(one.watch.due(), Moment() + seconds(43 + 120));
  EXPECT_EQ(one.report(Moment() + seconds(50)).seconds, std::nullopt);
}

TEST(Queue, IsDownOnlyIfAJobStoppedIt) {
  OneQueue one;
  auto print = print_job(1);
  const auto outcome_with = [&](QueueState state, bool stopped_queue, const char* message) {
    print.stopped_queue = stopped_queue;
    one.reading.state = state;
    one.reading.state_message = message;
    one.watch.see({print}, one.reading, Moment());
    return one.report().outcome;
  };
  print.state = IPP_JSTATE_PENDING;
  print.processing_seconds = 5;
  // A job's messages replace the scheduler's.
  EXPECT_EQ(outcome_with(QueueState::Stopped, false, "Paused"), Outcome::Paused);
  EXPECT_EQ(outcome_with(QueueState::Stopped, false, "Paper jam."), Outcome::Paused);
  EXPECT_EQ(outcome_with(QueueState::Stopped, true, "Paper jam."), Outcome::Stopped);
  // The job is held or gone.
  EXPECT_EQ(outcome_with(QueueState::Stopped, false, "Paper jam."), Outcome::Stopped);
  // It is resumed, and paused.
  EXPECT_EQ(outcome_with(QueueState::Processing, false, ""), Outcome::Busy);
  EXPECT_EQ(outcome_with(QueueState::Stopped, false, "Paper jam."), Outcome::Paused);
}

TEST(Queue, APauseDuringACommandJobIsAPause) {
  OneQueue one;
  one.send(Moment());
  one.reading.state = QueueState::Stopped;
  one.reading.state_message = "Waiting for printer to finish.";
  one.watch.see({one.job}, one.reading, Moment());
  one.job.state = IPP_JSTATE_PENDING;
  one.watch.see({one.job}, one.reading, Moment() + milliseconds(250));
  EXPECT_EQ(one.report().outcome, Outcome::Paused);
  one.watch.purged(Moment() + milliseconds(300));
  one.reading.state_message = "";
  one.watch.see({}, one.reading, Moment() + milliseconds(500));
  EXPECT_EQ(one.report().outcome, Outcome::Paused);
}

TEST(Queue, ACommandJobThatFailsWhileItsQueueIsReadStopsIt) {
  OneQueue one;
  one.send(Moment());
  one.job.state = IPP_JSTATE_PROCESSING;
  one.reading.state = QueueState::Stopped;
  one.watch.see({one.job}, one.reading, Moment());
  one.watch.purged(Moment() + milliseconds(1));
  one.watch.see({}, one.reading, Moment() + milliseconds(250));
  EXPECT_EQ(one.report().outcome, Outcome::Stopped);
}

TEST(Queue, ABackendMayLingerForASecondAfterTheReport) {
  OneQueue one;
  one.send(Moment());
  one.reading.reported_at = 560;
  const Moment reported = Moment() + seconds(2);
  one.watch.see({one.job}, one.reading, reported);
  one.watch.see({one.job}, one.reading, reported + milliseconds(999));
  EXPECT_TRUE(one.watch.is_out());
  one.watch.see({one.job}, one.reading, reported + seconds(1));
  EXPECT_FALSE(one.watch.is_out());
  EXPECT_TRUE(one.watch.wants_forgetting());
  EXPECT_FALSE(one.watch.has_job_ended());
  EXPECT_EQ(one.report(reported + seconds(1)).outcome, Outcome::Refreshed);
}

TEST(Queue, AnEndedPrintShortensOneInterval) {
  OneQueue one;
  const auto interval_after_report = [&one](seconds time, const std::vector<Job>& jobs) {
    ++one.reading.reported_at;
    one.reading.age_seconds.reset();
    one.watch.see({}, one.reading, Moment() + time);
    one.watch.see(jobs, Moment() + time);
    return *one.watch.due() - (Moment() + time);
  };
  auto print = print_job(50);
  print.state = IPP_JSTATE_COMPLETED;
  EXPECT_EQ(interval_after_report(seconds(0), {}), seconds(60));
  EXPECT_EQ(interval_after_report(seconds(60), {}), seconds(120));
  EXPECT_EQ(interval_after_report(seconds(180), {print}), seconds(60));
  EXPECT_EQ(interval_after_report(seconds(240), {print}), seconds(60));
  EXPECT_EQ(interval_after_report(seconds(300), {print}), seconds(120));
}

TEST(Queue, APrintThatIsGoneIsNotTimedAnyMore) {
  OneQueue one;
  auto print = print_job(50);
  one.watch.see({print}, Moment());
  EXPECT_TRUE(one.watch.has_prints());
  EXPECT_EQ(one.report().job_seconds, std::nullopt);
  EXPECT_FALSE(one.report(Moment() + milliseconds(299999)).stuck);
  EXPECT_TRUE(one.report(Moment() + seconds(300)).stuck);
  print.processing_seconds = 9;
  one.watch.see({print}, Moment());
  EXPECT_EQ(one.report(Moment() + seconds(3)).job_seconds, 12);
  one.watch.see({}, Moment());
  EXPECT_FALSE(one.watch.has_prints());
  EXPECT_EQ(one.report().job_seconds, std::nullopt);
}

TEST(Queue, IsIdleWhileACommandJobIsProcessing) {
  OneQueue one;
  const auto state_with = [&one](const std::vector<Job>& jobs, QueueState state) {
    one.reading.state = state;
    one.watch.see(jobs, one.reading, Moment());
    return one.report().reading.state;
  };
  EXPECT_EQ(state_with({one.job}, QueueState::Processing), QueueState::Idle);
  EXPECT_EQ(state_with({print_job(50)}, QueueState::Processing), QueueState::Processing);
  EXPECT_EQ(state_with({}, QueueState::Stopped), QueueState::Stopped);
}

TEST(Queue, AJobThatMayHaveBeenSentIsLookedForOnce) {
  OneQueue one;
  one.exchange(Moment());
  const Moment later = Moment() + seconds(60);
  one.watch.sending(later);
  one.watch.not_sent({SchedulerError::Kind::NoAnswer, "no answer"}, later);
  EXPECT_TRUE(one.watch.was_maybe_sent());
  EXPECT_EQ(one.watch.due(), later);
  // The previous command job is not it.
  one.watch.see({one.job}, later);
  EXPECT_FALSE(one.watch.was_maybe_sent());
  EXPECT_EQ(one.watch.job(), 0);
  ++one.job.number;
  one.job.state = IPP_JSTATE_PROCESSING;
  one.watch.see({one.job}, later);
  EXPECT_EQ(one.watch.job(), 0);
}

TEST(Queue, AJobThatWasSentAllTheSameIsTaken) {
  OneQueue one;
  one.watch.sending(Moment());
  one.watch.not_sent({SchedulerError::Kind::InvalidAnswer, "not IPP"}, Moment());
  one.job.number = 3;
  auto of_others = one.job;
  of_others.number = 2;
  of_others.is_own = false;
  one.watch.see({of_others, print_job(1), one.job}, Moment());
  EXPECT_EQ(one.watch.job(), 3);
  EXPECT_TRUE(one.watch.is_out());
}

TEST(Queue, ACommandJobOfAnEarlierRunIsLeftAlone) {
  OneQueue one;
  one.job.number = 3;
  QueueWatch watch("booth", again(), Moment());
  EXPECT_EQ(watch.name(), "booth");
  watch.see({one.job}, one.reading, Moment());
  EXPECT_EQ(watch.job(), 0);
}

TEST(Queue, AJobThatIsGoneHasReportedIfTheReportIsNewOrMayBe) {
  const auto outcome_of = [](OneQueue& one, int reported_at) {
    one.send(Moment());
    one.reading.reported_at = reported_at;
    one.watch.see({}, one.reading, Moment());
    return one.report().outcome;
  };
  OneQueue old;
  EXPECT_EQ(outcome_of(old, 500), Outcome::Failed);
  EXPECT_EQ(old.report().detail, "the command job is gone");
  EXPECT_EQ(old.watch.job(), 0);
  EXPECT_EQ(outcome_of(old, 501), Outcome::Refreshed);
  EXPECT_EQ(outcome_of(old, 501), Outcome::Failed);

  // The last report may be of the same second.
  OneQueue young;
  young.reading.age_seconds = 0;
  young.watch.see({}, young.reading, Moment());
  young.watch.note_absence();
  EXPECT_EQ(outcome_of(young, 500), Outcome::Failed);
  EXPECT_EQ(outcome_of(young, 500), Outcome::Refreshed);
}

TEST(Queue, AnyFailureIsFollowedByTwoLines) {
  OneQueue one;
  EXPECT_EQ(one.watch.report_levels(), 1);
  one.send(Moment());
  one.watch.purged(Moment() + seconds(10));
  EXPECT_EQ(one.report().outcome, Outcome::TimedOut);
  EXPECT_EQ(one.watch.report_levels(), 2);
  EXPECT_TRUE(one.watch.is_dead());
  one.exchange(Moment() + seconds(60));
  EXPECT_EQ(one.watch.report_levels(), 1);
  EXPECT_FALSE(one.watch.is_dead());
}

TEST(Queue, AGoneJobIsNotTakenForAnEarlierOneThatEnded) {
  OneQueue one;
  one.exchange(Moment());
  one.send(Moment() + seconds(60));
  one.watch.see({}, one.reading, Moment() + seconds(61));
  EXPECT_EQ(one.report(Moment() + seconds(61)).detail, "the command job is gone");
}

TEST(Queue, YoungValuesAreNotAskedForBeforeTheyAreTooOld) {
  auto rules = again();
  rules.max_age = seconds(300);
  OneQueue one(rules);
  EXPECT_EQ(one.watch.due(), Moment() + seconds(300 - 60 + 1));
}

TEST(Queue, YoungValuesOfABusyQueueAreEnough) {
  WatchRules rules;
  rules.max_age = seconds(300);
  for (const bool has_age : {true, false}) {
    OneQueue one(rules);
    if (!has_age) {
      one.reading.age_seconds.reset();
    }
    QueueWatch watch("booth", rules, Moment());
    watch.see({print_job(50)}, one.reading, Moment());
    EXPECT_TRUE(watch.is_done());
    EXPECT_EQ(watch.report(Moment(), TimeOfDay()).outcome, has_age ? Outcome::NotAsked : Outcome::Busy);
  }
}

TEST(Queue, ABusySchedulerGetsTheJobASecondLater) {
  OneQueue one;
  one.watch.sending(Moment());
  one.watch.not_sent({SchedulerError::Kind::Busy, "Too many active jobs."}, Moment() + seconds(5));
  EXPECT_EQ(one.watch.due(), Moment() + seconds(6));
  EXPECT_EQ(one.report().outcome, Outcome::Failed);
  EXPECT_EQ(one.report().detail, "the print server is busy: Too many active jobs.");
  one.watch.wind_up();
  EXPECT_EQ(one.report().detail, "the print server is busy: Too many active jobs.");
  EXPECT_FALSE(one.watch.due());
}

TEST(Queue, NoTimeIsLeftOnlyForAQueueThatIsToBeAsked) {
  for (const bool ask : {true, false}) {
    auto rules = again();
    rules.ask = ask;
    OneQueue one(rules);
    one.watch.wind_up();
    EXPECT_EQ(one.report().detail, ask ? "no time was left to ask" : "");
  }
}

TEST(Queue, AnOvertakenJobIsPurgedAtOnceAndRepeatedWithTwoLines) {
  OneQueue one;
  one.exchange(Moment());
  one.exchange(Moment() + seconds(60));
  EXPECT_EQ(one.watch.report_levels(), 1);
  const Moment later = Moment() + seconds(70);
  one.send(later);
  EXPECT_EQ(one.watch.give_up_at(), later + again().timeout);
  one.watch.see({one.job, print_job(50)}, later + seconds(1));
  EXPECT_EQ(one.watch.give_up_at(), later);
  one.watch.purged(later + seconds(2));
  EXPECT_EQ(one.watch.report_levels(), 2);
  EXPECT_FALSE(one.watch.give_up_at());
  one.watch.see({}, one.reading, later + seconds(9));
  EXPECT_EQ(one.watch.due(), later + seconds(2));
  EXPECT_EQ(one.report(later + seconds(9)).outcome, Outcome::Asking);
}

TEST(Queue, IsBeingAskedBeforeItsFirstQueryOnly) {
  OneQueue one;
  EXPECT_EQ(one.report().outcome, Outcome::Asking);
  one.exchange(Moment());
  EXPECT_EQ(one.report(Moment() + seconds(60)).outcome, Outcome::Refreshed);
  EXPECT_EQ(one.report(Moment() + seconds(61)).outcome, Outcome::Refreshed);
}

TEST(Queue, AnAnswerThatDiffersInAnyValueIsConfirmed) {
  const auto is_confirmed = [](const std::function<void(Reading&)>& change) {
    OneQueue one;
    one.send(Moment());
    one.reading.reported_at = 560;
    change(one.reading);
    one.job.state = IPP_JSTATE_COMPLETED;
    one.watch.see({one.job}, one.reading, Moment());
    const bool confirmed = one.report().outcome == Outcome::Asking;
    EXPECT_EQ(one.watch.report_levels(), confirmed || one.reading.answered == false ? 2 : 1);
    EXPECT_EQ(one.report().reading.reported_at, confirmed ? 500 : 560);
    return confirmed;
  };
  EXPECT_FALSE(is_confirmed([](Reading&) {}));
  EXPECT_TRUE(is_confirmed([](Reading& reading) { reading.errors = {{"0008", "2660"}}; }));
  EXPECT_TRUE(is_confirmed([](Reading& reading) { reading.sheet = "other"; }));
  EXPECT_TRUE(is_confirmed([](Reading& reading) { reading.prints_total = 399; }));
  EXPECT_TRUE(is_confirmed([](Reading& reading) { reading.prints_remaining = 201; }));
  EXPECT_FALSE(is_confirmed([](Reading& reading) { reading.prints_remaining = 100; }));
  EXPECT_TRUE(is_confirmed([](Reading& reading) { reading.prints_remaining = 99; }));
  EXPECT_FALSE(is_confirmed([](Reading& reading) { reading.answered = false; }));
}

TEST(Queue, AFewPrintsOfASmallRibbonAreNoSurprise) {
  for (const int used : {10, 11}) {
    OneQueue one;
    one.reading = ribbon_reading("booth", 30, 36, "");
    one.watch.see({}, one.reading, Moment());
    one.send(Moment());
    one.reading.prints_remaining = 30 - used;
    one.reading.reported_at = 560;
    one.job.state = IPP_JSTATE_COMPLETED;
    one.watch.see({one.job}, one.reading, Moment());
    EXPECT_EQ(one.watch.report_levels(), used == 10 ? 1 : 2);
  }
}

TEST(Queue, IsReadAgainSoonWhileSomethingHappens) {
  OneQueue one;
  EXPECT_EQ(one.watch.longest_read_pause(), std::nullopt);
  one.send(Moment());
  EXPECT_EQ(one.watch.longest_read_pause(), seconds(1));
  one.watch.see({}, Moment());
  EXPECT_EQ(one.watch.longest_read_pause(), milliseconds(0));
  one.watch.see({print_job(50)}, one.reading, Moment());
  EXPECT_EQ(one.watch.longest_read_pause(), seconds(5));

  WatchRules rules;
  rules.wait = true;
  OneQueue waiting(rules);
  waiting.reading.accepting = false;
  waiting.watch.see({}, waiting.reading, Moment());
  EXPECT_EQ(waiting.watch.longest_read_pause(), milliseconds(500));
  waiting.reading.accepting = true;
  waiting.watch.see({}, waiting.reading, Moment());
  EXPECT_EQ(waiting.watch.longest_read_pause(), std::nullopt);
}

TEST(Queue, ItsRulesHaveTheDocumentedDefaults) {
  const WatchRules rules;
  EXPECT_EQ(rules.timeout, seconds(10));
  EXPECT_EQ(rules.shortest, seconds(60));
  EXPECT_EQ(rules.longest, seconds(900));
  EXPECT_EQ(rules.stuck, seconds(300));
}

}  // namespace
