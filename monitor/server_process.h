// SPDX-License-Identifier: Apache-2.0
// The print server behind a child process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "monitor/scheduler.h"
#include "monitor/server_name.h"

/// ServerProcess queries a print server through a child process, which alone reads the server's data. If a
/// server crashes it, fills its memory or sends an endless answer, one request fails: the process is killed,
/// and the next request starts a new one.
///
/// The child process runs this program; see serve_requests(). It ignores SIGINT, SIGTERM and SIGHUP, because
/// it is needed to purge the last jobs. It exits when this object is destroyed and when this program exits
/// for any reason.
class ServerProcess : public Scheduler {
 public:
  /// @param patience  the time limit of each request.
  /// @param program   the program whose main() calls serve_requests().
  ServerProcess(ServerName server, http_encryption_t encryption, std::chrono::milliseconds patience,
                std::string program = "/proc/self/exe");
  ~ServerProcess() override;
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  void ask(const SchedulerRequest& request) override;
  [[nodiscard]] std::optional<SchedulerAnswer> take_answer() override;
  /// Also readable when the time limit has passed.
  [[nodiscard]] int descriptor() const override;
  void give_up() override;

  /// Returns the id of the running process; -1 if there is none.
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  void start();
  int end();
  void answer_at_once(SchedulerError error);
  [[nodiscard]] bool is_usable() const;
  [[nodiscard]] std::optional<SchedulerAnswer> read_answer();

  ServerName server_;
  http_encryption_t encryption_;
  std::chrono::milliseconds patience_;
  std::string program_;

  pid_t pid_ = -1;
  int socket_ = -1;
  int timer_ = -1;   ///< readable when the time limit has passed
  int events_ = -1;  ///< readable when the socket or the timer is
  bool asked_ = false;
  std::optional<SchedulerError> at_once_;
  std::string received_;
};
