// SPDX-License-Identifier: Apache-2.0
// Tests how the commands for changes run: in the background of the watch, isolated from it, and with a time
// limit.

#include "monitor/change_commands.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"
#include "tests/unit/sample_report.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

bool exists(pid_t pid) {
  return kill(pid, 0) == 0 || errno != ESRCH;
}

class Commands : public testing::Test {
 protected:
  /// Starts the commands of a watch.
  void watch(const std::string& command, milliseconds limit = seconds(60)) {
    commands.emplace(ChangeCommands::Options{.command = "cd '" + folder.path().string() + "'; " + command,
                                             .limit = limit,
                                             .program = MONITOR_PROGRAM},
                     [this](const std::string& note) { notes.push_back(note); });
    see(queues(200));
  }
  /// The queues have changed, and it has been seen twice.
  void change(int remaining) {
    see(queues(remaining));
    see(queues(remaining));
  }
  void see(std::vector<QueueReport> list) {
    ++sighting_;
    for (auto& queue : list) {
      queue.sightings = sighting_;
    }
    Report report;
    report.servers = {{"localhost", {}, 0, std::move(list), sighting_}};
    commands->see(report);
  }
  [[nodiscard]] std::vector<QueueReport> queues(int remaining) const {
    std::vector<QueueReport> list;
    for (const auto& name : names) {
      list.push_back(refreshed(ribbon_reading(name, remaining, 400, "10")));
    }
    return list;
  }
  /// Serves the commands until the condition is met.
  bool serve_until(const std::function<bool()>& condition) {
    for (const auto end = steady_clock::now() + seconds(60); steady_clock::now() < end;) {
      if (condition()) {
        return true;
      }
      pollfd wait{commands->descriptor(), POLLIN, 0};
      if (poll(&wait, 1, 20) == 1) {
        commands->serve();
      }
    }
    return false;
  }
  bool serve_to_the_end() {
    return serve_until([this] { return !commands->is_running(); });
  }
  [[nodiscard]] std::vector<std::string> lines_of(const std::string& name) const {
    std::ifstream file(folder.path() / name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  /// Waits for the lines of a file, which are process ids.
  std::vector<pid_t> wait_for_pids(const std::string& name, std::size_t count) {
    EXPECT_TRUE(serve_until([&] { return lines_of(name).size() == count; }));
    std::vector<pid_t> pids;
    for (const auto& line : lines_of(name)) {
      pids.push_back(std::stoi(line));
    }
    return pids;
  }
  static bool are_gone(const std::vector<pid_t>& pids) {
    for (const auto end = steady_clock::now() + seconds(30); steady_clock::now() < end;) {
      if (std::ranges::none_of(pids, exists)) {
        return true;
      }
      std::this_thread::sleep_for(milliseconds(10));
    }
    return false;
  }

  TemporaryFolder folder;
  std::vector<std::string> names = {"booth"};
  std::vector<std::string> notes;
  std::optional<ChangeCommands> commands;

 private:
  unsigned sighting_ = 0;
};

TEST_F(Commands, GetTheChangeInTheirEnvironmentAndOnTheirInput) {
  watch(
      "printf '%s\\n' \"$BRENVELLIS_TEXT\" \"$BRENVELLIS_OLD_STATUS\" \"$BRENVELLIS_STATUS\" >told; cat "
      ">json");
  change(0);
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_THAT(lines_of("told"), ElementsAre("booth: ribbon empty. Load a new ribbon.", "ok", "trouble"));
  EXPECT_THAT(lines_of("json"), ElementsAre(HasSubstr("\"prints_remaining\":0")));
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(Commands, ReplaceVariablesOfTheSameNames) {
  setenv("BRENVELLIS_TEXT", "forged", 1);
  watch("env | grep -c ^BRENVELLIS_TEXT= >count; printf '%s\\n' \"$BRENVELLIS_TEXT\" >told");
  unsetenv("BRENVELLIS_TEXT");
  change(0);
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_THAT(lines_of("told"), ElementsAre(HasSubstr("ribbon empty")));
  EXPECT_THAT(lines_of("count"), ElementsAre("1"));
}

TEST_F(Commands, NeedNotReadTheirInputHoweverLongItIs) {
  watch("[ \"$BRENVELLIS_QUEUE\" = reader ] && wc -c >count; true");
  names = {"booth", "reader"};
  auto list = queues(0);
  see(queues(200));
  for (auto& queue : list) {
    queue.reading.markers.assign(200, {std::string(1000, 'n'), std::string(1000, 't'), 5});
  }
  see(list);
  see(list);
  ASSERT_TRUE(serve_to_the_end());
  ASSERT_THAT(lines_of("count"), SizeIs(1));
  EXPECT_GT(std::stoi(lines_of("count")[0]), 400000);
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(Commands, RunOneAtATimeForEachQueueAndTheNewestChangeAfterIt) {
  watch("echo $BRENVELLIS_CAUSE >>told; while [ ! -e go ]; do sleep 0.02; done");
  change(0);
  change(8);
  change(200);
  change(12);
  ASSERT_TRUE(serve_until([&] { return !lines_of("told").empty(); }));
  EXPECT_THAT(lines_of("told"), ElementsAre("empty"));
  std::ofstream(folder.path() / "go") << "go";
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_THAT(lines_of("told"), ElementsAre("empty", "low"));
}

TEST_F(Commands, RunForManyQueuesButNotAllAtOnce) {
  names.clear();
  for (char letter = 'a'; letter <= 't'; ++letter) {
    names.emplace_back(1, letter);
  }
  watch("echo $BRENVELLIS_QUEUE >>told; while [ ! -e go ]; do sleep 0.02; done");
  change(0);
  ASSERT_TRUE(serve_until([&] { return lines_of("told").size() == ChangeCommands::MOST; }));
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_THAT(lines_of("told"), SizeIs(ChangeCommands::MOST));
  std::ofstream(folder.path() / "go") << "go";
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_THAT(lines_of("told"), SizeIs(20));
}

TEST_F(Commands, ThatFailAreReportedWithQueueAndStatus) {
  watch("exit 3");
  change(0);
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_THAT(notes, ElementsAre("booth (trouble): the command of --on-change failed: exit status 3"));
}

TEST_F(Commands, ThatAreKilledAreReported) {
  watch("kill -SEGV $$");
  change(40);
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_THAT(notes, ElementsAre("booth (attention): the command of --on-change failed: it was ended by a "
                                 "signal: Segmentation fault"));
}

TEST_F(Commands, ThatCannotBeStartedAreReportedAndDoNotBlockTheNext) {
  commands.emplace(ChangeCommands::Options{.command = "true", .program = "/nonexistent/monitor"},
                   [this](const std::string& note) { notes.push_back(note); });
  see(queues(200));
  change(0);
  change(200);
  const std::string why = ": the command of --on-change failed: No such file or directory";
  EXPECT_THAT(notes, ElementsAre("booth (trouble)" + why, "booth (ok)" + why));
}

TEST_F(Commands, AreEndedWithTheirWholeGroupWhenTheirTimeIsOver) {
  watch("trap '' TERM; echo $$ >>pids; (trap '' TERM; exec sleep 1000) & echo $! >>pids; sleep 1000",
        milliseconds(1000));
  change(0);
  const auto pids = wait_for_pids("pids", 2);
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_TRUE(are_gone(pids));
  EXPECT_THAT(notes, ElementsAre("booth (trouble): the command of --on-change failed: it had not ended after "
                                 "1 second"));
}

TEST_F(Commands, LeaveNothingInTheBackground) {
  watch("sleep 1000 & echo $! >pids");
  change(0);
  const auto pids = wait_for_pids("pids", 1);
  ASSERT_TRUE(serve_to_the_end());
  EXPECT_TRUE(are_gone(pids));
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(Commands, AreEndedWithTheWatch) {
  watch("echo $$ >>pids; sleep 1000 & echo $! >>pids; sleep 1000");
  change(0);
  const auto pids = wait_for_pids("pids", 2);
  commands.reset();
  EXPECT_TRUE(are_gone(pids));
  EXPECT_THAT(notes, ElementsAre("booth (trouble): the command of --on-change failed: it had not ended when "
                                 "the monitor did"));
}

TEST_F(Commands, AreNotStartedWhenTheWatchEnds) {
  watch("echo told >>told");
  commands->wind_up();
  change(0);
  EXPECT_FALSE(commands->is_running());
}

TEST_F(Commands, InheritNoDescriptorAndNoSignalThatIsIgnoredOrBlocked) {
  const int descriptor = open("/dev/null", O_RDONLY);  // which is not closed by an exec
  ASSERT_GT(descriptor, STDERR_FILENO);
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction before {};
  sigaction(SIGPIPE, &ignored, &before);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &blocked, &mask);
  watch(
      "for i in 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do [ ! -e /proc/$$/fd/$i ] || echo $i; done >files; "
      "sed -n 's/^Sig\\(Blk\\|Ign\\):[^0-9a-f]*//p' /proc/self/status >signals");
  change(0);
  EXPECT_TRUE(serve_to_the_end());
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  sigaction(SIGPIPE, &before, nullptr);
  close(descriptor);
  // The shell has its own copy of descriptor 1 while it writes to a file.
  const auto files = lines_of("files");
  EXPECT_THAT(files, ElementsAre("0", "1", "2", "10"));
  const auto signals = lines_of("signals");
  ASSERT_EQ(signals.size(), 2U);
  EXPECT_EQ(std::stoull(signals[0], nullptr, 16), 0U);
  // posix_spawn() leaves the two signals that are the C library's own ignored.
  EXPECT_EQ(std::stoull(signals[1], nullptr, 16) & ~0x180000000ULL, 0U);
}

}  // namespace
