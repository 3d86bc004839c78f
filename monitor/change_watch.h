// SPDX-License-Identifier: Apache-2.0
// The changes that --on-change reports.
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
  std::optional<Condition> old;  ///< nothing for the first condition
  Condition now;
  /// The report of the server when the condition was observed, with only this queue if there is one.
  Report report;
};

/// ChangeWatch decides which changes to report: each condition that was observed twice in a row and differs
/// from the last reported one. It performs no actions and has no clock.
///
/// While a change of a queue is being reported, further changes of this queue wait. Then the latest condition
/// is reported if it differs from the last reported one.
class ChangeWatch {
 public:
  /// @param tell_first  whether to report the first condition of each queue as well.
  explicit ChangeWatch(bool tell_first) : tell_first_(tell_first) {}

  /// Processes the next report. Queues that are not in it are forgotten.
  void see(const Report& report);

  /// Returns the next change to report. It is being reported until told() is called.
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
  /// The last reported conditions of queues that are not in the report at their previous place.
  std::map<std::string, std::optional<Condition>> lost_;
  std::uint64_t changes_ = 0;
};
