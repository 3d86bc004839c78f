// SPDX-License-Identifier: Apache-2.0
#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

ChildProcess::ChildProcess(const Options& options) {
  std::vector<char*> arguments;
  for (const auto& argument : options.arguments) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);

  pid_ = fork();
  if (pid_ < 0) {
    throw std::runtime_error("fork() failed");
  }
  if (pid_ == 0) {
    // First out of the way of every target number, then to its place.
    std::map<int, int> moved;
    for (const auto& [child, ours] : options.descriptors) {
      moved[child] = fcntl(ours, F_DUPFD, 100);
    }
    for (const auto& [child, ours] : moved) {
      dup2(ours, child);
    }
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
      if (!options.descriptors.contains(descriptor)) {
        close(descriptor);
      }
    }
    for (const auto& [name, value] : options.environment) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    std::signal(SIGPIPE, SIG_DFL);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
}

ChildProcess::~ChildProcess() {
  if (!status_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

std::optional<int> ChildProcess::wait(milliseconds limit) {
  const auto deadline = steady_clock::now() + limit;
  while (!status_) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      status_ = status;
    } else if (steady_clock::now() >= deadline) {
      break;
    } else {
      std::this_thread::sleep_for(milliseconds(2));
    }
  }
  return status_;
}

void ChildProcess::signal(int number) const {
  if (!status_) {
    kill(pid_, number);
  }
}

int ChildProcess::exit_status(milliseconds limit) {
  const auto status = wait(limit);
  return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

ProgramResult run_program(const std::vector<std::string>& arguments, const std::string& input,
                          const std::map<std::string, std::string>& environment) {
  std::array<std::array<int, 2>, 3> pipes{};
  for (auto& ends : pipes) {
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe2() failed");
    }
  }
  // A pipe holds 64 KiB, so writing this does not require a reader.
  if (write(pipes[0][1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
    throw std::runtime_error("the input does not fit into a pipe");
  }
  close(pipes[0][1]);

  ChildProcess child({arguments, {{0, pipes[0][0]}, {1, pipes[1][1]}, {2, pipes[2][1]}}, environment});
  close(pipes[0][0]);
  close(pipes[1][1]);
  close(pipes[2][1]);

  ProgramResult result;
  std::array<pollfd, 2> readers = {{{pipes[1][0], POLLIN, 0}, {pipes[2][0], POLLIN, 0}}};
  const std::array<std::string*, 2> texts = {&result.output, &result.errors};
  while (readers[0].fd >= 0 || readers[1].fd >= 0) {
    poll(readers.data(), readers.size(), -1);
    for (std::size_t i = 0; i < readers.size(); ++i) {
      if (readers[i].fd >= 0 && readers[i].revents != 0) {
        std::array<char, 4096> buffer{};
        const ssize_t count = read(readers[i].fd, buffer.data(), buffer.size());
        if (count > 0) {
          texts[i]->append(buffer.data(), static_cast<std::size_t>(count));
        } else {
          close(readers[i].fd);
          readers[i].fd = -1;
        }
      }
    }
  }
  result.exit_status = child.exit_status(std::chrono::minutes(1));
  return result;
}
