// SPDX-License-Identifier: Apache-2.0
// The commands of --on-change.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "monitor/change_watch.h"

/// ChangeCommands runs the user's command for each change of a watch, in the background. At most one command
/// per queue and MOST commands in total run at a time; the others wait.
///
/// The command is the child of a process of this program (see run_command()), which stops it after its time
/// limit and when this program exits for any reason. The command's input is complete before it starts, so
/// nothing waits for it.
class ChangeCommands {
 public:
  static constexpr std::size_t MOST = 8;

  struct Options {
    std::string command;                     ///< for /bin/sh
    bool tell_first = false;                 ///< run it for the first condition of each queue, too
    std::chrono::milliseconds limit{30000};  ///< the time limit of a command
    std::string program = "/proc/self/exe";  ///< the program whose main() calls run_command()
  };

  /// Throws std::system_error if the kernel has no resources left.
  /// @param note  receives messages for the user.
  ChangeCommands(Options options, std::function<void(const std::string&)> note);
  /// Stops the running commands. Waits for them for at most 3 seconds.
  ~ChangeCommands();
  ChangeCommands(const ChangeCommands&) = delete;
  ChangeCommands& operator=(const ChangeCommands&) = delete;

  /// Processes the next report of the watch.
  void see(const Report& report);
  /// Handles commands that have exited, and starts waiting ones.
  void serve();
  /// Readable when serve() has something to do.
  [[nodiscard]] int descriptor() const { return events_; }

  /// Starts no more commands.
  void wind_up() { winding_up_ = true; }
  [[nodiscard]] bool is_running() const { return !running_.empty(); }

 private:
  struct Running {
    pid_t pid;
    int output;  ///< ends with the process
    std::string server;
    std::string queue;
    std::string what;  ///< for a person
    std::string failure;
  };

  void start_waiting();
  void start(const Change& change);
  [[nodiscard]] static bool has_ended(Running& one);
  void end(Running& one);
  void report_failure(const std::string& what, const std::string& failure) const;

  Options options_;
  std::function<void(const std::string&)> note_;
  ChangeWatch watch_;
  std::vector<Running> running_;
  int events_;
  bool winding_up_ = false;
};
