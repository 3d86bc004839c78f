// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "monitor/scheduler.h"
#include "monitor/server_name.h"

/// ServerProcess asks one print server through a process of its own, which is the only one that reads what
/// the server sends. A server that crashes it, fills its memory or never ends its answer costs one request:
/// the process is killed, and the next request starts another.
///
/// The process is this same program, see serve_requests(). SIGINT, SIGTERM and SIGHUP do not end it, since it
/// is needed to purge the last jobs; it ends with this object, and with this program however that ends.
class ServerProcess : public Scheduler {
 public:
  /// @param patience  how long each request may take.
  /// @param program   whose main() calls serve_requests().
  ServerProcess(ServerName server, http_encryption_t encryption, std::chrono::milliseconds patience,
                std::string program = "/proc/self/exe");
  ~ServerProcess() override;
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  void ask(const SchedulerRequest& request) override;
  [[nodiscard]] std::optional<SchedulerAnswer> take_answer() override;
  /// Readable, too, when the patience is over.
  [[nodiscard]] int descriptor() const override;
  void give_up() override;

  /// The process that runs now; -1 if none does.
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
  int timer_ = -1;   ///< readable when the patience is over
  int events_ = -1;  ///< readable when the socket or the timer is
  bool asked_ = false;
  std::optional<SchedulerError> at_once_;
  std::string received_;
};
