// SPDX-License-Identifier: Apache-2.0
// Tests which conditions and changes are reported, and when.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "monitor/change_watch.h"
#include "monitor/views/change_view.h"
#include "monitor/views/plain_text.h"
#include "tests/unit/fake_scheduler.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

Condition condition(const QueueReport& queue) {
  return condition_of(queue, Limits());
}

QueueReport healthy(int remaining = 200) {
  return refreshed(ribbon_reading("booth", remaining, 400, "10"));
}

QueueReport broken() {
  auto queue = healthy();
  queue.reading.errors = {{"0008", "2660"}};
  return queue;
}

TEST(Condition, IsOkExactlyIfTheVerdictIsWell) {
  for (const auto& server : sample_report().servers) {
    for (const auto& queue : server.queues) {
      EXPECT_EQ(condition(queue).level == Level::Ok, judge(queue, Limits()) == Verdict::Well)
          << queue.reading.queue;
      EXPECT_EQ(condition(queue).level == Level::Ok, condition(queue).causes.empty());
    }
  }
}

TEST(Condition, HasTheCausesOfEachQueue) {
  const std::map<std::string, Condition> expected = {
      {"asking", {Level::Ok, {}}},
      {"bar", {Level::Attention, {"low"}}},
      {"busy", {Level::Ok, {}}},
      {"down", {Level::Trouble, {"down"}}},
      {"empty", {Level::Trouble, {"empty"}}},
      {"garden", {Level::Trouble, {"error-0008-2660"}}},
      {"hall", {Level::Ok, {}}},
      {"paused", {Level::Attention, {"paused", "low"}}},
      {"silent", {Level::Trouble, {"unreachable"}}},
      {"strange", {Level::Attention, {"unknown"}}},
      {"stuck", {Level::Trouble, {"stuck"}}},
      {"office", {Level::Attention, {"unsupported"}}},
      {"slow", {Level::Trouble, {"unreachable"}}},
      {"missing", {Level::Trouble, {"missing"}}},
  };
  std::size_t count = 0;
  for (const auto& server : sample_report().servers) {
    for (const auto& queue : server.queues) {
      const auto one = condition(queue);
      ASSERT_TRUE(expected.contains(queue.reading.queue)) << queue.reading.queue;
      EXPECT_EQ(one.level, expected.at(queue.reading.queue).level) << queue.reading.queue;
      EXPECT_EQ(one.causes, expected.at(queue.reading.queue).causes) << queue.reading.queue;
      ++count;
    }
  }
  EXPECT_EQ(count, expected.size());
}

TEST(Condition, IsTheSameForAnyNumberOfPrintsThatIsNotLow) {
  EXPECT_EQ(condition(healthy(400)), condition(healthy(60)));
  EXPECT_EQ(condition(healthy(30)), condition(healthy(2)));
  EXPECT_NE(condition(healthy(60)), condition(healthy(30)));
  EXPECT_NE(condition(healthy(2)), condition(healthy(0)));
}

TEST(Condition, IsTheSameInWhateverWayThePrinterIsSilent) {
  auto timed_out = broken();
  timed_out.outcome = Outcome::TimedOut;
  auto answered_nothing = healthy();
  answered_nothing.reading.answered = false;
  answered_nothing.reading.level_percent.reset();
  answered_nothing.reading.errors = {{"0004", "0004"}};
  EXPECT_EQ(condition(timed_out), condition(answered_nothing));
}

TEST(Condition, OfAPrinterThatCannotBeReadIsTroubleOfOthersAttention) {
  auto queue = healthy();
  queue.outcome = Outcome::Failed;
  EXPECT_EQ(condition(queue), (Condition{Level::Attention, {"unread"}}));
  queue.outcome = Outcome::Rejecting;
  EXPECT_EQ(condition(queue), (Condition{Level::Attention, {"rejecting"}}));
  queue.outcome = Outcome::Refreshed;
  queue.reading.reasons = {"media-low-warning", "media-jam-error"};
  EXPECT_EQ(condition(queue), (Condition{Level::Trouble, {"media-jam-error"}}));
}

/// Told is a ChangeWatch that is fed by hand, and what it told.
class Told {
 public:
  explicit Told(bool tell_first = false) : watch(tell_first) {}

  /// The next report, in which each queue was seen once more.
  void see(std::vector<QueueReport> queues, const std::string& error = {}) {
    ++sighting_;
    for (auto& queue : queues) {
      queue.sightings = sighting_;
    }
    watch.see(report({{"localhost", error, 0, std::move(queues), sighting_}}));
  }
  /// The next report, in which nothing was seen once more.
  void see_again(std::vector<QueueReport> queues) {
    --sighting_;
    see(std::move(queues));
  }
  static Report report(std::vector<ServerReport> servers) {
    Report report;
    report.servers = std::move(servers);
    return report;
  }
  /// Everything that is to be told now: "booth ok>trouble".
  std::vector<std::string> take(bool ends = true) {
    std::vector<std::string> list;
    while (const auto change = watch.next()) {
      list.push_back(change->queue + ' ' + (change->old ? name_of(change->old->level) : "") + '>' +
                     name_of(change->now.level));
      if (ends) {
        watch.told(change->server, change->queue);
      }
    }
    return list;
  }

  ChangeWatch watch;

 private:
  unsigned sighting_ = 0;
};

TEST(Changes, AreToldWhenTheyWereSeenTwiceInARow) {
  Told told;
  told.see({healthy()});
  told.see({broken()});
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({broken()});
  EXPECT_THAT(told.take(), ElementsAre("booth ok>trouble"));
  told.see({broken()});
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({healthy()});
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({healthy(199)});
  EXPECT_THAT(told.take(), ElementsAre("booth trouble>ok"));
}

TEST(Changes, ThatAreSeenOnceAreNotTold) {
  Told told;
  told.see({healthy()});
  for (int i = 0; i < 5; ++i) {
    told.see({broken()});
    told.see({healthy()});
  }
  told.see({broken()});
  told.see({healthy(10)});
  told.see({healthy()});
  told.see({healthy()});
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, AreNotToldForAnotherLookAtTheSameSighting) {
  Told told;
  told.see({healthy()});
  told.see({broken()});
  for (int i = 0; i < 5; ++i) {
    told.see_again({broken()});
  }
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, AreNotToldWhileThePrinterIsBeingAsked) {
  Told told;
  told.see({healthy()});
  told.see({broken()});
  auto asking = broken();
  asking.outcome = Outcome::Asking;
  told.see({asking});
  told.see({asking});
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({broken()});
  EXPECT_THAT(told.take(), SizeIs(1));
}

TEST(Changes, OfTheNumberOfPrintsAreNotTold) {
  Told told;
  for (int prints = 400; prints > 40; prints -= 3) {
    told.see({healthy(prints)});
  }
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, OfTheCauseAloneAreTold) {
  Told told;
  auto other = broken();
  other.reading.errors = {{"0010", "0001"}};
  told.see({broken()});
  told.see({other});
  told.see({other});
  EXPECT_THAT(told.take(), ElementsAre("booth trouble>trouble"));
}

TEST(Changes, StartWithTheFirstConditionThatWasSeen) {
  Told told;
  told.see({broken()});
  told.see({broken()});
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({healthy()});
  told.see({healthy()});
  EXPECT_THAT(told.take(), ElementsAre("booth trouble>ok"));
}

TEST(Changes, BeginWithTheFirstConditionIfThatIsWanted) {
  Told told(true);
  auto hall = broken();
  hall.reading.queue = "hall";
  told.see({healthy(), hall});
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({healthy(), hall});
  EXPECT_THAT(told.take(), ElementsAre(" >ok", "booth >ok", "hall >trouble"));
  told.see({healthy(), hall});
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, OfAQueueThatIsAskedAtTheStartBeginWithItsAnswer) {
  Told told;
  auto asking = healthy();
  asking.outcome = Outcome::Asking;
  told.see({asking});
  told.see({broken()});
  told.see({broken()});
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, OfANewQueueAreToldIfItIsNotWell) {
  Told told;
  auto hall = broken();
  hall.reading.queue = "hall";
  told.see({healthy()});
  for (int i = 0; i < 3; ++i) {
    told.see({healthy(), hall});
  }
  EXPECT_THAT(told.take(), ElementsAre("hall ok>trouble"));
}

TEST(Changes, AreToldOneAtATimeAndTheNewestAfterIt) {
  Told told;
  told.see({healthy()});
  told.see({broken()});
  told.see({broken()});
  EXPECT_THAT(told.take(false), SizeIs(1));
  told.see({healthy(5)});
  told.see({healthy(5)});
  told.see({healthy(0)});
  told.see({healthy(0)});
  EXPECT_THAT(told.take(false), IsEmpty());
  told.watch.told("localhost", "booth");
  const auto change = told.watch.next();
  ASSERT_TRUE(change);
  EXPECT_EQ(change->old, (Condition{Level::Trouble, {"error-0008-2660"}}));
  EXPECT_EQ(change->now, (Condition{Level::Trouble, {"empty"}}));
  told.watch.told("localhost", "booth");
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, ThatAreOverBeforeTheyAreToldAreNotTold) {
  Told told;
  told.see({healthy()});
  told.see({broken()});
  told.see({broken()});
  EXPECT_THAT(told.take(false), SizeIs(1));
  told.see({healthy()});
  told.see({healthy()});
  told.see({broken()});
  told.see({broken()});
  told.watch.told("localhost", "booth");
  EXPECT_THAT(told.take(), IsEmpty());
}

TEST(Changes, ThatStillHoldAreToldAlthoughSomethingElseWasSeenOnce) {
  Told told;
  told.see({healthy()});
  told.see({broken()});
  told.see({broken()});
  EXPECT_THAT(told.take(false), SizeIs(1));
  told.see({healthy()});
  told.see({healthy()});
  told.see({broken()});
  told.watch.told("localhost", "booth");
  EXPECT_THAT(told.take(), ElementsAre("booth trouble>ok"));
  told.see({broken()});
  EXPECT_THAT(told.take(), ElementsAre("booth ok>trouble"));
}

TEST(Changes, AreToldInTheOrderInWhichTheyCame) {
  Told told;
  auto a = healthy();
  a.reading.queue = "a";
  auto z = healthy();
  z.reading.queue = "z";
  auto bad_a = broken();
  bad_a.reading.queue = "a";
  auto bad_z = broken();
  bad_z.reading.queue = "z";
  told.see({a, z});
  told.see({a, bad_z});
  told.see({bad_a, bad_z});
  told.see({bad_a, bad_z});
  EXPECT_THAT(told.take(), ElementsAre("z ok>trouble", "a ok>trouble"));
}

TEST(Changes, OfAPrintServerAreToldOnceAndNotForEachQueue) {
  Told told;
  auto lost = healthy();
  lost.outcome = Outcome::Failed;
  auto hall = lost;
  hall.reading.queue = "hall";
  told.see({healthy()});
  told.see({lost, hall}, "it cannot be reached");
  told.see({lost, hall}, "it cannot be reached");
  told.see({lost, hall}, "no answer within 10 seconds");
  const auto change = told.watch.next();
  ASSERT_TRUE(change);
  EXPECT_EQ(change->queue, "");
  EXPECT_EQ(change->server, "localhost");
  EXPECT_THAT(change->report.servers.at(0).queues, SizeIs(2));
  told.watch.told("localhost", "");
  EXPECT_THAT(told.take(), IsEmpty());
  told.see({healthy()});
  told.see({healthy()});
  EXPECT_THAT(told.take(), ElementsAre(" trouble>ok"));
}

TEST(Changes, OfANamedQueueAreToldWhenItIsGoneAndWhenItIsBack) {
  ChangeWatch watch(false);
  QueueReport missing;
  missing.reading.queue = "booth";
  missing.outcome = Outcome::NotFound;
  std::vector<std::string> list;
  // Missing queues are reported with the first server, wherever they were.
  const std::vector<bool> there = {true, false, false, true, true};
  for (unsigned i = 0; i < there.size(); ++i) {
    auto queue = there[i] ? healthy() : missing;
    queue.sightings = i + 1;
    std::vector<ServerReport> servers = {{"first", {}, 0, {}, i + 1}, {"second", {}, 0, {}, i + 1}};
    servers[there[i] ? 1 : 0].queues.push_back(queue);
    watch.see(Told::report(servers));
    while (const auto change = watch.next()) {
      list.push_back(change->server + ' ' + name_of(change->now.level));
      watch.told(change->server, change->queue);
    }
  }
  EXPECT_THAT(list, ElementsAre("first trouble", "second ok"));
}

TEST(Changes, OfAMissingQueueAreNotToldWhileAServerCannotBeRead) {
  ChangeWatch watch(false);
  QueueReport missing;
  missing.reading.queue = "booth";
  missing.outcome = Outcome::NotFound;
  auto there = healthy();
  there.sightings = 1;
  watch.see(Told::report({{"first", {}, 0, {}, 1}, {"second", {}, 0, {there}, 1}}));
  std::vector<std::string> list;
  for (unsigned i = 2; i <= 5; ++i) {
    missing.sightings = i;
    watch.see(Told::report({{"first", {}, 0, {missing}, i}, {"second", "gone", 0, {}, i}}));
    while (const auto change = watch.next()) {
      list.push_back(change->server + ' ' + change->queue);
      watch.told(change->server, change->queue);
    }
  }
  EXPECT_THAT(list, ElementsAre("second "));
}

/// A watch of the fake scheduler, and the changes that it reports.
class WatchOfChanges : public testing::Test {
 protected:
  WatchOfChanges() { scheduler().add("booth"); }

  FakeScheduler& scheduler() { return one.scheduler; }
  FakePrinter& printer() { return scheduler().printers.at("booth"); }
  Reading& reading() { return scheduler().readings.at("booth"); }

  /// Lets the watch run, and returns the changes with the second of each.
  std::vector<std::string> run(seconds length) {
    std::vector<std::string> list;
    for (const auto end = one.now() + length; one.now() < end;) {
      one.run_to(one.now() + milliseconds(500));
      auto report = Told::report({one.watch.report(one.now(), TimeOfDay())});
      watch.see(report);
      while (const auto change = watch.next()) {
        list.push_back(change->queue + ' ' + name_of(change->now.level) + ' ' +
                       testing::PrintToString(change->now.causes));
        times.push_back(std::chrono::duration_cast<seconds>(one.now() - Moment()));
        watch.told(change->server, change->queue);
      }
    }
    return list;
  }

  static WatchRules rules() {
    WatchRules rules;
    rules.again = true;
    return rules;
  }

  Simulation one{rules()};
  ChangeWatch watch{false};
  std::vector<seconds> times;
};

TEST_F(WatchOfChanges, AnErrorIsToldWhenThePrinterHasReportedItTwice) {
  ASSERT_THAT(run(seconds(90)), IsEmpty());
  printer().errors = {{"0008", "2660"}};
  EXPECT_THAT(run(seconds(900)), ElementsAre("booth trouble { \"error-0008-2660\" }"));
  const auto& asked = scheduler().sends["booth"];
  const auto after = std::ranges::upper_bound(asked, Moment() + times.at(0));
  ASSERT_GE(after - asked.begin(), 2);
  EXPECT_THAT(times.at(0) - std::chrono::duration_cast<seconds>(*(after - 2) - Moment()), Le(seconds(62)));
}

TEST_F(WatchOfChanges, AnErrorThatIsOverWithinAMinuteIsNotTold) {
  one.at(seconds(61), [&] { printer().errors.clear(); });
  printer().errors.clear();
  ASSERT_THAT(run(seconds(30)), IsEmpty());
  one.at(seconds(50), [&] { printer().errors = {{"0008", "2660"}}; });
  one.at(seconds(70), [&] { printer().errors.clear(); });
  EXPECT_THAT(run(seconds(1800)), IsEmpty());
}

TEST_F(WatchOfChanges, APrinterThatIsSwitchedOffAndOnIsToldTwice) {
  ASSERT_THAT(run(seconds(90)), IsEmpty());
  printer().manner = FakePrinter::Manner::IsUnreachable;
  EXPECT_THAT(run(seconds(1500)), ElementsAre("booth trouble { \"unreachable\" }"));
  printer().manner = FakePrinter::Manner::Answers;
  EXPECT_THAT(run(seconds(1500)), ElementsAre("booth ok {}"));
}

TEST_F(WatchOfChanges, ALowRibbonIsToldWithinTwoIntervalsOfThePrintThatMadeItSo) {
  printer().remaining = 44;
  ASSERT_THAT(run(seconds(300)), IsEmpty());
  scheduler().print("booth", seconds(10));
  printer().remaining = 40;
  EXPECT_THAT(run(seconds(300)), ElementsAre("booth attention { \"low\" }"));
  EXPECT_THAT(times.at(0), Le(seconds(300 + 140)));
}

TEST_F(WatchOfChanges, APausedQueueIsToldAndAResumedOne) {
  ASSERT_THAT(run(seconds(2000)), IsEmpty());
  reading().state = QueueState::Stopped;
  reading().state_message = "Paused";
  EXPECT_THAT(run(seconds(130)), ElementsAre("booth attention { \"paused\" }"));
  reading().state = QueueState::Idle;
  reading().state_message.clear();
  // Two answers of the printer, although the monitor queries it rarely after so long an idle time.
  EXPECT_THAT(run(seconds(190)), ElementsAre("booth ok {}"));
}

TEST_F(WatchOfChanges, AStuckPrintIsToldAndItsEnd) {
  ASSERT_THAT(run(seconds(90)), IsEmpty());
  printer().manner = FakePrinter::Manner::IsUnreachable;
  const int print = scheduler().print("booth", seconds(400));
  EXPECT_THAT(run(seconds(100)), ElementsAre("booth trouble { \"stuck\" }"));
  EXPECT_THAT(times.at(0), Le(seconds(90 + 50)));
  printer().manner = FakePrinter::Manner::Answers;
  scheduler().end(print, IPP_JSTATE_COMPLETED);
  EXPECT_THAT(run(seconds(190)), ElementsAre("booth ok {}"));
}

TEST_F(WatchOfChanges, NothingIsToldOfAPrinterThatPrintsWhatItsLastErrorWas) {
  ASSERT_THAT(run(seconds(30)), IsEmpty());
  one.at(seconds(50), [&] { printer().errors = {{"0008", "2660"}}; });
  one.at(seconds(64), [&] {
    printer().errors.clear();
    scheduler().print("booth", seconds(200));
  });
  EXPECT_THAT(run(seconds(600)), IsEmpty());
}

/// How a queue shows trouble without being asked by the watch.
struct SeenTrouble {
  const char* name;
  std::function<void(FakePrinter&, Reading&)> arrange;
  const char* told;
};

class WatchOfSeenTrouble : public WatchOfChanges, public testing::WithParamInterface<SeenTrouble> {
 protected:
  void SetUp() override {
    ASSERT_THAT(run(seconds(1500)), IsEmpty());
    ASSERT_EQ(one.intervals().back(), 480);  // due next at 1800 seconds
    GetParam().arrange(printer(), reading());
    if (reading().reported_at < 0) {
      reading().reported_at = 1000 + 1500;
    }
  }
};

TEST_P(WatchOfSeenTrouble, IsConfirmedWithinTheShortestIntervalAndTold) {
  EXPECT_THAT(run(seconds(130)), ElementsAre(GetParam().told));
}

TEST_P(WatchOfSeenTrouble, ThatThePrinterDoesNotConfirmIsNotTold) {
  printer().errors.clear();
  printer().manner = FakePrinter::Manner::Answers;
  const auto asked = scheduler().sends["booth"].size();
  const auto is_seen = [&] {
    return judge(one.queue("booth"), {}) != Verdict::Well || scheduler().sends["booth"].size() > asked;
  };
  for (int i = 0; i < 70 && !is_seen(); ++i) {
    ASSERT_THAT(run(seconds(1)), IsEmpty());
  }
  EXPECT_TRUE(is_seen());
  reading().reasons.clear();
  EXPECT_THAT(run(seconds(2000)), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Ways, WatchOfSeenTrouble,
                         testing::Values(SeenTrouble{"ARefreshOfAnotherProgram",
                                                     [](auto& printer, auto& reading) {
                                                       printer.errors = reading.errors = {{"0008", "2660"}};
                                                       reading.reported_at = -1;
                                                     },
                                                     "booth trouble { \"error-0008-2660\" }"},
                                         SeenTrouble{"ARefreshOfAnotherProgramWithoutAnAnswer",
                                                     [](auto& printer, auto& reading) {
                                                       printer.manner = FakePrinter::Manner::IsSilent;
                                                       reading.answered = false;
                                                       reading.errors = {{"0004", "0004"}};
                                                       reading.level_percent.reset();
                                                       reading.prints_remaining.reset();
                                                       reading.prints_total.reset();
                                                       reading.reported_at = -1;
                                                     },
                                                     "booth trouble { \"unreachable\" }"},
                                         SeenTrouble{"AStatusReportOfAnotherProgram",
                                                     [](auto& printer, auto& reading) {
                                                       printer.errors = reading.errors = {{"0008", "2660"}};
                                                     },
                                                     "booth trouble { \"error-0008-2660\" }"},
                                         SeenTrouble{"AStateReason",
                                                     [](auto&, auto& reading) {
                                                       reading.reasons = {"media-empty-error"};
                                                     },
                                                     "booth trouble { \"media-empty-error\" }"}),
                         [](const auto& one) { return one.param.name; });

TEST_F(WatchOfChanges, TroubleThatIsSeenDuringAPrintIsToldDuringIt) {
  ASSERT_THAT(run(seconds(90)), IsEmpty());
  scheduler().print("booth", seconds(250));
  ASSERT_THAT(run(seconds(70)), IsEmpty());
  reading().reasons = {"media-empty-error"};
  EXPECT_THAT(run(seconds(70)), ElementsAre("booth trouble { \"media-empty-error\" }"));
  reading().reasons.clear();
  EXPECT_THAT(run(seconds(70)), ElementsAre("booth ok {}"));
  EXPECT_EQ(one.outcome(), Outcome::Busy);
}

TEST_F(WatchOfChanges, ASchedulerThatIsGoneIsToldWithinHalfAMinuteAndThatItIsBack) {
  ASSERT_THAT(run(seconds(90)), IsEmpty());
  scheduler().error = {SchedulerError::Kind::Unreachable, "Connection refused"};
  EXPECT_THAT(run(seconds(200)), ElementsAre(" trouble { \"unreachable\" }"));
  scheduler().error.reset();
  EXPECT_THAT(run(seconds(200)), ElementsAre(" ok {}"));
}

TEST_F(WatchOfChanges, ASchedulerThatIsRestartedIsNotTold) {
  ASSERT_THAT(run(seconds(90)), IsEmpty());
  one.at(seconds(120), [&] {
    scheduler().error = {SchedulerError::Kind::Unreachable, "Connection refused"};
  });
  one.at(seconds(124), [&] { scheduler().error.reset(); });
  EXPECT_THAT(run(seconds(600)), IsEmpty());
}

Change change_of(QueueReport queue, std::optional<Condition> old = Condition{}) {
  Change change{"localhost", queue.reading.queue, std::move(old), condition(queue), {}};
  change.report.servers = {{"localhost", {}, 0, {std::move(queue)}}};
  return change;
}

TEST(ChangeText, SaysWhatIsWrong) {
  EXPECT_EQ(change_text(change_of(broken())),
            "booth: error 0008, code 2660. Look up 0008 / 2660 in the printer's manual.");
  auto elsewhere = change_of(broken());
  elsewhere.server = "hall";
  EXPECT_THAT(change_text(elsewhere), StartsWith("booth on hall: error 0008, code 2660"));
}

TEST(ChangeText, SaysThatAllIsWellAgain) {
  EXPECT_EQ(change_text(change_of(healthy(), Condition{Level::Trouble, {"empty"}})),
            "booth: all well again, 200 of 400 prints left (50 %)");
  EXPECT_EQ(change_text(change_of(healthy(), std::nullopt)),
            "booth: all well, 200 of 400 prints left (50 %)");
}

TEST(ChangeText, NamesThePrintServer) {
  Change change{"hall", {}, Condition{}, {Level::Trouble, {"unreachable"}}, {}};
  change.report.servers = {{"hall", "it cannot be reached: Connection refused", 0, {}}};
  EXPECT_EQ(change_text(change), "print server hall: it cannot be reached: Connection refused");
  change.report.servers[0].error.clear();
  change.old = change.now;
  change.now = {};
  EXPECT_EQ(change_text(change), "print server hall: all well again");
}

TEST(ChangeVariables, AreAllThatACommandIsTold) {
  const auto variables = change_variables(change_of(broken()));
  EXPECT_THAT(variables.at("BRENVELLIS_TEXT"), StartsWith("booth: error 0008"));
  EXPECT_EQ(variables.at("BRENVELLIS_QUEUE"), "booth");
  EXPECT_EQ(variables.at("BRENVELLIS_SERVER"), "localhost");
  EXPECT_EQ(variables.at("BRENVELLIS_STATUS"), "trouble");
  EXPECT_EQ(variables.at("BRENVELLIS_OLD_STATUS"), "ok");
  EXPECT_EQ(variables.at("BRENVELLIS_CAUSE"), "error-0008-2660");
  EXPECT_EQ(change_variables(change_of(healthy(), std::nullopt)).at("BRENVELLIS_OLD_STATUS"), "");
}

TEST(ChangeVariables, AreOneShortPrintableLineWhateverTheTextsAre) {
  auto texts = std::vector<std::string>(std::begin(HOSTILE_TEXTS), std::end(HOSTILE_TEXTS));
  texts.push_back(std::string(100000, 'x'));
  std::string wide;
  for (int i = 0; i < 1000; ++i) {
    wide += "″";
  }
  texts.push_back(wide);
  for (const auto& text : texts) {
    const auto report = hostile_report(text);
    for (const auto& queue : report.servers[0].queues) {
      auto change = change_of(queue);
      change.server = text;
      for (const auto& [name, value] : change_variables(change)) {
        EXPECT_EQ(printable(value), value) << name;
        EXPECT_THAT(value.size(), Le(1003U)) << name;
      }
    }
  }
}

TEST(ChangeJson, IsALineWithTheQueueAlone) {
  const auto text = change_json(change_of(broken()));
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  const auto object = nlohmann::json::parse(text);
  EXPECT_EQ(object["servers"][0]["queues"][0]["queue"], "booth");
  EXPECT_EQ(object["servers"][0]["queues"][0]["errors"][0]["code"], "2660");
}

}  // namespace
