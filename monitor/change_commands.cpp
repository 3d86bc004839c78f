// SPDX-License-Identifier: Apache-2.0
#include "monitor/change_commands.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "monitor/run_command.h"
#include "monitor/spawn.h"
#include "monitor/views/change_view.h"

namespace {

using std::chrono::milliseconds;

/// Time for the last command to exit: more than run_command() takes.
constexpr milliseconds END_LIMIT{3000};
constexpr std::size_t LONGEST_FAILURE = 200;

/// A file in memory that holds the text, for reading from its start; -1 and errno if there is none.
int memory_file(std::string_view text) {
  const int file = memfd_create("brenvellis-monitor", MFD_CLOEXEC);
  while (file >= 0 && !text.empty()) {
    const auto count = write(file, text.data(), text.size());
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      close(file);
      errno = error;
      return -1;
    }
  }
  if (file >= 0) {
    lseek(file, 0, SEEK_SET);
  }
  return file;
}

/// This process's environment with these variables instead of any of the same names.
std::vector<std::string> environment_with(const std::map<std::string, std::string>& variables) {
  std::vector<std::string> environment;
  for (char** one = environ; *one != nullptr; ++one) {
    const std::string_view text = *one;
    if (!variables.contains(std::string(text.substr(0, text.find('='))))) {
      environment.emplace_back(text);
    }
  }
  for (const auto& [name, value] : variables) {
    environment.emplace_back(name).append("=").append(value);
  }
  return environment;
}

}  // namespace

ChangeCommands::ChangeCommands(Options options, std::function<void(const std::string&)> note)
    : options_(std::move(options)),
      note_(std::move(note)),
      watch_(options_.tell_first),
      events_(epoll_create1(EPOLL_CLOEXEC)) {
  if (events_ < 0) {
    throw std::system_error(errno, std::generic_category(), "epoll");
  }
}

ChangeCommands::~ChangeCommands() {
  for (const auto& one : running_) {
    kill(one.pid, end_signal());
  }
  const auto limit = std::chrono::steady_clock::now() + END_LIMIT;
  for (auto& one : running_) {
    while (!has_ended(one)) {
      const auto left = std::chrono::ceil<milliseconds>(limit - std::chrono::steady_clock::now());
      pollfd wait{one.output, POLLIN, 0};
      if (left <= milliseconds(0) || poll(&wait, 1, static_cast<int>(left.count())) == 0) {
        break;
      }
    }
    end(one);
  }
  close(events_);
}

void ChangeCommands::see(const Report& report) {
  watch_.see(report);
  start_waiting();
}

void ChangeCommands::serve() {
  for (auto one = running_.begin(); one != running_.end();) {
    if (!has_ended(*one)) {
      ++one;
      continue;
    }
    end(*one);
    watch_.told(one->server, one->queue);
    one = running_.erase(one);
  }
  start_waiting();
}

void ChangeCommands::start_waiting() {
  while (!winding_up_ && running_.size() < MOST) {
    const auto change = watch_.next();
    if (!change) {
      break;
    }
    start(*change);
  }
}

void ChangeCommands::start(const Change& change) {
  const auto what = change_name(change) + " (" + name_of(change.now.level) + ")";
  const auto fail = [&](int error) {
    watch_.told(change.server, change.queue);
    report_failure(what, std::strerror(error));
  };
  const int input = memory_file(change_json(change));
  if (input < 0) {
    return fail(errno);
  }
  std::array<int, 2> output{};
  if (pipe2(output.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    const int error = errno;
    close(input);
    return fail(error);
  }
  auto environment = environment_with(change_variables(change));
  std::vector<char*> pointers;
  pointers.reserve(environment.size() + 1);
  for (auto& variable : environment) {
    pointers.push_back(variable.data());
  }
  pointers.push_back(nullptr);
  pid_t pid = -1;
  const int error = spawn({options_.program,
                           {"brenvellis-monitor", RUN_OPTION, std::to_string(getpid()),
                            std::to_string(options_.limit.count()), options_.command},
                           input,
                           output[1],
                           pointers.data()},
                          pid);
  close(input);
  close(output[1]);
  if (error != 0) {
    close(output[0]);
    return fail(error);
  }
  epoll_event event{};
  event.events = EPOLLIN;
  epoll_ctl(events_, EPOLL_CTL_ADD, output[0], &event);
  running_.push_back({pid, output[0], change.server, change.queue, what, {}});
}

/// Takes what the process says, and whether it has ended.
bool ChangeCommands::has_ended(Running& one) {
  std::array<char, LONGEST_FAILURE> part{};
  for (;;) {
    const auto count = read(one.output, part.data(), part.size());
    if (count <= 0) {
      return count == 0 || (errno != EAGAIN && errno != EINTR);
    }
    one.failure.append(part.data(), static_cast<std::size_t>(count));
  }
}

/// Takes leave of the process, which has ended or does not do so in time.
void ChangeCommands::end(Running& one) {
  close(one.output);  // which takes it from the events, too
  int status = 0;
  kill(one.pid, SIGKILL);
  const pid_t ended = waitpid(one.pid, &status, 0);
  if (one.failure.empty() && ended == one.pid && WIFSIGNALED(status)) {
    one.failure = std::string("the process that runs it was ended: ") + strsignal(WTERMSIG(status));
  }
  if (!one.failure.empty()) {
    report_failure(one.what, one.failure);
  }
}

void ChangeCommands::report_failure(const std::string& what, const std::string& failure) const {
  note_(what + ": the command of --on-change failed: " + failure);
}
