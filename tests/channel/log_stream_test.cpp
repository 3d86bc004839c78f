// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>

#include "tests/channel/filter_run.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

namespace {

/// SlowTerminal is a terminal whose reader reads slowly and sometimes stops the output with Control-S.
class SlowTerminal {
 public:
  SlowTerminal() : reader_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_EQ(grantpt(reader_), 0);
    EXPECT_EQ(unlockpt(reader_), 0);
    writer_ = open(ptsname(reader_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    EXPECT_EQ(tcgetattr(writer_, &settings), 0);
    cfmakeraw(&settings);
    settings.c_iflag |= IXON;
    EXPECT_EQ(tcsetattr(writer_, TCSANOW, &settings), 0);
  }
  ~SlowTerminal() {
    close_writer();
    close(reader_);
  }
  SlowTerminal(const SlowTerminal&) = delete;
  SlowTerminal& operator=(const SlowTerminal&) = delete;

  [[nodiscard]] int writer() const { return writer_; }
  void close_writer() {
    if (writer_ >= 0) {
      close(writer_);
      writer_ = -1;
    }
  }

  void stop_output() const { press('\x13'); }
  void continue_output() const { press('\x11'); }

  /// @return up to 300 bytes; nothing when all writers have closed the terminal.
  [[nodiscard]] std::string read_some() const {
    std::array<char, 300> text{};
    const ssize_t count = read(reader_, text.data(), text.size());
    return {text.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
  }

 private:
  void press(char key) const { EXPECT_EQ(write(reader_, &key, 1), 1); }

  int reader_;
  int writer_ = -1;
};

/// Stops the process, waits until it has stopped or ended, and lets it go on.
void stop_and_continue(const ChildProcess& process) {
  process.signal(SIGSTOP);
  siginfo_t state{};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(process.pid()), &state, WSTOPPED | WEXITED | WNOWAIT), 0);
  process.signal(SIGCONT);
}

TEST(LogStream, ATerminalThatStopsAndContinuesLosesNothing) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "commands";
  std::ofstream commands(path);
  for (int i = 0; i < 20; ++i) {
    commands << "ReportStatus\n";
  }
  commands.close();
  const std::vector<std::string> words = {FILTER_PROGRAM, "1", "user", "title", "1", "", path};
  const std::string expected = run_program(words).errors;

  SlowTerminal terminal;
  ChildProcess filter({words, {{2, terminal.writer()}}, {}});
  terminal.close_writer();
  std::string log;
  bool stop = false;
  for (std::string text; !(text = terminal.read_some()).empty(); stop = !stop) {
    log += text;
    if (stop) {
      terminal.stop_output();
    }
    stop_and_continue(filter);
    if (stop) {
      terminal.continue_output();
    }
  }
  EXPECT_EQ(filter.exit_status(std::chrono::seconds(30)), 0);
  EXPECT_EQ(log.size(), expected.size());
  EXPECT_EQ(log, expected);
}

TEST(LogStream, EveryLineLeavesInOneWrite) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {levels_reply(200, 400, 2, 512)}});
  filter.replies.push_back({.pieces = {status_reply(0x2660)}});
  filter.run_file("ReportLevels\n" + std::string(1023, 'x') + "\n");
  EXPECT_EQ(filter.exit_status, 0);
  EXPECT_EQ(filter.writes.size(), static_cast<std::size_t>(std::ranges::count(filter.log, '\n')));
  for (const auto& line : filter.writes) {
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
  }
}

TEST(LogStream, EveryLineCarriesALogPrefix) {
  FilterRun filter;
  filter.replies.push_back({.pieces = {levels_reply(200, 400, 2, 512)}});
  filter.replies.push_back({.pieces = {status_reply(0x2660)}});
  filter.run_file("ReportLevels\nOther\n");
  for (const auto& line : filter.writes) {
    EXPECT_THAT(line, testing::AnyOf(testing::StartsWith("DEBUG: "), testing::StartsWith("STATE: "),
                                     testing::StartsWith("ATTR: ")));
  }
}

}  // namespace
