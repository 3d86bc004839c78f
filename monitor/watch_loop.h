// SPDX-License-Identifier: Apache-2.0
// The loop that queries all print servers and shows reports.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "monitor/change_commands.h"
#include "monitor/server_watch.h"

/// A print server and the name under which it is shown.
struct WatchedServer {
  std::string label;
  std::unique_ptr<Scheduler> scheduler;
};

/// WatchCaller holds the callbacks and descriptors that watch() uses.
struct WatchCaller {
  /// Receives a report: once at the end, or repeatedly in a watch. Returning false stops the watch.
  std::function<bool(const Report&)> show;
  /// Receives the number of queues that have answered, and the number of queues that were sent a command job.
  std::function<void(std::size_t answered, std::size_t sent)> progress;
  /// Receives a message for the user.
  std::function<void(const std::string&)> note;
  /// Receives the reports of a watch; may be null.
  ChangeCommands* changes = nullptr;
  /// Readable when the user wants to stop; -1 if never.
  int stop = -1;
  /// The watch stops if this pipe has no reader; -1 if there is none.
  int output = -1;
};

/// Why a watch stopped.
enum class WatchEnd : std::uint8_t {
  Done,        ///< all queues were queried once
  Stopped,     ///< by the user
  OutputLost,  ///< the output was closed, or show() returned false
};

/// Watches the queues of all servers in one thread. Purges its command jobs before it returns.
/// @param queues  the queues to watch; empty for all Brenvellis queues.
[[nodiscard]] WatchEnd watch(std::vector<WatchedServer>& servers, const std::vector<std::string>& queues,
                             const WatchRules& rules, const WatchCaller& caller);
