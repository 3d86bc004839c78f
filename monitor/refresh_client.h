#pragma once

#include <cups/cups.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "monitor/reading.h"
#include "monitor/server_name.h"

/// StopRequest says that the user wants the program to end. A signal handler sets both.
struct StopRequest {
  std::atomic<int> signal = 0;  ///< the signal that said so; 0 if none did
  int connecting = 0;           ///< for the CUPS library, which knows no atomics
};

/// RefreshClient is one connection to one scheduler. It belongs to the thread that made it. Every call
/// returns nothing (or false) on failure, and error() says why.
class RefreshClient {
 public:
  /// @param patience  how long one request may take, however busily the server sends.
  /// @param stop      ends an attempt to connect, and a request within a moment.
  RefreshClient(ServerName server, http_encryption_t encryption, std::chrono::seconds patience,
                StopRequest& stop);

  [[nodiscard]] bool connect();

  /// All requests from now on together may take so long; those after `stop` have a few seconds anyway.
  void finish_within(std::chrono::milliseconds limit);

  [[nodiscard]] const std::string& error() const { return error_; }

  /// All printers' queues of the scheduler.
  [[nodiscard]] std::optional<std::vector<Reading>> read_queues();

  /// How many jobs that are no command jobs print or wait for their turn in each queue; held ones do neither.
  [[nodiscard]] std::optional<std::map<std::string, int>> count_print_jobs();

  /// Sends a queue the command ReportLevels and returns the job's number.
  /// @param lifetime  after which the scheduler itself cancels the job, should this process not live to do
  /// so.
  [[nodiscard]] std::optional<int> send_report_levels(const std::string& queue,
                                                      std::chrono::seconds lifetime);

  /// The states of this user's jobs from the number `first` on.
  [[nodiscard]] std::optional<std::map<int, ipp_jstate_t>> job_states(int first);

  /// Cancels a job of this user.
  /// @param by_force  kills its filter and backend instead of asking them to end, and forgets the job.
  bool cancel(const std::string& queue, int job, bool by_force);

 private:
  struct CloseConnection {
    void operator()(http_t* connection) const { httpClose(connection); }
  };
  struct DeleteAnswer {
    void operator()(ipp_t* answer) const { ippDelete(answer); }
  };
  using Answer = std::unique_ptr<ipp_t, DeleteAnswer>;

  Answer ask(ipp_t* request, const std::string& resource, int document = -1);
  static int may_wait_longer(http_t* connection, void* client);
  [[nodiscard]] std::jthread watch(std::chrono::steady_clock::time_point limit);
  [[nodiscard]] std::string why_no_answer() const;

  ServerName server_;
  http_encryption_t encryption_;
  std::chrono::seconds patience_;
  std::chrono::steady_clock::time_point finish_at_ = std::chrono::steady_clock::time_point::max();
  bool stopped_ = false;                ///< a request saw the user's wish to end
  std::atomic<bool> given_up_ = false;  ///< the request that runs or ran last
  bool answered_ = false;               ///< it, if with a refusal
  StopRequest& stop_;
  std::unique_ptr<http_t, CloseConnection> connection_;
  std::string error_;
};
