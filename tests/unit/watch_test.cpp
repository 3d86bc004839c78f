// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/fake_scheduler.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using Manner = FakePrinter::Manner;

constexpr auto MINUTE = std::chrono::minutes(1);
constexpr auto HOUR = std::chrono::hours(1);

TEST(Once, AQueueIsAskedReadAndItsJobForgotten) {
  Simulation one;
  one.scheduler.add("booth").remaining = 123;
  one.run();
  EXPECT_TRUE(one.watch.is_done());
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, 123);
  EXPECT_NEAR(one.queue("booth").seconds.value_or(0), 0.2, 0.1);
  EXPECT_THAT(one.scheduler.jobs, IsEmpty());
}

struct OutcomeCase {
  const char* name;
  Outcome outcome;
  std::function<void(Simulation&)> arrange;
  WatchRules rules = {};
};

class OnceEnds : public testing::TestWithParam<OutcomeCase> {};

TEST_P(OnceEnds, AsExpectedWithoutATrace) {
  Simulation one(GetParam().rules);
  one.scheduler.add("booth");
  const auto before = one.scheduler.jobs.size();
  GetParam().arrange(one);
  const auto prints = one.scheduler.jobs.size() - before;
  one.run();
  EXPECT_TRUE(one.watch.is_done());
  EXPECT_EQ(one.outcome(), GetParam().outcome);
  EXPECT_EQ(one.scheduler.own_jobs(), 0U);
  EXPECT_EQ(one.scheduler.jobs.size(), prints);
  EXPECT_LE(one.now(), Moment() + GetParam().rules.timeout + seconds(1));
}

WatchRules with(const std::function<void(WatchRules&)>& change) {
  WatchRules rules;
  change(rules);
  return rules;
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, OnceEnds,
    testing::Values(
        OutcomeCase{"Refreshed", Outcome::Refreshed, [](Simulation&) {}},
        OutcomeCase{"Silent", Outcome::Refreshed,
                    [](Simulation& one) { one.scheduler.printers["booth"].manner = Manner::IsSilent; }},
        OutcomeCase{"Endless", Outcome::TimedOut,
                    [](Simulation& one) { one.scheduler.printers["booth"].manner = Manner::NeverEnds; }},
        OutcomeCase{"Unreachable", Outcome::TimedOut,
                    [](Simulation& one) { one.scheduler.printers["booth"].manner = Manner::IsUnreachable; }},
        OutcomeCase{"Busy", Outcome::Busy, [](Simulation& one) { one.scheduler.print("booth"); }},
        OutcomeCase{"BehindAnotherCommandJob", Outcome::Refreshed,
                    [](Simulation& one) { one.scheduler.print("booth", seconds(1), true); }},
        OutcomeCase{"Held", Outcome::Refreshed,
                    [](Simulation& one) {
                      one.scheduler.end(one.scheduler.print("booth"), IPP_JSTATE_HELD);
                      one.scheduler.jobs.begin()->second.has_begun = false;
                    }},
        OutcomeCase{"Paused", Outcome::Paused,
                    [](Simulation& one) {
                      one.scheduler.readings["booth"].state = QueueState::Stopped;
                      one.scheduler.readings["booth"].state_message = "Paused";
                    }},
        OutcomeCase{"PausedWithAWord", Outcome::Paused,
                    [](Simulation& one) {
                      one.scheduler.readings["booth"].state = QueueState::Stopped;
                      one.scheduler.readings["booth"].state_message = "back at noon";
                    }},
        OutcomeCase{"PausedWhileItPrinted", Outcome::Paused,
                    [](Simulation& one) {
                      one.scheduler.jobs.at(one.scheduler.print("booth")).job.state = IPP_JSTATE_PENDING;
                      one.scheduler.readings["booth"].state = QueueState::Stopped;
                      one.scheduler.readings["booth"].state_message = "Paused";
                    }},
        OutcomeCase{"StoppedByAnError", Outcome::Stopped,
                    [](Simulation& one) {
                      auto& print = one.scheduler.jobs.at(one.scheduler.print("booth")).job;
                      print.state = IPP_JSTATE_PENDING;
                      print.stopped_queue = true;
                      one.scheduler.readings["booth"].state = QueueState::Stopped;
                      one.scheduler.readings["booth"].state_message = "Paper jam.";
                    }},
        OutcomeCase{"Rejecting", Outcome::Rejecting,
                    [](Simulation& one) { one.scheduler.readings["booth"].accepting = false; }},
        OutcomeCase{"NotAsked", Outcome::NotAsked, [](Simulation&) {},
                    with([](auto& rules) { rules.ask = false; })},
        OutcomeCase{"Refused", Outcome::Failed,
                    [](Simulation& one) {
                      one.scheduler.send_error = {SchedulerError::Kind::Forbidden, "Forbidden"};
                    }},
        OutcomeCase{"TooMuchToDo", Outcome::Failed,
                    [](Simulation& one) {
                      one.scheduler.send_error = {SchedulerError::Kind::Busy, "Too many active jobs."};
                    }},
        OutcomeCase{"TooMuchToDoForAWhile", Outcome::Refreshed,
                    [](Simulation& one) {
                      one.scheduler.send_error = {SchedulerError::Kind::Busy, "Too many active jobs."};
                      one.at(seconds(3), [&] { one.scheduler.send_error.reset(); });
                    }},
        OutcomeCase{"CancelledBySomebody", Outcome::Failed,
                    [](Simulation& one) {
                      one.scheduler.printers["booth"].manner = Manner::NeverEnds;
                      one.at(seconds(3),
                             [&] { one.scheduler.end(one.scheduler.last_job, IPP_JSTATE_CANCELED); });
                    }},
        OutcomeCase{"Aborted", Outcome::Failed,
                    [](Simulation& one) {
                      one.scheduler.printers["booth"].manner = Manner::NeverEnds;
                      one.at(seconds(3),
                             [&] { one.scheduler.end(one.scheduler.last_job, IPP_JSTATE_ABORTED); });
                    }},
        OutcomeCase{"HeldAfterItsBackendFailed", Outcome::Failed,
                    [](Simulation& one) {
                      one.scheduler.printers["booth"].manner = Manner::NeverEnds;
                      one.at(seconds(3), [&] { one.scheduler.end(one.scheduler.last_job, IPP_JSTATE_HELD); });
                    }},
        OutcomeCase{"PurgedBySomebody", Outcome::Failed,
                    [](Simulation& one) {
                      one.scheduler.printers["booth"].manner = Manner::NeverEnds;
                      one.at(seconds(3), [&] { one.scheduler.jobs.clear(); });
                    }},
        OutcomeCase{"ForgottenByTheScheduler", Outcome::Refreshed,
                    [](Simulation& one) { one.scheduler.keeps_history = false; }},
        OutcomeCase{"QueueRemoved", Outcome::NotFound,
                    [](Simulation& one) {
                      one.scheduler.printers["booth"].manner = Manner::NeverEnds;
                      one.at(seconds(3), [&] {
                        one.scheduler.jobs.clear();
                        one.scheduler.readings.clear();
                      });
                    }},
        OutcomeCase{"WaitedForAPrint", Outcome::Refreshed,
                    [](Simulation& one) {
                      one.scheduler.keeps_history = false;
                      one.at(seconds(0), [&] { one.scheduler.print("booth", seconds(5)); });
                    },
                    with([](auto& rules) { rules.wait = true; })},
        OutcomeCase{"WaitedForAPausedQueue", Outcome::Refreshed,
                    [](Simulation& one) {
                      one.scheduler.readings["booth"].state = QueueState::Stopped;
                      one.at(seconds(5), [&] { one.scheduler.readings["booth"].state = QueueState::Idle; });
                    },
                    with([](auto& rules) { rules.wait = true; })},
        OutcomeCase{"WaitedInVain", Outcome::Rejecting,
                    [](Simulation& one) { one.scheduler.readings["booth"].accepting = false; },
                    with([](auto& rules) { rules.wait = true; })}),
    [](const auto& one) { return one.param.name; });

TEST(Once, AQueueWithoutTheCommandIsUnsupported) {
  Simulation one({}, {"office"});
  one.scheduler.add("office");
  one.scheduler.readings["office"].reports_levels = false;
  one.run();
  EXPECT_EQ(one.outcome("office"), Outcome::Unsupported);
}

TEST(Once, YoungValuesAreEnough) {
  WatchRules rules;
  rules.max_age = seconds(60);
  for (const int age : {0, 60, 61}) {
    Simulation one(rules);
    one.scheduler.add("booth");
    one.scheduler.readings["booth"].reported_at = 1000 - age;
    one.scheduler.readings["booth"].answered = true;
    one.run();
    EXPECT_EQ(one.outcome(), age <= 60 ? Outcome::NotAsked : Outcome::Refreshed) << age;
  }
}

TEST(Once, TheBackendsWordsSayWhyThereWasNoAnswer) {
  Simulation one;
  one.scheduler.add("booth").manner = Manner::IsUnreachable;
  one.run();
  EXPECT_EQ(one.queue("booth").detail, "The printer may not exist or is unavailable at this time.");
}

TEST(Once, ABackendThatLingersAfterTheReportIsNotWaitedFor) {
  Simulation one;
  one.scheduler.add("booth").lingers = seconds(8);
  auto& reading = one.scheduler.readings["booth"];
  reading = ribbon_reading("booth", 201, 400, "");
  reading.reported_at = 500;
  one.run();
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, 200);
  EXPECT_LE(one.now(), Moment() + milliseconds(3500));
  EXPECT_THAT(one.scheduler.jobs, IsEmpty());
}

TEST(Once, ARefusalSaysWhatTheSchedulerSaid) {
  Simulation one;
  one.scheduler.add("booth");
  one.scheduler.send_error = {SchedulerError::Kind::Unauthorized, "Unauthorized"};
  one.run();
  EXPECT_EQ(one.queue("booth").detail, "the print server requires a password: Unauthorized");
}

TEST(Once, AQueueThatIsNotSharedIsNamedAsTheReason) {
  Simulation one;
  one.scheduler.add("booth");
  one.scheduler.readings["booth"].shared = false;
  one.scheduler.send_error = {SchedulerError::Kind::Forbidden, "Forbidden"};
  one.run();
  EXPECT_EQ(one.queue("booth").detail, "the queue is not shared with this computer: Forbidden");
}

TEST(Once, AServerThatCannotBeReachedIsGivenUpAtOnce) {
  Simulation one;
  one.scheduler.error = {SchedulerError::Kind::Unreachable, "Connection refused"};
  one.run();
  EXPECT_TRUE(one.watch.is_done());
  EXPECT_LE(one.now(), Moment() + seconds(1));
  EXPECT_EQ(one.watch.report(one.now(), TimeOfDay()).error, "it cannot be reached: Connection refused");
}

TEST(Once, AServerThatRestartsIsWaitedFor) {
  Simulation one;
  one.scheduler.add("booth").takes = seconds(4);
  one.at(seconds(1), [&] { one.scheduler.error = {SchedulerError::Kind::Unreachable, ""}; });
  one.at(seconds(3), [&] { one.scheduler.error.reset(); });
  one.run();
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
  EXPECT_THAT(one.scheduler.jobs, IsEmpty());
}

TEST(Once, AServerThatGoesAwayLeavesTheLastValues) {
  Simulation one;
  one.scheduler.add("booth").takes = seconds(4);
  one.scheduler.readings["booth"].prints_remaining = 7;
  one.at(seconds(1), [&] { one.scheduler.error = {SchedulerError::Kind::Unreachable, "gone"}; });
  one.run();
  EXPECT_EQ(one.outcome(), Outcome::Failed);
  EXPECT_EQ(one.queue("booth").detail, "the print server went away: it cannot be reached: gone");
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, 7);
  EXPECT_LE(one.now(), Moment() + seconds(6));
}

TEST(Once, AJobOfWhichNoAnswerToldIsFoundAndForgotten) {
  Simulation one;
  one.scheduler.add("booth");
  bool lost = false;
  while (!one.watch.is_done() && one.now() < Moment() + MINUTE) {
    const auto plan = one.watch.next(one.now());
    if (!plan.request) {
      one.scheduler.pass_to(plan.at);
      continue;
    }
    SchedulerAnswer answer = one.scheduler.answer(*plan.request);
    if (std::holds_alternative<SendRequest>(*plan.request) && !lost) {
      lost = true;
      answer = SchedulerError{SchedulerError::Kind::NoAnswer, "no answer within 10 seconds"};
    }
    one.scheduler.pass_to(one.now() + milliseconds(1));
    one.watch.take(answer, one.now());
  }
  EXPECT_TRUE(lost);
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
  EXPECT_THAT(one.scheduler.sends["booth"], SizeIs(1));
  EXPECT_THAT(one.scheduler.jobs, IsEmpty());
}

TEST(Purging, ARefusalIsToldOnceAndTheWatchGoesOn) {
  Simulation one(again());
  one.scheduler.add("booth").remaining = 10;
  one.scheduler.purge_error = {SchedulerError::Kind::Forbidden, "Forbidden"};
  one.run(std::chrono::minutes(10));
  EXPECT_THAT(one.watch.take_notes(),
              ElementsAre("localhost: ended command jobs stay in the job history: the "
                          "print server does not allow it: Forbidden"));
  EXPECT_THAT(one.intervals(), SizeIs(Ge(8U)));
}

TEST(Purging, FifteenHundredRefreshesLeaveTheHistoryAsItWas) {
  auto rules = again();
  rules.longest = seconds(60);
  Simulation one(rules);
  one.scheduler.add("booth");
  for (int i = 0; i < 180; ++i) {
    one.scheduler.end(one.scheduler.print("booth"), IPP_JSTATE_COMPLETED);
  }
  one.run(seconds(1500 * 60 + 30));
  EXPECT_THAT(one.scheduler.sends["booth"], SizeIs(1501));
  EXPECT_THAT(one.scheduler.jobs, SizeIs(180));
  EXPECT_EQ(one.scheduler.own_jobs(), 0U);
}

class BehindARefresh : public testing::TestWithParam<Manner> {};

TEST_P(BehindARefresh, APrintWaitsLessThanASecond) {
  Simulation one(again());
  one.scheduler.add("booth").manner = GetParam();
  one.scheduler.printers["booth"].takes = seconds(8);
  int print = 0;
  one.at(seconds(1), [&] { print = one.scheduler.print("booth", seconds(30)); });
  one.run(seconds(2));
  EXPECT_EQ(one.scheduler.jobs.at(print).job.state, IPP_JSTATE_PROCESSING);
  EXPECT_LE(one.scheduler.jobs.at(print).began, Moment() + milliseconds(1300));
  EXPECT_EQ(one.outcome(), Outcome::Busy);

  // It is queried again after that print, twice in one job.
  one.scheduler.printers["booth"].manner = Manner::Answers;
  one.scheduler.printers["booth"].takes = milliseconds(100);
  one.run(seconds(40));
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
  EXPECT_THAT(one.intervals(), ElementsAre(AllOf(Ge(30), Le(37))));
  EXPECT_EQ(one.scheduler.lines["booth"], 2);
}

INSTANTIATE_TEST_SUITE_P(Printers, BehindARefresh,
                         testing::Values(Manner::Answers, Manner::IsSilent, Manner::NeverEnds,
                                         Manner::IsUnreachable));

TEST(Once, APrintThatComesEndsTheCall) {
  Simulation one;
  one.scheduler.add("booth").manner = Manner::NeverEnds;
  one.at(seconds(1), [&] { one.scheduler.print("booth"); });
  one.run();
  EXPECT_EQ(one.outcome(), Outcome::Busy);
  EXPECT_LE(one.now(), Moment() + seconds(2));
}

TEST(Intervals, DoubleWhereNothingChanges) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(HOUR);
  EXPECT_THAT(one.intervals(), ElementsAre(60, 120, 240, 480, 900, 900));
}

TEST(Intervals, AnIdleQueueIsAskedNinetyNineTimesInItsFirstDay) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(HOUR * 24);
  EXPECT_THAT(one.scheduler.sends["booth"], SizeIs(99));
}

TEST(Intervals, StayShortInTrouble) {
  const std::vector<std::function<void(FakePrinter&)>> troubles = {
      [](auto& printer) { printer.remaining = 40; },
      [](auto& printer) { printer.remaining = 0; },
      [](auto& printer) {
        printer.errors = {{"0008", "2660"}};
      },
      [](auto& printer) { printer.manner = Manner::IsSilent; },
  };
  for (const auto& make : troubles) {
    Simulation one(again());
    make(one.scheduler.add("booth"));
    one.run(std::chrono::minutes(10) + seconds(30));
    EXPECT_THAT(one.intervals(), AllOf(SizeIs(Ge(9U)), Each(60)));
  }
}

TEST(Intervals, GrowForADeadPrinter) {
  for (const auto manner : {Manner::NeverEnds, Manner::IsUnreachable}) {
    Simulation one(again());
    one.scheduler.add("booth").manner = manner;
    one.run(HOUR);
    EXPECT_THAT(one.intervals(), ElementsAre(60, 120, 240, 480, 900, 900));
  }
}

TEST(Intervals, AreShortAgainAfterARecovery) {
  Simulation one(again());
  one.scheduler.add("booth").manner = Manner::IsUnreachable;
  one.at(seconds(100), [&] { one.scheduler.printers["booth"].manner = Manner::Answers; });
  one.run(std::chrono::minutes(15));
  EXPECT_THAT(one.intervals(), ElementsAre(60, 120, 60, 120, 240));
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
}

TEST(Intervals, AreShortAfterAPrint) {
  Simulation one(again());
  one.scheduler.add("booth");
  // The queue is next due at 420 seconds.
  one.at(seconds(300), [&] { one.scheduler.print("booth", seconds(10)); });
  one.run(std::chrono::minutes(12));
  const auto& times = one.scheduler.sends["booth"];
  ASSERT_GE(times.size(), 5U);
  EXPECT_GE(times[3], Moment() + seconds(310));
  EXPECT_LE(times[3], Moment() + seconds(370));
  EXPECT_THAT(one.intervals()[3], 60);
}

TEST(Intervals, APrintThatComesAndGoesBetweenTwoLooksIsSeen) {
  auto rules = again();
  rules.shortest = seconds(60);
  Simulation one(rules);
  one.scheduler.add("booth");
  one.at(seconds(605), [&] { one.scheduler.print("booth", seconds(2)); });
  one.run(std::chrono::minutes(12));
  EXPECT_THAT(one.scheduler.sends["booth"].back(),
              AllOf(Ge(Moment() + seconds(607)), Le(Moment() + seconds(670))));
}

TEST(Intervals, APrintThatComesAndGoesJustBeforeACommandJobOfAnotherQueueIsSeen) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(MINUTE * 3);
  one.scheduler.add("hall");
  one.run(MINUTE * 20);
  const auto sent = one.scheduler.sends;
  bool printed = false;
  while (one.scheduler.sends["hall"].size() == sent.at("hall").size()) {
    const auto plan = one.watch.next(one.now());
    if (!plan.request) {
      one.scheduler.pass_to(plan.at);
      continue;
    }
    const auto* send = std::get_if<SendRequest>(&*plan.request);
    if (send != nullptr && send->queue == "hall") {
      printed = one.scheduler.jobs.empty();
      one.scheduler.end(one.scheduler.print("booth"), IPP_JSTATE_COMPLETED);
    }
    const auto answer = one.scheduler.answer(*plan.request);
    one.scheduler.pass_to(one.now() + milliseconds(1));
    one.watch.take(answer, one.now());
  }
  ASSERT_TRUE(printed);
  const auto asked = one.scheduler.sends["booth"].size();
  one.run(MINUTE * 2);
  EXPECT_GE(one.scheduler.sends["booth"].size(), asked + 1);
}

TEST(Intervals, AnErrorAfterAPrintIsSeenWithinTheShortest) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.at(seconds(600), [&] { one.scheduler.print("booth", seconds(10)); });
  one.at(seconds(605), [&] { one.scheduler.printers["booth"].errors = {{"0008", "2660"}}; });
  one.run(seconds(671));
  EXPECT_THAT(one.queue("booth").reading.errors, SizeIs(1));
}

TEST(Intervals, ARefreshOfAnotherProgramCounts) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(seconds(419));  // due at 420 seconds
  one.scheduler.readings["booth"].reported_at = 1000 + 400;
  one.run(seconds(3));
  EXPECT_THAT(one.intervals(), ElementsAre(60, 120));
}

TEST(Intervals, ValuesYoungerThanTheMaximumAreNotAskedFor) {
  auto rules = again();
  rules.max_age = seconds(300);
  Simulation one(rules);
  one.scheduler.add("booth").remaining = 5;
  one.run(std::chrono::minutes(20));
  // Ages are whole seconds: values that are 300 seconds old are not older than 300 seconds.
  EXPECT_THAT(one.intervals(), Each(AllOf(Ge(301), Le(303))));
}

TEST(Intervals, AreShortAfterTheFirstFailure) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.at(seconds(500), [&] { one.scheduler.printers["booth"].manner = Manner::NeverEnds; });
  one.run(seconds(1100));
  EXPECT_THAT(one.intervals(), ElementsAre(60, 120, 240, 480, 60, 120));
}

TEST(Stop, ByACommandJobIsNoPauseEvenIfAPrintOvertookIt) {
  Simulation one(again());
  one.scheduler.add("booth").manner = Manner::NeverEnds;
  one.at(milliseconds(300), [&] {
    ASSERT_EQ(one.scheduler.own_jobs(), 1U);
    one.scheduler.jobs.begin()->second.job.state = IPP_JSTATE_PENDING;
    one.scheduler.jobs.begin()->second.job.stopped_queue = true;
    auto& reading = one.scheduler.readings["booth"];
    reading.state = QueueState::Stopped;
    reading.state_message = "Paper jam.";
    one.scheduler.print("booth");
  });
  one.run(seconds(10));
  EXPECT_EQ(one.scheduler.own_jobs(), 0U);
  EXPECT_EQ(one.outcome(), Outcome::Stopped);
}

TEST(Stop, AfterACompletedCommandJobIsAPause) {
  Simulation one(again());
  one.scheduler.add("booth").takes = milliseconds(500);
  one.at(milliseconds(1030), [&] {
    ASSERT_EQ(one.scheduler.jobs.begin()->second.job.state, IPP_JSTATE_COMPLETED);
    auto& reading = one.scheduler.readings["booth"];
    reading.state = QueueState::Stopped;
    reading.state_message = "back at noon";
  });
  one.run(seconds(10));
  EXPECT_EQ(one.outcome(), Outcome::Paused);
}

TEST(Intervals, AreNeverBelowTheShortest) {
  auto rules = again();
  rules.shortest = seconds(100);
  rules.longest = seconds(50);
  Simulation one(rules);
  one.scheduler.add("booth");
  one.run(seconds(550));
  EXPECT_THAT(one.intervals(), ElementsAre(100, 100, 100, 100, 100));
}

TEST(Intervals, AQueueThatResumesWithYoungValuesIsNotAsked) {
  auto rules = again();
  rules.max_age = seconds(600);
  Simulation one(rules);
  one.scheduler.add("booth");
  auto& reading = one.scheduler.readings["booth"];
  reading = ribbon_reading("booth", 200, 400, "");
  reading.reported_at = 1000;
  reading.state = QueueState::Stopped;
  reading.state_message = "Paused";
  one.run(seconds(10));
  EXPECT_EQ(one.outcome(), Outcome::Paused);
  reading.state = QueueState::Idle;
  one.run(seconds(61));
  EXPECT_EQ(one.outcome(), Outcome::NotAsked);
}

TEST(Doubt, AFailedExchangeIsFollowedByTwoLines) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(seconds(30));
  one.scheduler.printers["booth"].manner = Manner::NeverEnds;
  one.run(seconds(60));
  EXPECT_EQ(one.scheduler.lines["booth"], 1);
  EXPECT_EQ(one.outcome(), Outcome::TimedOut);
  one.scheduler.printers["booth"].manner = Manner::Answers;
  one.scheduler.printers["booth"].false_remaining = 0;
  for (int i = 0; i < 600; ++i) {
    one.run(seconds(1));
    EXPECT_EQ(one.queue("booth").reading.prints_remaining, 200);
  }
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
}

TEST(Doubt, AnAnswerThatCameLateIsNeverTold) {
  for (const int false_remaining : {0, 399, 57}) {
    for (const bool once : {true, false}) {
      WatchRules rules;
      rules.again = !once;
      Simulation one(rules);
      auto& printer = one.scheduler.add("booth");
      auto& reading = one.scheduler.readings["booth"];
      reading = ribbon_reading("booth", 200, 400, "");
      reading.reported_at = 500;
      printer.false_remaining = false_remaining;
      for (int i = 0; i < 100; ++i) {
        one.run_to(one.now() + milliseconds(20));
        EXPECT_EQ(one.queue("booth").reading.prints_remaining, 200) << false_remaining;
      }
      EXPECT_EQ(one.outcome(), Outcome::Refreshed);
      EXPECT_EQ(one.scheduler.lines["booth"], 2);
    }
  }
}

TEST(Doubt, ANewRibbonIsToldAfterASecondLook) {
  Simulation one(again());
  auto& printer = one.scheduler.add("booth");
  printer.remaining = 20;
  one.run(seconds(30));
  printer.remaining = 400;
  one.run(seconds(32));
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, 400);
  EXPECT_THAT(one.intervals(), ElementsAre(60, 0));
}

TEST(Doubt, APrinterThatFallsSilentIsNoSurprise) {
  Simulation one(again());
  auto& printer = one.scheduler.add("booth");
  one.run(seconds(30));
  printer.manner = Manner::IsSilent;
  one.run(seconds(32));
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, std::nullopt);
  EXPECT_THAT(one.intervals(), ElementsAre(60));
}

TEST(Doubt, ARibbonThatIsSuddenlyEmptyIsConfirmed) {
  for (const int remaining : {0, 1}) {
    Simulation one(again());
    auto& printer = one.scheduler.add("booth");
    printer.remaining = 5;
    one.run(seconds(30));
    printer.remaining = remaining;
    one.run(seconds(32));
    EXPECT_EQ(one.queue("booth").reading.prints_remaining, remaining);
    EXPECT_EQ(one.intervals(), remaining == 0 ? std::vector({60, 0}) : std::vector({60}));
  }
}

TEST(Doubt, PrintsThatWereUsedAreNoSurprise) {
  Simulation one(again());
  auto& printer = one.scheduler.add("booth");
  one.run(seconds(30));
  printer.remaining = 190;
  one.run(seconds(32));
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, 190);
  EXPECT_THAT(one.intervals(), ElementsAre(60));
}

struct StuckCase {
  const char* name;
  bool stuck;
  std::function<void(FakeScheduler&)> arrange;
};

/// A print that has been printing for some time when it is first seen.
void print_for(FakeScheduler& scheduler, seconds time, std::optional<int> sheets = 0) {
  const int number = scheduler.print("booth", HOUR);
  scheduler.jobs.at(number).began -= time;
  scheduler.jobs.at(number).job.sheets_completed = sheets;
}

class FirstLook : public testing::TestWithParam<StuckCase> {};

TEST_P(FirstLook, TellsFromTheSchedulersTimesWhetherAPrintIsStuck) {
  Simulation one;
  one.scheduler.add("booth");
  GetParam().arrange(one.scheduler);
  one.run();
  EXPECT_LE(one.now(), Moment() + seconds(1));
  EXPECT_EQ(one.queue("booth").stuck, GetParam().stuck);
  EXPECT_EQ(judge(one.queue("booth"), {}) == Verdict::Error, GetParam().stuck);
}

INSTANTIATE_TEST_SUITE_P(
    Prints, FirstLook,
    testing::Values(StuckCase{"JustBegun", false, [](auto& scheduler) { print_for(scheduler, seconds(0)); }},
                    StuckCase{"Long", false, [](auto& scheduler) { print_for(scheduler, seconds(299)); }},
                    StuckCase{"TooLong", true, [](auto& scheduler) { print_for(scheduler, seconds(300)); }},
                    StuckCase{"TooLongWithoutACount", true,
                              [](auto& scheduler) { print_for(scheduler, seconds(300), std::nullopt); }},
                    StuckCase{"TooLongButWithSheets", false,
                              [](auto& scheduler) { print_for(scheduler, seconds(3000), 5); }},
                    StuckCase{"Unreachable", true,
                              [](auto& scheduler) {
                                scheduler.printers["booth"].manner = Manner::IsUnreachable;
                                print_for(scheduler, seconds(30));
                              }},
                    StuckCase{"UnreachableForAMoment", false,
                              [](auto& scheduler) {
                                scheduler.printers["booth"].manner = Manner::IsUnreachable;
                                print_for(scheduler, seconds(29));
                              }},
                    StuckCase{"UnreachableByItsReason", true,
                              [](auto& scheduler) {
                                scheduler.readings["booth"].reasons = {"connecting-to-device"};
                                print_for(scheduler, seconds(30));
                              }},
                    StuckCase{"FailedAndToBeTriedAgain", true,
                              [](auto& scheduler) {
                                print_for(scheduler, seconds(1));
                                scheduler.end(scheduler.last_job, IPP_JSTATE_HELD);
                              }}),
    [](const auto& one) { return one.param.name; });

TEST(Stuck, APrintWhosePrinterIsUnpluggedIsStuckAfterThirtySeconds) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.scheduler.printers["booth"].remaining = 200;
  one.run(seconds(10));
  one.scheduler.print("booth", HOUR);
  one.scheduler.jobs.at(one.scheduler.last_job).job.sheets_completed = 3;
  one.at(seconds(200), [&] { one.scheduler.printers["booth"].manner = Manner::IsUnreachable; });
  one.run(seconds(215));
  EXPECT_FALSE(one.queue("booth").stuck);
  one.run(seconds(15));
  EXPECT_TRUE(one.queue("booth").stuck);
  EXPECT_EQ(one.outcome(), Outcome::Busy);
  EXPECT_EQ(judge(one.queue("booth"), {}), Verdict::Error);
  EXPECT_EQ(one.queue("booth").reading.state_message,
            "The printer may not exist or is unavailable at this time.");
  one.scheduler.printers["booth"].manner = Manner::Answers;
  one.run(seconds(6));
  EXPECT_FALSE(one.queue("booth").stuck);
}

TEST(Stuck, ASheetIsAMove) {
  auto rules = again();
  rules.stuck = seconds(60);
  Simulation one(rules);
  one.scheduler.add("booth");
  one.scheduler.print("booth", HOUR);
  auto& job = one.scheduler.jobs.at(one.scheduler.last_job).job;
  for (int sheet = 1; sheet < 10; ++sheet) {
    one.run(seconds(50));
    EXPECT_FALSE(one.queue("booth").stuck);
    job.sheets_completed = sheet;
  }
  one.run(seconds(70));
  EXPECT_TRUE(one.queue("booth").stuck);
}

TEST(Stuck, PrintsAreCountedAndTimed) {
  Simulation one(again());
  one.scheduler.add("booth");
  for (int i = 0; i < 4; ++i) {
    one.scheduler.print("booth", HOUR);
  }
  one.scheduler.end(one.scheduler.print("booth"), IPP_JSTATE_HELD);
  one.run(seconds(42));
  EXPECT_EQ(one.queue("booth").prints_waiting, 3);
  EXPECT_NEAR(one.queue("booth").job_seconds.value_or(0), 42, 1);
  EXPECT_EQ(one.queue("booth").reading.state, QueueState::Processing);
}

TEST(Fleet, OneDeadPrinterDelaysNoOther) {
  Simulation one;
  for (int i = 0; i < 39; ++i) {
    one.scheduler.add("queue" + std::to_string(i));
  }
  one.scheduler.add("dead").manner = Manner::IsUnreachable;
  one.run_to(Moment() + seconds(2));
  for (int i = 0; i < 39; ++i) {
    EXPECT_EQ(one.outcome("queue" + std::to_string(i)), Outcome::Refreshed) << i;
  }
  EXPECT_EQ(one.outcome("dead"), Outcome::Asking);
  one.run();
  EXPECT_EQ(one.outcome("dead"), Outcome::TimedOut);
  EXPECT_LE(one.now(), Moment() + seconds(11));
}

TEST(Fleet, ADeadPrinterKeepsItsOutcomeWhileItIsAskedAgain) {
  Simulation one(again());
  one.scheduler.add("dead").manner = Manner::IsUnreachable;
  one.run_to(Moment() + seconds(5));
  EXPECT_EQ(one.outcome("dead"), Outcome::Asking);
  one.run_to(Moment() + seconds(30));
  EXPECT_EQ(one.outcome("dead"), Outcome::TimedOut);
  one.run_to(Moment() + seconds(65));
  EXPECT_EQ(one.scheduler.own_jobs(), 1U);
  EXPECT_EQ(one.outcome("dead"), Outcome::TimedOut);
}

TEST(Fleet, TwoHundredDeadPrintersNeverHaveMoreThanThirtyTwoJobs) {
  Simulation one(again());
  for (int i = 0; i < 200; ++i) {
    one.scheduler.add("dead" + std::to_string(i)).manner = Manner::IsUnreachable;
  }
  one.scheduler.add("living");
  one.run(std::chrono::minutes(4));
  EXPECT_EQ(one.scheduler.most_own_jobs, 32U);
  EXPECT_LE(one.scheduler.sends["living"].front(), Moment() + seconds(60));
  EXPECT_THAT(one.intervals("living"), ElementsAre(60, 120));
  for (int i = 0; i < 200; ++i) {
    EXPECT_FALSE(one.scheduler.sends["dead" + std::to_string(i)].empty()) << i;
  }
}

TEST(Fleet, AQueueThatHasAnsweredIsAskedBeforeTheOthers) {
  Simulation one;
  for (int i = 0; i < 600; ++i) {
    one.scheduler.add("dead" + std::to_string(i)).manner = Manner::IsUnreachable;
  }
  one.scheduler.add("living");
  one.scheduler.readings["living"].answered = true;
  one.run(MINUTE);
  EXPECT_EQ(one.outcome("living"), Outcome::Refreshed);
  EXPECT_EQ(one.queue("dead599").detail, "no time was left to ask");
  EXPECT_EQ(one.scheduler.own_jobs(), 0U);
}

TEST(Fleet, QueuesComeAndGo) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(seconds(30));
  one.scheduler.add("new");
  one.scheduler.readings.erase("booth");
  one.run(seconds(60));
  const auto report = one.watch.report(one.now(), TimeOfDay());
  ASSERT_THAT(report.queues, SizeIs(1));
  EXPECT_EQ(report.queues[0].reading.queue, "new");
  EXPECT_EQ(report.queues[0].outcome, Outcome::Refreshed);
}

TEST(Fleet, ARefreshReadsItsOwnQueueOnly) {
  Simulation one(again());
  for (int i = 0; i < 100; ++i) {
    one.scheduler.add("queue" + std::to_string(i));
  }
  one.run(MINUTE * 20);
  one.scheduler.queues_read = 0;
  one.scheduler.print("queue7", seconds(1));
  const auto sent = one.scheduler.sends["queue7"].size();
  one.run(MINUTE * 3);
  EXPECT_GE(one.scheduler.sends["queue7"].size(), sent + 2);
  // One look at all in a minute, and a few at the queue.
  EXPECT_THAT(one.scheduler.queues_read, AllOf(Ge(300), Le(420)));
}

TEST(Fleet, AQueueThatIsRemovedWhileItsJobIsActiveIsForgotten) {
  Simulation one(again());
  for (int i = 0; i < 10; ++i) {
    one.scheduler.add("queue" + std::to_string(i));
  }
  one.at(milliseconds(50), [&] { one.scheduler.readings.erase("queue7"); });
  one.run(seconds(5));
  EXPECT_THAT(one.watch.report(one.now(), TimeOfDay()).queues, SizeIs(9));
}

TEST(Servers, OneWhoseEveryAnswerIsDifferentIsNotFloodedWithJobs) {
  Simulation one(again());
  int names = 0;
  const Moment end = Moment() + MINUTE * 10;
  while (one.now() < end) {
    const auto plan = one.watch.next(one.now());
    if (!plan.request) {
      one.scheduler.pass_to(std::min(plan.at, end));
      continue;
    }
    if (std::holds_alternative<LookRequest>(*plan.request)) {
      one.scheduler.readings.clear();
      one.scheduler.jobs.clear();
      for (int i = 0; i < 5; ++i) {
        one.scheduler.add("queue" + std::to_string(++names));
      }
    }
    const auto answer = one.scheduler.answer(*plan.request);
    one.scheduler.pass_to(one.now() + milliseconds(1));
    one.watch.take(answer, one.now());
  }
  std::size_t sends = 0;
  for (const auto& [name, times] : one.scheduler.sends) {
    sends += times.size();
  }
  EXPECT_THAT(sends, AllOf(Ge(40U), Le(42U * 11)));
}

/// A scheduler that was killed gives the number of a job that it has lost to a job of any queue.
class LostJobs : public testing::TestWithParam<const char*> {};

TEST_P(LostJobs, APrintWithTheNumberOfAnActiveJobIsLeftAlone) {
  Simulation one(again());
  one.scheduler.add("hall").manner = Manner::NeverEnds;
  one.run(seconds(1));
  one.scheduler.add("booth").manner = Manner::NeverEnds;
  one.run(seconds(2));
  ASSERT_EQ(one.scheduler.own_jobs(), 2U);
  one.scheduler.jobs.clear();
  --one.scheduler.last_job;
  const int print = one.scheduler.print(GetParam(), HOUR);
  one.run(seconds(60));
  ASSERT_TRUE(one.scheduler.jobs.contains(print));
  EXPECT_EQ(one.scheduler.jobs.at(print).job.state, IPP_JSTATE_PROCESSING);
  EXPECT_EQ(one.queue(GetParam()).outcome, Outcome::Busy);
}

TEST_P(LostJobs, APrintWithTheNumberOfAnEndedJobIsLeftAlone) {
  Simulation one(again());
  one.scheduler.add("hall");
  one.scheduler.add("booth");
  int print = 0;
  while (print == 0) {
    const auto plan = one.watch.next(one.now());
    if (!plan.request) {
      one.scheduler.pass_to(plan.at);
      continue;
    }
    SchedulerAnswer answer = one.scheduler.answer(*plan.request);
    const auto* purge = std::get_if<PurgeRequest>(&*plan.request);
    if (purge != nullptr && purge->queue == "booth") {
      answer = SchedulerError{SchedulerError::Kind::Unreachable, "gone"};
      one.scheduler.last_job = purge->job - 1;
      print = one.scheduler.print(GetParam(), HOUR);
    }
    one.scheduler.pass_to(one.now() + milliseconds(1));
    one.watch.take(answer, one.now());
  }
  one.run(seconds(60));
  ASSERT_TRUE(one.scheduler.jobs.contains(print));
  EXPECT_EQ(one.scheduler.jobs.at(print).job.state, IPP_JSTATE_PROCESSING);
}

INSTANTIATE_TEST_SUITE_P(Queues, LostJobs, testing::Values("booth", "hall"),
                         [](const auto& one) { return std::string(one.param); });

TEST(Servers, APrintIsSeenAlsoWhenTheNumbersOfJobsBeginAnew) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(MINUTE * 20);
  one.scheduler.last_job = 0;
  one.run(MINUTE * 16);
  one.scheduler.print("booth", seconds(1));
  one.run(MINUTE * 2);
  EXPECT_THAT(one.intervals().back(), Le(120));
}

TEST(Servers, OneThatIsAwayIsAskedAgainAndItsQueuesAreNotForgotten) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(seconds(10));
  one.scheduler.error = {SchedulerError::Kind::Unreachable, "gone"};
  one.run(seconds(600));
  EXPECT_EQ(one.watch.report(one.now(), TimeOfDay()).error, "it cannot be reached: gone");
  EXPECT_EQ(one.outcome(), Outcome::Failed);
  EXPECT_EQ(one.queue("booth").reading.prints_remaining, 200);
  one.scheduler.error.reset();
  one.run(seconds(61));
  EXPECT_EQ(one.watch.report(one.now(), TimeOfDay()).error, "");
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
}

TEST(Servers, AnIdleOneIsLookedAtOnceInAnInterval) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(HOUR);
  EXPECT_LE(one.scheduler.looks, 60 + 7 * 12);
}

TEST(Servers, AQueueThatAppearsAfterTheEndIsNotAsked) {
  Simulation one(again());
  one.scheduler.add("booth").manner = Manner::NeverEnds;
  one.run(seconds(1));
  one.watch.wind_up();
  one.scheduler.add("new");
  one.run(seconds(600));
  EXPECT_THAT(one.scheduler.sends["new"], IsEmpty());
}

TEST(Servers, OneThatIsAwayAtTheEndGaveNoAnswer) {
  WatchRules rules;
  rules.timeout = seconds(3);
  Simulation one(rules);
  one.scheduler.add("booth").takes = seconds(20);
  one.at(seconds(2), [&] { one.scheduler.error = {SchedulerError::Kind::Unreachable, "gone"}; });
  one.run();
  EXPECT_EQ(one.watch.report(one.now(), TimeOfDay()).error, "no answer");
  EXPECT_EQ(one.queue("booth").detail, "the print server went away: no answer");
}

TEST(Servers, AQueueIsBeingAskedWhileItsJobIsSent) {
  Simulation one(again());
  one.scheduler.add("booth");
  one.run(seconds(30));
  EXPECT_EQ(one.outcome(), Outcome::Refreshed);
  for (int i = 0; i < 100; ++i) {
    const auto plan = one.watch.next(one.now());
    if (!plan.request) {
      one.scheduler.pass_to(plan.at);
      continue;
    }
    if (const auto* send = std::get_if<SendRequest>(&*plan.request)) {
      EXPECT_EQ(one.outcome(), Outcome::Asking);
      EXPECT_EQ(one.queue("booth").seconds, std::nullopt);
      // The scheduler must not end the job before the watch does.
      EXPECT_GT(send->lifetime_seconds, again().timeout.count());
      return;
    }
    one.watch.take(one.scheduler.answer(*plan.request), one.now());
  }
  FAIL() << "no job was sent";
}

TEST(Servers, NothingIsSentAfterTheEnd) {
  Simulation one(again());
  one.scheduler.add("booth").manner = Manner::NeverEnds;
  one.run(seconds(1));
  EXPECT_TRUE(one.watch.has_jobs());
  one.watch.wind_up();
  one.run(seconds(600));
  EXPECT_FALSE(one.watch.has_jobs());
  EXPECT_EQ(one.scheduler.own_jobs(), 0U);
  EXPECT_THAT(one.scheduler.sends["booth"], SizeIs(1));
}

TEST(Unreachable, IsWhatBackendsSayWhileTheyTry) {
  const struct {
    const char* message;
    const char* reason;
    bool unreachable;
  } cases[] = {
      {"Waiting for printer to become available.", "none", true},
      {"The printer is not responding.", "none", true},
      {"Connecting to printer.", "none", true},
      {"", "connecting-to-device", true},
      {"", "offline-report", true},
      {"Spooling job, 50% complete.", "none", false},
      {"Connected to printer.", "none", false},
      {"", "cups-waiting-for-job-completed", false},
      {"", "", false},
  };
  for (const auto& one : cases) {
    Reading reading;
    reading.state_message = one.message;
    reading.reasons = {one.reason};
    EXPECT_EQ(is_unreachable(reading), one.unreachable) << one.message << one.reason;
  }
}

TEST(ReadAt, IsWhenThePrinterWasAskedUntilItIsAskedAgain) {
  Simulation one(again());
  one.scheduler.add("booth");
  std::set<std::time_t> seen;
  for (int i = 1; i <= 590; ++i) {
    one.run_to(Moment() + i * milliseconds(100) + milliseconds(37));
    if (one.scheduler.sends["booth"].size() == 1 && one.outcome() == Outcome::Refreshed) {
      seen.insert(one.queue("booth").read_at.value_or(-1));
    }
  }
  EXPECT_THAT(seen, ElementsAre(0));
  one.run_to(Moment() + seconds(65));
  ASSERT_EQ(one.scheduler.sends["booth"].size(), 2U);
  EXPECT_EQ(one.queue("booth").read_at, 60);
}

TEST(ReadAt, IsNotKnownOfAPrinterThatWasNeverAsked) {
  Simulation one(with([](auto& rules) { rules.ask = false; }));
  one.scheduler.add("booth");
  one.run();
  EXPECT_EQ(one.queue("booth").read_at, std::nullopt);
}

}  // namespace
