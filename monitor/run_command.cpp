// SPDX-License-Identifier: Apache-2.0
#include "monitor/run_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int RUN_ARGUMENTS = 5;
/// Between SIGTERM and SIGKILL.
constexpr milliseconds GRACE{1000};

enum class Event : std::uint8_t { Ended, TimeOver, ToEnd };

/// Starts the command as the leader of a process group, with no descriptor but 0 to 2 and all signals as
/// they are by default.
int start(const char* command, pid_t& pid) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  const std::array<const char*, 4> arguments = {"sh", "-c", command, nullptr};
  const int error =
      posix_spawn(&pid, "/bin/sh", &files, &attributes, const_cast<char* const*>(arguments.data()), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return error;
}

/// Whether the process has ended. It is not waited for yet: its number still stands for its group.
bool has_ended(pid_t pid) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

Event wait_for(pid_t pid, milliseconds limit, const sigset_t& signals) {
  const auto end = steady_clock::now() + limit;
  while (!has_ended(pid)) {
    const auto left = std::max(std::chrono::ceil<milliseconds>(end - steady_clock::now()), milliseconds(0));
    const timespec time = {left.count() / 1000, left.count() % 1000 * 1000000};
    const int signal = sigtimedwait(&signals, nullptr, &time);
    if (signal == end_signal()) {
      return Event::ToEnd;
    }
    if (signal < 0 && errno == EAGAIN) {
      return Event::TimeOver;
    }
  }
  return Event::Ended;
}

std::string failure_of(int status) {
  if (WIFSIGNALED(status)) {
    return std::string("it was ended by a signal: ") + strsignal(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? std::string() : "exit status " + std::to_string(WEXITSTATUS(status));
}

std::string seconds_text(milliseconds limit) {
  const auto count = std::chrono::ceil<std::chrono::seconds>(limit).count();
  return std::to_string(count) + (count == 1 ? " second" : " seconds");
}

/// Runs the command to its end. Returns why it failed.
std::string run(const char* command, milliseconds limit, const sigset_t& signals) {
  pid_t pid = -1;
  if (const int error = start(command, pid); error != 0) {
    return std::string("/bin/sh: ") + std::strerror(error);
  }
  const auto event = wait_for(pid, limit, signals);
  if (event != Event::Ended) {
    kill(-pid, SIGTERM);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    wait_for(pid, GRACE, child);
  }
  kill(-pid, SIGKILL);  // and what the command has left behind
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  switch (event) {
    case Event::Ended:
      return failure_of(status);
    case Event::TimeOver:
      return "it had not ended after " + seconds_text(limit);
    case Event::ToEnd:
      break;
  }
  return "it had not ended when the monitor did";
}

}  // namespace

int end_signal() {
  return SIGUSR1;
}

std::optional<int> run_command(int argc, char** argv) {
  if (argc != RUN_ARGUMENTS || std::string_view(argv[1]) != RUN_OPTION) {
    return std::nullopt;
  }
  sigset_t signals;
  sigfillset(&signals);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  sigemptyset(&signals);
  sigaddset(&signals, SIGCHLD);
  sigaddset(&signals, end_signal());
  std::signal(SIGCHLD, SIG_DFL);
  std::signal(end_signal(), SIG_DFL);
  prctl(PR_SET_PDEATHSIG, end_signal());
  if (getppid() != std::atoi(argv[2])) {
    return 0;
  }
#ifdef SYS_close_range
  syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
#endif
  const auto failure = run(argv[4], milliseconds(std::atoi(argv[3])), signals);
  static_cast<void>(!write(STDOUT_FILENO, failure.data(), failure.size()));
  return 0;
}
