// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// ChildProcess is a program that a test started. It is ended by its process id when the object goes.
class ChildProcess {
 public:
  struct Options {
    std::vector<std::string> arguments;  ///< the program's path first
    std::map<int, int> descriptors;      ///< the child's descriptor -> ours; all others are closed but 0-2
    std::map<std::string, std::string> environment;  ///< set on top of ours
  };

  explicit ChildProcess(const Options& options);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /// @return the wait status, or nothing if the child still runs after `limit`.
  std::optional<int> wait(std::chrono::milliseconds limit);
  /// Sends the signal, unless the child has been waited for.
  void signal(int number) const;
  /// @return the exit status; -1 if it ended otherwise or still runs after `limit`.
  int exit_status(std::chrono::milliseconds limit);

 private:
  pid_t pid_ = -1;
  std::optional<int> status_;
};

/// The output and exit status of a program that has exited.
struct ProgramResult {
  int exit_status = -1;  ///< -1 if a signal ended it
  std::string output;    ///< standard output
  std::string errors;    ///< standard error
};

/// Runs a program to its end with `input` as its standard input (at most 64 KiB).
ProgramResult run_program(const std::vector<std::string>& arguments, const std::string& input = {},
                          const std::map<std::string, std::string>& environment = {});
