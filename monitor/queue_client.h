// SPDX-License-Identifier: Apache-2.0
// The IPP client of a print server.
#pragma once

#include <cups/cups.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/scheduler.h"
#include "monitor/server_name.h"

/// QueueClient is a connection to a scheduler, which is opened on first use and kept. Its calls have no time
/// limit, so it must run in a process that another process can kill.
class QueueClient {
 public:
  struct DeleteMessage {
    void operator()(ipp_t* message) const { ippDelete(message); }
  };
  using Message = std::unique_ptr<ipp_t, DeleteMessage>;

  /// @param connect_limit  how long an attempt to connect may take.
  QueueClient(ServerName server, http_encryption_t encryption, std::chrono::milliseconds connect_limit);

  [[nodiscard]] SchedulerAnswer ask(const SchedulerRequest& request);

 private:
  struct CloseConnection {
    void operator()(http_t* connection) const { httpClose(connection); }
  };

  SchedulerAnswer ask_for(const LookRequest& request);
  SchedulerAnswer ask_for(const SendRequest& request);
  SchedulerAnswer ask_for(const PurgeRequest& request);
  bool read(const std::vector<std::string>& names, std::vector<Reading>& readings);

  bool cancel(const PurgeRequest& request, bool purge);
  std::optional<bool> is_own_job(const PurgeRequest& request);
  bool connect();
  Message exchange(const Message& request, const std::string& resource, std::string_view document = {});
  Message take_answer(ipp_op_t operation);
  [[nodiscard]] SchedulerError why_no_answer(http_status_t status) const;

  ServerName server_;
  http_encryption_t encryption_;
  std::chrono::milliseconds connect_limit_;
  std::unique_ptr<http_t, CloseConnection> connection_;
  bool has_looked_ = false;  ///< over this connection
  SchedulerError error_;     ///< of the last exchange, if it failed
};
