// SPDX-License-Identifier: Apache-2.0
// The option --on-change against a real scheduler and a simulated printer.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class OnChange : public testing::Test {
 protected:
  [[nodiscard]] std::filesystem::path file(const std::string& name) const { return folder.path() / name; }

  /// A watch with this command, which runs in the folder. Its errors go to a file.
  [[nodiscard]] std::unique_ptr<ChildProcess> start(const std::string& command,
                                                    const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {MONITOR_PROGRAM,
                                          "--watch",
                                          "1",
                                          "--idle",
                                          "1",
                                          "--json=" + file("report").string(),
                                          "--on-change",
                                          "cd '" + folder.path().string() + "'; " + command};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const int errors = open(file("errors").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    auto process = std::make_unique<ChildProcess>(
        ChildProcess::Options{arguments, {{2, errors}}, monitor_environment(scheduler.server())});
    close(errors);
    return process;
  }
  [[nodiscard]] static bool comes_true(const std::function<bool()>& condition) {
    for (const auto end = steady_clock::now() + seconds(60); steady_clock::now() < end;) {
      if (condition()) {
        return true;
      }
      std::this_thread::sleep_for(milliseconds(20));
    }
    return false;
  }
  [[nodiscard]] std::vector<std::string> lines_of(const std::string& name) const {
    std::ifstream stream(file(name));
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  [[nodiscard]] bool has_lines(const std::string& name, std::size_t count) const {
    return comes_true([&] { return lines_of(name).size() >= count; });
  }
  /// Waits until the watch shows the queue with this status.
  [[nodiscard]] bool shows(int status) const {
    return comes_true([&] {
      const auto object = read_json(file("report"));
      return !object.is_discarded() && object["status"] == status;
    });
  }
  static bool is_gone(pid_t pid) {
    return comes_true([&] { return kill(pid, 0) != 0 && errno == ESRCH; });
  }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler;
  TemporaryFolder folder;
};

TEST_F(OnChange, TheCommandIsToldOfAnErrorAndOfItsEnd) {
  scheduler.add_queue("booth", printer.device_uri());
  const auto monitor = start(
      "printf '%s|%s|%s|%s|%s|%s\\n' \"$BRENVELLIS_QUEUE\" \"$BRENVELLIS_SERVER\" \"$BRENVELLIS_OLD_STATUS\" "
      "\"$BRENVELLIS_STATUS\" \"$BRENVELLIS_CAUSE\" \"$BRENVELLIS_TEXT\" >>told; cat >>json");
  ASSERT_TRUE(shows(0));
  printer.tell("code 0x2660");
  ASSERT_TRUE(has_lines("told", 1));
  printer.tell("code 0; remaining 150");
  ASSERT_TRUE(has_lines("told", 2));
  monitor->signal(SIGTERM);
  EXPECT_EQ(monitor->exit_status(seconds(30)), 128 + SIGTERM);
  EXPECT_THAT(lines_of("told"),
              ElementsAre("booth|localhost|ok|trouble|error-0008-2660|booth: error 0008, code "
                          "2660. Look up 0008 / 2660 in the printer's manual.",
                          "booth|localhost|trouble|ok||booth: all well again, 150 of 400 "
                          "prints left (37 %)"));
  const auto objects = lines_of("json");
  ASSERT_EQ(objects.size(), 2U);
  for (const auto& object : objects) {
    EXPECT_EQ(schema_error(object), "");
  }
  EXPECT_EQ(nlohmann::json::parse(objects[0])["servers"][0]["queues"][0]["errors"][0]["code"], "2660");
  EXPECT_THAT(lines_of("errors"), testing::IsEmpty());
}

TEST_F(OnChange, TheFirstConditionIsNotToldUnlessThatIsWanted) {
  printer.tell("code 0x2660");
  scheduler.add_queue("booth", printer.device_uri());
  const std::string command = "echo \"$BRENVELLIS_QUEUE $BRENVELLIS_OLD_STATUS>$BRENVELLIS_STATUS\" >>";
  const auto quiet = start(command + "quiet");
  const auto eager = start(command + "eager", {"--on-change-at-start"});
  ASSERT_TRUE(has_lines("eager", 2));
  printer.tell("code 0");
  ASSERT_TRUE(has_lines("eager", 3));
  ASSERT_TRUE(has_lines("quiet", 1));
  EXPECT_THAT(lines_of("eager"), ElementsAre(" >ok", "booth >trouble", "booth trouble>ok"));
  EXPECT_THAT(lines_of("quiet"), ElementsAre("booth trouble>ok"));
}

TEST_F(OnChange, NoTextOfASchedulerIsReadByTheShell) {
  const std::string name = "a$(touch${IFS}stolen)`touch${IFS}stolen`'\"b;touch${IFS}stolen;";
  printer.tell("remaining 0");
  scheduler.add_queue(name, printer.device_uri());
  const auto monitor = start("printf '%s\\n' \"$BRENVELLIS_TEXT\" >>told", {"--on-change-at-start"});
  ASSERT_TRUE(has_lines("told", 2));
  EXPECT_THAT(lines_of("told"), Contains(HasSubstr(name + ": ")));
  EXPECT_FALSE(std::filesystem::exists(file("stolen")));
  EXPECT_FALSE(std::filesystem::exists("stolen"));
}

class EndedMonitorOnChange : public OnChange, public testing::WithParamInterface<int> {};

TEST_P(EndedMonitorOnChange, ACommandThatDoesNotEndHoldsNothingUpAndEndsToo) {
  scheduler.add_queue("booth", printer.device_uri());
  const auto monitor = start("echo $$ >>pids; sleep 1000 & echo $! >>pids; wait");
  ASSERT_TRUE(shows(0));
  printer.tell("code 0x2660");
  ASSERT_TRUE(has_lines("pids", 2));
  printer.tell("code 0; remaining 10");
  EXPECT_TRUE(shows(1));
  monitor->signal(GetParam());
  ASSERT_TRUE(monitor->wait(seconds(30)));
  const auto pids = lines_of("pids");
  EXPECT_EQ(pids.size(), 2U);
  for (const auto& pid : pids) {
    EXPECT_TRUE(is_gone(std::stoi(pid))) << pid;
  }
}

INSTANTIATE_TEST_SUITE_P(Signals, EndedMonitorOnChange, testing::Values(SIGTERM, SIGKILL));

TEST_F(OnChange, AFailureIsSaidOnStandardError) {
  scheduler.add_queue("booth", printer.device_uri());
  const auto monitor = start("echo oops >&2; exit 7");
  ASSERT_TRUE(shows(0));
  printer.tell("code 0x2660");
  ASSERT_TRUE(has_lines("errors", 2));
  EXPECT_THAT(lines_of("errors"),
              ElementsAre("oops",
                          "brenvellis-monitor: booth (trouble): the command of --on-change failed: exit "
                          "status 7"));
}

TEST_F(OnChange, APausedQueueAndAServerThatIsGoneAreTold) {
  scheduler.add_queue("booth", printer.device_uri());
  const auto monitor = start("printf '%s\\n' \"$BRENVELLIS_TEXT\" >>told");
  ASSERT_TRUE(shows(0));
  scheduler.pause("booth");
  ASSERT_TRUE(has_lines("told", 1));
  scheduler.kill();
  ASSERT_TRUE(has_lines("told", 2));
  EXPECT_THAT(lines_of("told"), ElementsAre("booth: paused. Resume the queue (sudo cupsenable booth).",
                                            HasSubstr("print server localhost: it cannot be reached")));
}

}  // namespace
