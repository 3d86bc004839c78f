// SPDX-License-Identifier: Apache-2.0
#include "monitor/report.h"

#include <gtest/gtest.h>

#include "tests/unit/sample_report.h"

namespace {

TEST(Report, ErrorIsWorseThanUnknownIsWorseThanLow) {
  EXPECT_EQ(worse(Verdict::Error, Verdict::Unknown), Verdict::Error);
  EXPECT_EQ(worse(Verdict::Unknown, Verdict::Error), Verdict::Error);
  EXPECT_EQ(worse(Verdict::Low, Verdict::Unknown), Verdict::Unknown);
  EXPECT_EQ(worse(Verdict::Well, Verdict::Low), Verdict::Low);
  EXPECT_EQ(worse(Verdict::Well, Verdict::Well), Verdict::Well);
}

TEST(Report, VerdictsAreExitStatuses) {
  EXPECT_EQ(static_cast<int>(Verdict::Well), 0);
  EXPECT_EQ(static_cast<int>(Verdict::Low), 1);
  EXPECT_EQ(static_cast<int>(Verdict::Error), 2);
  EXPECT_EQ(static_cast<int>(Verdict::Unknown), 3);
}

TEST(Report, ARibbonAtTheLimitIsLow) {
  const auto verdict = [](int percent) {
    return judge(refreshed(ribbon_reading("q", percent, 100, "10")), {});
  };
  EXPECT_EQ(verdict(11), Verdict::Well);
  EXPECT_EQ(verdict(10), Verdict::Low);
  EXPECT_EQ(verdict(1), Verdict::Low);
}

TEST(Report, AnEmptyRibbonIsAnError) {
  EXPECT_EQ(judge(refreshed(ribbon_reading("q", 0, 400, "10")), {}), Verdict::Error);
  // Less than one percent, but not empty.
  EXPECT_EQ(judge(refreshed(ribbon_reading("q", 3, 400, "10")), {}), Verdict::Low);
  auto percent = refreshed(ribbon_reading("q", 0, 400, "10"));
  percent.reading.prints_remaining.reset();
  percent.reading.prints_total.reset();
  EXPECT_EQ(judge(percent, {}), Verdict::Error);
}

TEST(Report, ARibbonAtTheCriticalLimitIsAnError) {
  const Limits limits{{10, Limit::Unit::Percent}, {20, Limit::Unit::Prints}};
  EXPECT_EQ(judge(refreshed(ribbon_reading("q", 21, 400, "10")), limits), Verdict::Low);
  EXPECT_EQ(judge(refreshed(ribbon_reading("q", 20, 400, "10")), limits), Verdict::Error);
}

TEST(Report, AStuckPrintIsAnError) {
  auto queue = refreshed(ribbon_reading("q", 200, 400, "10"));
  queue.outcome = Outcome::Busy;
  queue.stuck = true;
  EXPECT_EQ(judge(queue, {}), Verdict::Error);
}

TEST(Report, EachOutcomeHasItsVerdict) {
  const struct {
    Outcome outcome;
    Verdict verdict;
  } cases[] = {
      {Outcome::Refreshed, Verdict::Well},    {Outcome::NotAsked, Verdict::Well},
      {Outcome::Busy, Verdict::Well},         {Outcome::Paused, Verdict::Unknown},
      {Outcome::Asking, Verdict::Well},       {Outcome::Stopped, Verdict::Error},
      {Outcome::Rejecting, Verdict::Unknown}, {Outcome::Unsupported, Verdict::Unknown},
      {Outcome::TimedOut, Verdict::Unknown},  {Outcome::Failed, Verdict::Unknown},
      {Outcome::NotFound, Verdict::Unknown},
  };
  for (const auto& one : cases) {
    auto queue = refreshed(ribbon_reading("q", 200, 400, "10"));
    queue.outcome = one.outcome;
    EXPECT_EQ(judge(queue, {}), one.verdict) << static_cast<int>(one.outcome);
  }
}

TEST(Report, AnUnknownLevelIsUnknownWhateverTheOutcome) {
  auto queue = refreshed(ribbon_reading("q", 200, 400, "10"));
  queue.reading.level_percent.reset();
  for (const auto outcome : {Outcome::Refreshed, Outcome::NotAsked, Outcome::Busy}) {
    queue.outcome = outcome;
    EXPECT_EQ(judge(queue, {}), Verdict::Unknown);
  }
}

TEST(Report, AnErrorOfAnyKindIsAnError) {
  auto queue = refreshed(ribbon_reading("q", 1, 400, "10"));
  queue.reading.errors = {{"0008", "2660"}};
  EXPECT_EQ(judge(queue, {}), Verdict::Error);
  queue.reading.errors.clear();
  queue.reading.reasons = {"media-empty-error"};
  EXPECT_EQ(judge(queue, {}), Verdict::Error);
  queue.reading.reasons = {"media-low-warning", "offline-report", "connecting-to-device"};
  EXPECT_EQ(judge(queue, {}), Verdict::Low);
}

TEST(Report, TheWorstQueueDecides) {
  auto report = sample_report();
  EXPECT_EQ(judge(report), Verdict::Error);
  std::erase_if(report.servers[0].queues,
                [](const auto& queue) { return judge(queue, {}) == Verdict::Error; });
  EXPECT_EQ(judge(report), Verdict::Unknown);
}

TEST(Report, AServerThatWasNotReachedIsUnknown) {
  Report report;
  report.servers = {{"here", {}, 0, {refreshed(ribbon_reading("q", 200, 400, "10"))}},
                    {"there", "down", 0, {}}};
  EXPECT_EQ(judge(report), Verdict::Unknown);
}

TEST(Report, NoQueueAtAllIsUnknown) {
  Report report;
  report.servers = {{"here", {}, 0, {}}};
  EXPECT_EQ(judge(report), Verdict::Unknown);
}

}  // namespace
