// SPDX-License-Identifier: Apache-2.0
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

/// WatchLoop is what watch() needs of its caller.
struct WatchCaller {
  /// Is given a report: once at the end, or again and again. False ends the watch.
  std::function<bool(const Report&)> show;
  /// Is told how many queues were sent a command job and how many of them have answered.
  std::function<void(std::size_t answered, std::size_t sent)> progress;
  /// Is given a text for the user.
  std::function<void(const std::string&)> note;
  /// Takes what a watch reports; may be null.
  ChangeCommands* changes = nullptr;
  /// Readable when the user wants to end it; -1: never.
  int stop = -1;
  /// Without a reader, it ends; -1: nothing is written that needs one.
  int output = -1;
};

/// Why a watch ended.
enum class WatchEnd : std::uint8_t {
  Done,        ///< all were asked once
  Stopped,     ///< the user wanted it
  OutputLost,  ///< nothing reads the output any more, or show() said so
};

/// Watches the queues of all servers at once, in one thread. Its command jobs are purged when it returns.
/// @param queues  those to look after; empty: every Brenvellis printer's.
[[nodiscard]] WatchEnd watch(std::vector<WatchedServer>& servers, const std::vector<std::string>& queues,
                             const WatchRules& rules, const WatchCaller& caller);
