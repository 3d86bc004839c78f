// SPDX-License-Identifier: Apache-2.0
// The requests to one server, and their times.
#include "monitor/server_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <variant>
#include <vector>

#include "tests/unit/fake_scheduler.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using Manner = FakePrinter::Manner;

const SchedulerError GONE = {SchedulerError::Kind::Unreachable, "gone"};

/// OneServer answers the requests of a watch by hand.
struct OneServer {
  explicit OneServer(const WatchRules& rules = again()) : watch("localhost", {}, rules, Moment()) {
    reading = ribbon_reading("booth", 200, 400, "");
    print.queue = "booth";
    print.state = IPP_JSTATE_COMPLETED;
  }

  template <typename Request>
  Request request(Moment now) {
    const auto plan = watch.next(now);
    const auto* found = plan.request ? std::get_if<Request>(&*plan.request) : nullptr;
    EXPECT_NE(found, nullptr);
    return found != nullptr ? *found : Request{};
  }
  /// Answers the first look, and the command job with its number.
  void send(int job, Moment now = Moment()) {
    request<LookRequest>(now);
    watch.take(Look{{reading}, jobs}, now);
    request<SendRequest>(now);
    watch.take(Sent{job}, now);
  }
  [[nodiscard]] std::string error() const { return watch.report(Moment(), TimeOfDay()).error; }

  ServerWatch watch;
  Reading reading;
  Job print;
  std::vector<Job> jobs;
};

TEST(Server, IsLookedAtFirst) {
  OneServer one;
  EXPECT_FALSE(one.watch.has_looked());
  const auto look = one.request<LookRequest>(Moment());
  EXPECT_EQ(look.first_job, 0);
  EXPECT_TRUE(look.queues);
  EXPECT_THAT(look.names, IsEmpty());
  EXPECT_TRUE(one.watch.is_looking());
  EXPECT_FALSE(one.watch.has_jobs());
  one.watch.take(Look{{one.reading}, {}}, Moment());
  EXPECT_TRUE(one.watch.has_looked());
  EXPECT_FALSE(one.watch.is_looking());
}

TEST(Server, CancelsAJobItselfTenSecondsAfterItsTime) {
  OneServer one;
  one.request<LookRequest>(Moment());
  one.watch.take(Look{{one.reading}, {}}, Moment());
  const auto send = one.request<SendRequest>(Moment());
  EXPECT_EQ(send.queue, "booth");
  EXPECT_EQ(send.lifetime_seconds, 20);
  EXPECT_TRUE(one.watch.has_jobs());
  EXPECT_EQ(one.watch.sent(), 1U);
}

TEST(Server, IsAskedForTheJobsAfterTheNewestAndItsCommandJob) {
  const struct {
    int seen;
    int sent;
    int first_job;
  } cases[] = {{0, 1, 1}, {0, 9, 9}, {7, 9, 8}, {7, 8, 8}, {20, 3, 3}};
  for (const auto& [seen, sent, first_job] : cases) {
    OneServer one;
    one.print.number = seen;
    if (seen > 0) {
      one.jobs = {one.print};
    }
    one.send(sent);
    EXPECT_TRUE(one.watch.has_jobs());
    EXPECT_EQ(one.watch.answered(), 0U);
    const auto look = one.request<LookRequest>(Moment() + milliseconds(200));
    EXPECT_EQ(look.first_job, first_job) << seen << " " << sent;
    EXPECT_FALSE(look.queues);
  }
}

TEST(Server, IsAskedForAJobThatItMayHave) {
  for (const int seen : {0, 7}) {
    OneServer one;
    one.print.number = seen;
    if (seen > 0) {
      one.jobs = {one.print};
    }
    one.request<LookRequest>(Moment());
    one.watch.take(Look{{one.reading}, one.jobs}, Moment());
    one.request<SendRequest>(Moment());
    one.watch.take(SchedulerError{SchedulerError::Kind::NoAnswer, "no answer"}, Moment());
    EXPECT_EQ(one.request<LookRequest>(Moment() + milliseconds(250)).first_job, seen + 1);
  }
}

TEST(Server, AWatchLooksFiveTimesPerSecondWhileAJobIsActive) {
  OneServer one;
  one.send(9);
  EXPECT_EQ(one.watch.next(Moment() + milliseconds(1)).at, Moment() + milliseconds(200));
  EXPECT_FALSE(one.watch.next(Moment() + milliseconds(199)).request);
  one.request<LookRequest>(Moment() + milliseconds(200));
}

TEST(Server, AOneTimeCallLooksLessOftenTheLongerAJobTakes) {
  OneServer one(WatchRules{});
  one.send(9);
  auto job = one.print;
  job.number = 9;
  job.is_command = job.is_own = true;
  job.state = IPP_JSTATE_PROCESSING;
  const std::pair<int, int> cases[] = {{0, 20}, {80, 20}, {120, 30}, {400, 100}, {800, 200}, {1100, 200}};
  for (const auto& [at, pause] : cases) {
    const Moment now = Moment() + milliseconds(at);
    if (at > 0) {
      one.request<LookRequest>(now);
      one.watch.take(Look{{one.reading}, {job}}, now);
    }
    EXPECT_EQ(one.watch.next(now).at, now + milliseconds(pause)) << at;
  }
}

TEST(Server, IsAskedForAFewQueuesByName) {
  auto rules = again();
  rules.ask = false;
  for (const auto& [queues, printing, named] :
       {std::array{16, 2, 2}, {16, 3, 0}, {15, 2, 0}, {800, 64, 64}, {800, 65, 0}}) {
    OneServer one(rules);
    Look look;
    for (int i = 0; i < queues; ++i) {
      one.reading.queue = one.print.queue = "queue" + std::to_string(i);
      one.print.number = i + 1;
      one.print.state = IPP_JSTATE_PROCESSING;
      look.queues.push_back(one.reading);
      if (i < printing) {
        look.jobs.push_back(one.print);
      }
    }
    one.request<LookRequest>(Moment());
    one.watch.take(look, Moment());
    EXPECT_EQ(one.watch.next(Moment()).at, Moment() + seconds(5));
    const auto next = one.request<LookRequest>(Moment() + seconds(5));
    EXPECT_TRUE(next.queues);
    EXPECT_THAT(next.names, SizeIs(static_cast<std::size_t>(named))) << queues << " " << printing;
  }
}

TEST(Server, IsAskedForAQueueAgainBeforeACommandJobIfItsReadingIsOld) {
  for (const int age : {1000, 1001}) {
    auto rules = again();
    rules.max_age = seconds(300);
    OneServer one(rules);
    one.reading.age_seconds = 300;
    one.request<LookRequest>(Moment());
    one.watch.take(Look{{one.reading}, {}}, Moment());
    if (age == 1000) {
      EXPECT_EQ(one.request<SendRequest>(Moment() + milliseconds(age)).queue, "booth");
    } else {
      EXPECT_THAT(one.request<LookRequest>(Moment() + milliseconds(age)).names, ElementsAre("booth"));
    }
  }
}

TEST(Server, ThatIsAwayIsTriedAgainAfterGrowingPauses) {
  OneServer one;
  Moment now;
  for (int i = 0; i < 2; ++i) {
    one.request<LookRequest>(now);
    one.watch.take(Look{}, now);
    now += seconds(60);
    for (const int pause : {250, 500, 1000, 2000, 4000, 8000, 16000, 32000, 60000, 60000}) {
      EXPECT_TRUE(one.request<LookRequest>(now).queues);
      one.watch.take(GONE, now);
      const Moment next = now + milliseconds(pause);
      EXPECT_EQ(one.watch.next(now).at, next);
      EXPECT_FALSE(one.watch.next(next - milliseconds(1)).request);
      now = next;
    }
    EXPECT_EQ(one.error(), "it cannot be reached: gone");
    EXPECT_TRUE(one.watch.has_error());
  }
}

TEST(Server, ThatIsAwayIsNotInTroubleForThreeSeconds) {
  OneServer one;
  one.request<LookRequest>(Moment());
  one.watch.take(Look{}, Moment());
  const Moment away = Moment() + seconds(60);
  one.request<LookRequest>(away);
  one.watch.take(GONE, away + seconds(3));
  EXPECT_EQ(one.error(), "");
  one.request<LookRequest>(away + seconds(3));
  one.watch.take(GONE, away + milliseconds(3001));
  EXPECT_EQ(one.error(), "it cannot be reached: gone");
  EXPECT_EQ(one.watch.report(Moment(), TimeOfDay()).sightings, 2U);
}

TEST(Server, WithoutAnAnswerIsGivenUpAtTheEnd) {
  OneServer one;
  one.send(9);
  one.request<LookRequest>(Moment() + seconds(1));
  one.watch.take(GONE, Moment() + seconds(1));
  EXPECT_FALSE(one.watch.is_done());
  one.watch.wind_up();
  EXPECT_TRUE(one.watch.is_done());
  EXPECT_FALSE(one.watch.has_jobs());
  EXPECT_EQ(one.error(), "no answer");
  EXPECT_FALSE(one.watch.next(Moment() + seconds(900)).request);
}

TEST(Server, WithAJobThatEndsLaterIsGivenUpIfItGoesAway) {
  OneServer one;
  one.send(9);
  one.watch.wind_up();
  const auto purge = one.request<PurgeRequest>(Moment() + seconds(1));
  EXPECT_EQ(purge.job, 9);
  EXPECT_FALSE(purge.has_ended);
  one.watch.take(GONE, Moment() + seconds(1));
  EXPECT_TRUE(one.watch.is_done());
  EXPECT_EQ(one.error(), "it cannot be reached: gone");
}

TEST(Server, WithoutQueuesIsDone) {
  OneServer one(WatchRules{});
  EXPECT_FALSE(one.watch.is_done());
  one.request<LookRequest>(Moment());
  EXPECT_FALSE(one.watch.is_done());
  one.watch.take(Look{}, Moment());
  EXPECT_TRUE(one.watch.is_done());
}

TEST(Server, ADroppedRequestGetsNoAnswer) {
  OneServer one;
  one.request<LookRequest>(Moment());
  one.watch.drop_request();
  EXPECT_FALSE(one.watch.is_looking());
  one.watch.take(Look{{one.reading}, {}}, Moment());
  EXPECT_FALSE(one.watch.has_looked());
}

TEST(Server, ItsReportHasTheDurationOfTheLastAnswer) {
  OneServer one;
  one.request<LookRequest>(Moment() + seconds(5));
  one.watch.take(Look{}, Moment() + seconds(7));
  EXPECT_EQ(one.watch.report(Moment(), TimeOfDay()).seconds, 2);
  OneServer once(WatchRules{});
  once.request<LookRequest>(Moment() + seconds(5));
  once.watch.take(Look{}, Moment() + seconds(7));
  EXPECT_EQ(once.watch.report(Moment(), TimeOfDay()).seconds, 7);
}

TEST(Fleet, DeadPrintersAreAskedAgainSixteenAtATime) {
  Simulation one(again());
  for (int i = 0; i < 20; ++i) {
    one.scheduler.add("dead" + std::to_string(i)).manner = Manner::IsUnreachable;
  }
  one.run(seconds(59));
  EXPECT_EQ(one.scheduler.most_own_jobs, 20U);
  one.scheduler.most_own_jobs = 0;
  one.run(seconds(30));
  EXPECT_EQ(one.scheduler.most_own_jobs, 16U);
  for (int i = 0; i < 20; ++i) {
    EXPECT_THAT(one.scheduler.sends["dead" + std::to_string(i)], SizeIs(2)) << i;
  }
}

TEST(Fleet, APrintingQueueAmongManyIsReadEveryFiveSeconds) {
  Simulation one(again());
  for (int i = 0; i < 20; ++i) {
    one.scheduler.add("queue" + std::to_string(i));
  }
  one.scheduler.print("queue7", std::chrono::hours(1));
  one.run(seconds(3600));
  EXPECT_LE(one.scheduler.looks, 3600 / 5 + 60 + 20 * 12);
  // All queues once per minute, and this one.
  EXPECT_THAT(one.scheduler.queues_read, AllOf(Ge(60 * 20 + 3600 / 5), Le(60 * 20 + 1200)));
}

TEST(Fleet, AHopelessJobIsNotPurgedWhileThereIsRoomForOthers) {
  Simulation one(again());
  one.scheduler.add("dead").manner = Manner::IsUnreachable;
  one.scheduler.add("living");
  one.at(milliseconds(7), [&] {
    one.scheduler.send_error = {SchedulerError::Kind::Busy, "Too many active jobs."};
  });
  one.run(seconds(5));
  EXPECT_THAT(one.scheduler.sends["living"], IsEmpty());
  EXPECT_EQ(one.scheduler.own_jobs(), 1U);
  EXPECT_EQ(one.outcome("dead"), Outcome::Asking);
}

TEST(Fleet, HopelessJobsAreNotPurgedIfNoOtherQueueWaits) {
  Simulation one(again());
  one.scheduler.add("living");
  one.run(seconds(59));
  for (int i = 0; i < 32; ++i) {
    one.scheduler.add("dead" + std::to_string(i)).manner = Manner::IsUnreachable;
  }
  one.run(seconds(8));
  EXPECT_EQ(one.scheduler.own_jobs(), 32U);
  one.scheduler.add("new");
  one.run(seconds(120));
  EXPECT_THAT(one.scheduler.sends["new"], SizeIs(2));
}

TEST(SchedulerErrors, AreExplained) {
  using Kind = SchedulerError::Kind;
  const std::pair<Kind, std::string> cases[] = {
      {Kind::Unreachable, "it cannot be reached"},
      {Kind::Forbidden, "the print server does not allow it"},
      {Kind::Unauthorized, "the print server requires a password"},
      {Kind::NeedsEncryption, "no encrypted connection"},
      {Kind::NotFound, "not found"},
      {Kind::Busy, "the print server is busy"},
      {Kind::Refused, "the print server refused"},
  };
  for (const auto& [kind, text] : cases) {
    EXPECT_EQ(explanation({kind, ""}), text);
    EXPECT_EQ(explanation({kind, "words"}), text + ": words");
  }
  EXPECT_EQ(explanation({Kind::NoAnswer, "words"}), "words");
  EXPECT_EQ(explanation({Kind::InvalidAnswer, "words"}), "words");
  EXPECT_EQ(explanation({Kind::Forbidden, ""}, true), "the print server does not allow it");
  EXPECT_EQ(explanation({Kind::Forbidden, ""}, false), "the queue is not shared with this computer");
}

}  // namespace
