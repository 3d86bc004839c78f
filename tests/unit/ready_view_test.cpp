// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/ready_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "monitor/views/plain_text.h"
#include "tests/unit/sample_report.h"

namespace {

struct ReadyCase {
  const char* name;
  std::function<void(QueueReport&)> change;
  const char* expected;  ///< the line; empty if the queue is ready
};

class ReadyView : public testing::TestWithParam<ReadyCase> {};

TEST_P(ReadyView, SaysWhy) {
  auto queue = refreshed(ribbon_reading("booth", 40, 400, "10"));
  GetParam().change(queue);
  EXPECT_EQ(ready_view(report_with({queue}), true), GetParam().expected);
}

const ReadyCase CASES[] = {
    {"WellAndLow", [](QueueReport&) {}, ""},
    {"OnlyRead", [](QueueReport& queue) { queue.outcome = Outcome::NotAsked; }, ""},
    {"Printing",
     [](QueueReport& queue) {
       queue.outcome = Outcome::Busy;
       queue.reading.state = QueueState::Processing;
       queue.job_seconds = 5;
     },
     ""},
    {"ErrorOfThePrinter",
     [](QueueReport& queue) {
       queue.reading.errors = {{"0008", "2660"}};
     },
     "booth: error 0008, code 2660. Look up 0008 / 2660 in the printer's manual.\n"},
    {"ErrorsWithOneSolution",
     [](QueueReport& queue) {
       queue.reading.reasons = {"timed-out-error", "offline-error", "cover-open-error"};
     },
     "booth: printer not responding. Switch the printer on and check its cable. printer offline. cover open. "
     "Close the cover.\n"},
    {"EmptyRibbon",
     [](QueueReport& queue) {
       queue.reading.prints_remaining = 0;
       queue.reading.level_percent = 0;
     },
     "booth: ribbon empty. Load a new ribbon.\n"},
    {"StuckPrint",
     [](QueueReport& queue) {
       queue.outcome = Outcome::Busy;
       queue.stuck = true;
       queue.job_seconds = 2460;
       queue.reading.state_message = "Waiting for printer to become available.";
     },
     "booth: print stuck for 41 min: Waiting for printer to become available. Switch the printer on and "
     "check its "
     "cable.\n"},
    {"UnreachableBehindAPrint",
     [](QueueReport& queue) {
       queue.outcome = Outcome::Busy;
       queue.job_seconds = 5;
       queue.reading.state_message = "The printer is not responding.";
     },
     "booth: the printer is not responding: The printer is not responding.\n"},
    {"Paused",
     [](QueueReport& queue) {
       queue.outcome = Outcome::Paused;
       queue.reading.state = QueueState::Stopped;
       queue.reading.state_message = "gone home";
     },
     "booth: paused: gone home. Resume the queue (sudo cupsenable booth).\n"},
    {"PausedAndOnlyRead",
     [](QueueReport& queue) {
       queue.outcome = Outcome::NotAsked;
       queue.reading.state = QueueState::Stopped;
       queue.reading.state_message = "Paused";
     },
     "booth: paused. Resume the queue (sudo cupsenable booth).\n"},
    {"RejectingAndOnlyRead",
     [](QueueReport& queue) {
       queue.outcome = Outcome::NotAsked;
       queue.reading.accepting = false;
     },
     "booth: rejecting jobs. Let the queue accept jobs again (sudo cupsaccept booth).\n"},
    {"StateNotKnown", [](QueueReport& queue) { queue.reading.state = QueueState::Unknown; },
     "booth: the queue's state is not known. Check the print server.\n"},
    {"AcceptingNotKnown", [](QueueReport& queue) { queue.reading.accepting.reset(); },
     "booth: the queue's state is not known. Check the print server.\n"},
    {"TimedOut",
     [](QueueReport& queue) {
       queue.outcome = Outcome::TimedOut;
       queue.detail = "The printer is not connected.";
     },
     "booth: no answer in time: The printer is not connected. Switch the printer on and check its cable.\n"},
    {"NeverRead",
     [](QueueReport& queue) {
       queue.outcome = Outcome::NotAsked;
       queue.reading.level_percent.reset();
       queue.reading.prints_remaining.reset();
       queue.reading.prints_total.reset();
       queue.reading.answered.reset();
       queue.reading.markers.clear();
     },
     "booth: never read.\n"},
    {"NoSuchQueue",
     [](QueueReport& queue) {
       queue.reading = {};
       queue.reading.queue = "booth";
       queue.outcome = Outcome::NotFound;
     },
     "booth: no such queue. Check the queue's name (lpstat -e).\n"},
    {"TheLastPrintsAreTaken",
     [](QueueReport& queue) {
       queue.outcome = Outcome::Busy;
       queue.job_seconds = 5;
       queue.prints_waiting = 2;
       queue.reading.prints_remaining = 3;
       queue.reading.level_percent = 0;
     },
     "booth: no print left after those that wait: 3 of 400 prints left (0 %), 3 to print. Have a new ribbon "
     "at "
     "hand.\n"},
    {"OnePrintMoreThanIsTaken",
     [](QueueReport& queue) {
       queue.outcome = Outcome::Busy;
       queue.job_seconds = 5;
       queue.prints_waiting = 2;
       queue.reading.prints_remaining = 4;
       queue.reading.level_percent = 1;
     },
     ""},
};

INSTANTIATE_TEST_SUITE_P(Conditions, ReadyView, testing::ValuesIn(CASES),
                         [](const auto& one) { return one.param.name; });

TEST(ReadyReport, TheCriticalLimitIsAReasonAndTheLowOneIsNot) {
  auto report = report_with({refreshed(ribbon_reading("booth", 40, 400, "10"))});
  report.limits.low = {50, Limit::Unit::Prints};
  EXPECT_EQ(ready_view(report, true), "");
  report.limits.critical = {40, Limit::Unit::Prints};
  EXPECT_EQ(ready_view(report, true), "booth: only 40 prints left. Have a new ribbon at hand.\n");
}

TEST(ReadyReport, EachQueueThatIsNotReadyHasALine) {
  auto report = report_with({refreshed(ribbon_reading("bar", 0, 400, "10")),
                             refreshed(ribbon_reading("booth", 40, 400, "10")),
                             refreshed(ribbon_reading("hall", 0, 400, "10"))});
  EXPECT_EQ(ready_view(report, true),
            "bar: ribbon empty. Load a new ribbon.\nhall: ribbon empty. Load a new ribbon.\n");
}

TEST(ReadyReport, AServerThatWasNotReachedHasALine) {
  Report report;
  report.servers = {{"cellar", "it cannot be reached: Connection refused", 0, {}},
                    {"hall", {}, 0, {refreshed(ribbon_reading("booth", 0, 400, "10"))}}};
  EXPECT_EQ(ready_view(report, true),
            "print server cellar: it cannot be reached: Connection refused\n"
            "booth@hall: ribbon empty. Load a new ribbon.\n");
}

TEST(ReadyReport, HostileTextsStayOnTheirLines) {
  for (const auto& text : HOSTILE_TEXTS) {
    const auto lines = ready_view(hostile_report(text), false);
    EXPECT_EQ(std::ranges::count(lines, '\n'), text.empty() ? 3 : 4) << lines;
    for (const char c : lines) {
      EXPECT_TRUE(c == '\n' || (c >= ' ' && c < 0x7F)) << lines;
    }
  }
}

}  // namespace
