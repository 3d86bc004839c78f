// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include "tests/scheduler/one_printer.h"

namespace {

struct FaultCase {
  const char* fault;
  Reasons reasons;
  Marker marker;
};

class Faults : public OnePrinter, public testing::WithParamInterface<FaultCase> {};

TEST_P(Faults, AreReportedAndTheNextReportIsCorrect) {
  const auto& [fault, reasons, marker] = GetParam();
  printer.tell("fault " + std::string(fault));
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.reasons, reasons);
  EXPECT_EQ(view.marker, marker);

  printer.tell("fault none");
  const auto next = scheduler.report("booth");
  EXPECT_EQ(next.reasons, ERROR_2660);
  EXPECT_EQ(next.marker, HALF_USED);
}

INSTANTIATE_TEST_SUITE_P(Scheduler, Faults,
                         testing::Values(FaultCase{"silent", FALLBACK, UNKNOWN_LEVEL},           //
                                         FaultCase{"silent status", FALLBACK, HALF_USED},        //
                                         FaultCase{"silent levels", ERROR_2660, UNKNOWN_LEVEL},  //
                                         FaultCase{"short 14", FALLBACK, UNKNOWN_LEVEL},         //
                                         FaultCase{"short 14 status", FALLBACK, HALF_USED},      //
                                         FaultCase{"short 25 levels", ERROR_2660, UNKNOWN_LEVEL},
                                         FaultCase{"drip 5", ERROR_2660, HALF_USED},
                                         FaultCase{"split 10 200", ERROR_2660, HALF_USED},
                                         FaultCase{"long 40", ERROR_2660, HALF_USED},
                                         FaultCase{"long 512", ERROR_2660, HALF_USED},
                                         FaultCase{"slow 300", ERROR_2660, HALF_USED},
                                         FaultCase{"garbage status", FALLBACK, HALF_USED},
                                         FaultCase{"close 0", FALLBACK, UNKNOWN_LEVEL},
                                         FaultCase{"close 10", FALLBACK, UNKNOWN_LEVEL},
                                         FaultCase{"close 0 status", FALLBACK, HALF_USED}));

using RefusingPrinter = OnePrinter;

TEST_F(RefusingPrinter, KeepsTheJobWaitingAndIsReportedOnceItListensAgain) {
  printer.tell("fault refuse");
  const int job = scheduler.send_commands("booth", "ReportLevels\n");
  // The filter gives up after its time-outs; the backend keeps trying to connect.
  for (int i = 0; i < 300 && scheduler.view("booth").marker != UNKNOWN_LEVEL; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(scheduler.view("booth").marker, UNKNOWN_LEVEL);
  EXPECT_EQ(scheduler.job_state(job), IPP_JSTATE_PROCESSING);
  scheduler.cancel_job(job);
  EXPECT_EQ(scheduler.wait_for_job(job), IPP_JSTATE_CANCELED);

  printer.tell("fault none");
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
}

}  // namespace
