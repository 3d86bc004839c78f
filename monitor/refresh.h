#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "monitor/refresh_client.h"
#include "monitor/report.h"

/// A print server and the name under which it is shown.
struct Server {
  std::string label;
  ServerName name;
};

/// What to refresh, and how long to wait for it.
struct RefreshOptions {
  std::vector<Server> servers;
  std::vector<std::string> queues;  ///< empty: every Brenvellis printer's
  bool refresh = true;              ///< false: only read
  bool wait = false;                ///< also for queues that are busy, paused or rejecting
  std::chrono::seconds timeout{30};
  http_encryption_t encryption = HTTP_ENCRYPTION_IF_REQUESTED;
  int low_percent = 10;
};

/// How far a refresh has come, for whoever shows it.
struct Progress {
  std::atomic<int> asked = 0;
  std::atomic<int> answered = 0;
};

/// Refreshes the queues of all servers at once and reads them. Command jobs that have not ended at the
/// time-out, or when `stop` is set, are cancelled before this returns.
[[nodiscard]] Report refresh(const RefreshOptions& options, Progress& progress, StopRequest& stop);
