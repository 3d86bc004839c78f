// SPDX-License-Identifier: Apache-2.0
// --plugin and --ready, beside a real scheduler and a simulated printer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class Booth : public testing::Test {
 protected:
  Booth() { scheduler.add_queue("booth", printer.device_uri()); }

  ProgramResult run(const std::vector<std::string>& arguments) {
    return run_monitor(scheduler.server(), arguments);
  }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler;
};

class Plugin : public Booth {};
class Ready : public Booth {};

TEST_F(Plugin, HasAStatusLineWithPerformanceDataForEachState) {
  const struct {
    const char* printer;
    int status;
    const char* line;
  } cases[] = {
      {"remaining 200", 0,
       "BRENVELLIS OK - booth: 200 of 400 prints left (50 %) | 'booth_prints'=200;41:;21:;0;400\n"},
      {"remaining 40", 1,
       "BRENVELLIS WARNING - booth: 40 of 400 prints left (10 %) | 'booth_prints'=40;41:;21:;0;400\n"},
      {"remaining 20", 2,
       "BRENVELLIS CRITICAL - booth: 20 of 400 prints left (5 %) | 'booth_prints'=20;41:;21:;0;400\n"},
      {"remaining 100; code 0x2660", 2,
       "BRENVELLIS CRITICAL - booth: error 0008, code 2660 | 'booth_prints'=100;41:;21:;0;400\n"},
  };
  for (const auto& one : cases) {
    printer.tell(one.printer);
    const auto result = run({"--plugin", "--low", "40", "--critical", "20", "booth"});
    EXPECT_EQ(result.exit_status, one.status);
    EXPECT_EQ(result.output, one.line);
    EXPECT_EQ(result.errors, "");
  }
}

TEST_F(Plugin, AnUnknownQueueIsUnknown) {
  const auto result = run({"--plugin", "nowhere"});
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(result.output, "BRENVELLIS UNKNOWN - nowhere: no such queue\n");
}

TEST_F(Plugin, APauseIsUnknownWithTheReasonOfTheOperator) {
  scheduler.pause("booth", "gone home | back at 9");
  const auto result = run({"--plugin", "--no-refresh"});
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_THAT(run({"--plugin"}).output,
              StartsWith("BRENVELLIS UNKNOWN - booth: paused: gone home / back at 9 | 'booth_prints'="));
}

TEST_F(Plugin, GoesToStandardOutputBesideFiles) {
  const TemporaryFolder folder;
  const auto result = run({"--plugin", "--json=" + (folder.path() / "r.json").string()});
  EXPECT_THAT(result.output, StartsWith("BRENVELLIS OK - "));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "r.json"));
}

TEST(PluginUsage, ErrorsAreUnknown) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--plugin", "--nonsense"},
                                             {"--plugin", "--watch", "60"},
                                             {"--plugin", "--low", "many"},
                                             {"--plugin", "--json"},
                                             {"--plugin", "--ready", "booth"}}) {
    const auto result = run_monitor("/nonexistent/cups.sock", arguments);
    EXPECT_EQ(result.exit_status, 3) << arguments[1];
    EXPECT_THAT(result.output, MatchesRegex("BRENVELLIS UNKNOWN - [^\n]+\n"));
  }
}

TEST(PluginUsage, AnUnreachableServerIsUnknown) {
  const auto result = run_monitor("/nonexistent/cups.sock", {"--plugin"});
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_THAT(result.output,
              StartsWith("BRENVELLIS UNKNOWN - print server localhost: it cannot be reached: "));
}

TEST(PluginUsage, AnOutputThatCannotBeWrittenIsUnknown) {
  const auto result = run_monitor("/nonexistent/cups.sock", {"--plugin", "--json=/nonexistent/r.json"});
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_THAT(result.errors, HasSubstr("/nonexistent/r.json: No such file or directory"));
}

TEST_F(Ready, AQueueThatTakesPrintsIsReadyWithoutAWord) {
  printer.tell("remaining 1");
  const auto result = run({"--ready", "booth"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output + result.errors, "");
}

TEST_F(Ready, TheReasonIsSaidOtherwise) {
  const auto reason = [&] {
    const auto result = run({"--ready", "booth"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.errors, "");
    return result.output;
  };
  printer.tell("remaining 0");
  EXPECT_EQ(reason(), "booth: ribbon empty. Load a new ribbon.\n");
  printer.tell("remaining 100; code 0x2660");
  EXPECT_EQ(reason(), "booth: error 0008, code 2660. Look up 0008 / 2660 in the printer's manual.\n");
  printer.tell("code 0");
  ASSERT_EQ(run({}).exit_status, 0);
  scheduler.pause("booth", "gone home");
  EXPECT_EQ(reason(), "booth: paused: gone home. Resume the queue (sudo cupsenable booth).\n");
  scheduler.resume("booth");
  scheduler.reject("booth");
  EXPECT_EQ(reason(), "booth: rejecting jobs. Let the queue accept jobs again (sudo cupsaccept booth).\n");
  scheduler.accept("booth");
  EXPECT_EQ(run({"--ready", "booth"}).exit_status, 0);
}

TEST_F(Ready, ASilentPrinterIsNotReady) {
  ASSERT_EQ(run({"--ready", "booth"}).exit_status, 0);
  printer.tell("fault refuse");
  const auto result = run({"--ready", "--timeout", "3", "booth"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.output, StartsWith("booth: no answer in time"));
}

TEST_F(Ready, AQueueThatWasNeverAskedIsNotReady) {
  const auto result = run({"--ready", "--no-refresh", "booth"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.output, "booth: never read.\n");
}

TEST_F(Ready, EachNamedQueueMustBeReady) {
  const auto result = run({"--ready", "booth", "nowhere"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.output, "nowhere: no such queue. Check the queue's name (lpstat -e).\n");
}

TEST_F(Ready, AQueueWhosePrintDoesNotReachThePrinterIsNotReady) {
  ASSERT_EQ(run({"--ready", "booth"}).exit_status, 0);
  printer.tell("fault refuse");
  const int print = scheduler.send_raw("booth", "a photo");
  ASSERT_TRUE(wait_for_processing(scheduler, print));
  ProgramResult result;
  for (int i = 0; i < 300 && result.exit_status != 1; ++i) {  // until the backend has found out
    result = run({"--ready", "booth"});
  }
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.output, StartsWith("booth: the printer is not responding"));
}

TEST(ReadyUsage, AnUnreachableServerIsNotReady) {
  const auto result = run_monitor("/nonexistent/cups.sock", {"--ready", "booth"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.output, StartsWith("print server localhost: it cannot be reached: "));
}

TEST(ReadyUsage, AQueueMustBeNamed) {
  const auto result = run_monitor("/nonexistent/cups.sock", {"--ready"});
  EXPECT_EQ(result.exit_status, 64);
  EXPECT_THAT(result.errors, StartsWith("brenvellis-monitor: --ready: missing QUEUE\n"));
}

}  // namespace
