// SPDX-License-Identifier: Apache-2.0
#include "filter/state_cleanup.h"

#include <cups/cups.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/private_scheduler.h"
#include "tests/support/temporary_folder.h"

namespace {

/// A filter that logs the lines of the command file, and so raises any reason.
constexpr const char* REASON_FILTER = R"(#!/bin/sh
sed -n '/^STATE:/p' "${6:--}" >&2
)";

/// A scheduler whose queues get their reasons from the test, and this process as its client.
class StateCleanup : public testing::Test {
 protected:
  StateCleanup() : scheduler_({.filter = filter()}) {
    // The CUPS client library of this process uses this scheduler and no user's settings.
    cupsSetServer(scheduler_.server().c_str());
    setenv("CUPS_SERVERROOT", folder_.path().c_str(), 1);
    setenv("HOME", folder_.path().c_str(), 1);
    unsetenv("LPDEST");
    unsetenv("PRINTER");
  }

  /// Adds a queue on which the scheduler then lists the reasons.
  void add_queue(const std::string& name, const std::set<std::string>& reasons) {
    scheduler_.add_queue(name, "file:///dev/null");
    std::string commands = "#CUPS-COMMAND\n";
    for (const std::string& reason : reasons) {
      commands += "STATE: +" + reason + "\n";
    }
    const int job = scheduler_.send_commands(name, commands);
    ASSERT_EQ(scheduler_.wait_for_job(job), IPP_JSTATE_COMPLETED);
    ASSERT_EQ(scheduler_.view(name).reasons, reasons);
  }

  /// The keywords of the "STATE: -" lines; the lines round them must be as always.
  static std::multiset<std::string> cleared() {
    testing::internal::CaptureStderr();
    clean_printer_state();
    std::istringstream lines(testing::internal::GetCapturedStderr());
    std::multiset<std::string> keywords;
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "clean_printer_state() START");
    while (std::getline(lines, line) && line.starts_with("STATE: -")) {
      keywords.insert(line.substr(8));
    }
    EXPECT_EQ(line, "clean_printer_state() END");
    return keywords;
  }

  [[nodiscard]] const PrivateScheduler& scheduler() const { return scheduler_; }

 private:
  [[nodiscard]] std::string filter() const {
    const std::filesystem::path path = folder_.path() / "reasons";
    std::ofstream(path) << REASON_FILTER;
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    return path.string();
  }

  TemporaryFolder folder_;
  PrivateScheduler scheduler_;
};

using Keywords = std::multiset<std::string>;

TEST_F(StateCleanup, ADefaultDestinationWithoutReasonsIsClearedOfNone) {
  add_queue("booth", {});
  scheduler().set_default("booth");
  EXPECT_EQ(cleared(), (Keywords{"none"}));
}

TEST_F(StateCleanup, AVendorsReasonIsCleared) {
  add_queue("booth", {"com.brenvellis-error2660"});
  scheduler().set_default("booth");
  EXPECT_EQ(cleared(), (Keywords{"com.brenvellis-error2660"}));
}

TEST_F(StateCleanup, AStandardReasonIsCleared) {
  add_queue("booth", {"media-empty-error"});
  scheduler().set_default("booth");
  EXPECT_EQ(cleared(), (Keywords{"media-empty-error"}));
}

TEST_F(StateCleanup, EveryReasonThatTheSchedulerListsIsCleared) {
  add_queue("booth",
            {"com.brenvellis-error2660", "com.example-lamp", "door-open-error", "marker-supply-low-warning"});
  scheduler().set_default("booth");
  const std::set<std::string> listed = scheduler().view("booth").reasons;
  EXPECT_EQ(cleared(), Keywords(listed.begin(), listed.end()));
}

TEST_F(StateCleanup, AnotherDestinationsReasonsAreLeft) {
  add_queue("another", {"media-jam-error"});
  add_queue("booth", {"door-open-error"});
  scheduler().set_default("booth");
  EXPECT_EQ(cleared(), (Keywords{"door-open-error"}));
}

TEST_F(StateCleanup, WithoutAnyDestinationNothingIsCleared) {
  testing::internal::CaptureStderr();
  clean_printer_state();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "clean_printer_state() START\n"
            "DEBUG: Not found default(destination) printer.\n"
            "clean_printer_state() END\n");
}

}  // namespace
