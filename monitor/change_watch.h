// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "monitor/condition.h"
#include "monitor/report.h"

/// Change is a new condition of a queue, or of a print server itself.
struct Change {
  std::string server;
  std::string queue;             ///< empty: the server itself
  std::optional<Condition> old;  ///< nothing for the first one that is told
  Condition now;
  /// Of the server, with this queue alone if there is one, from when the condition was seen.
  Report report;
};

/// ChangeWatch finds out from the reports of a watch what is to be told: each condition that was seen twice
/// in a row and is not the one that was told last. It does nothing itself and has no clock.
///
/// A change that comes while another of the same queue is being told waits, and the newest condition is told
/// after it, unless it is again the one that was told.
class ChangeWatch {
 public:
  /// @param tell_first  whether the first condition of each queue is told, too.
  explicit ChangeWatch(bool tell_first) : tell_first_(tell_first) {}

  /// Takes the next report. Queues that are not in it are forgotten.
  void see(const Report& report);

  /// What is to be told next; it counts as being told until told() says so.
  [[nodiscard]] std::optional<Change> next();
  void told(const std::string& server, const std::string& queue);

 private:
  using Name = std::pair<std::string, std::string>;  ///< server and queue

  struct Entry {
    std::optional<Condition> told;
    Condition seen;
    unsigned sighting = 0;  ///< the number of the last one
    unsigned times = 0;     ///< how often `seen` was seen in a row
    bool present = false;   ///< in the last report
    bool telling = false;
    std::optional<Change> waiting;
    std::uint64_t waiting_since = 0;  ///< a number that grows
  };

  Entry& entry_of(const Name& name);
  void mark_present(const Report& report);
  void see(const Name& name, unsigned sighting, const Condition& condition, const Report& report,
           const ServerReport& server, const QueueReport* queue);

  bool tell_first_;
  bool has_begun_ = false;
  std::map<Name, Entry> entries_;
  /// What was last told of the queues that are not in the report at their old place.
  std::map<std::string, std::optional<Condition>> lost_;
  std::uint64_t changes_ = 0;
};
