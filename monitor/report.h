// SPDX-License-Identifier: Apache-2.0
// The report that all views show.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "monitor/limit.h"
#include "monitor/reading.h"

/// Outcome is the result of refreshing a queue.
enum class Outcome : std::uint8_t {
  Refreshed,    ///< the printer was queried; the values are new
  NotAsked,     ///< no refresh was requested, or the values are new enough
  Asking,       ///< the printer has not answered yet
  Busy,         ///< not queried: the queue is printing
  Paused,       ///< not queried: an operator paused the queue
  Stopped,      ///< not queried: the scheduler stopped the queue after an error
  Rejecting,    ///< not queried: the queue rejects jobs
  Unsupported,  ///< not queried: the filter does not support ReportLevels
  TimedOut,     ///< queried, but the command job timed out
  Failed,       ///< the scheduler refused or exited, or the command job failed
  NotFound,     ///< the server does not have this queue
};

/// The outcomes' names in JSON and in the metrics.
inline constexpr std::array<std::pair<Outcome, const char*>, 11> OUTCOME_NAMES = {{
    {Outcome::Refreshed, "refreshed"},
    {Outcome::NotAsked, "not-asked"},
    {Outcome::Asking, "asking"},
    {Outcome::Busy, "busy"},
    {Outcome::Paused, "paused"},
    {Outcome::Stopped, "stopped"},
    {Outcome::Rejecting, "rejecting"},
    {Outcome::Unsupported, "unsupported"},
    {Outcome::TimedOut, "timed-out"},
    {Outcome::Failed, "failed"},
    {Outcome::NotFound, "not-found"},
}};

/// The outcome's name in OUTCOME_NAMES.
[[nodiscard]] const char* name_of(Outcome outcome);

/// QueueReport is the state of a queue for the views.
struct QueueReport {
  Reading reading;
  Outcome outcome = Outcome::NotAsked;
  std::string detail;             ///< why it failed; may be empty
  std::optional<double> seconds;  ///< how long the command job took

  bool stuck = false;      ///< a print does not move; the reading's message may say why
  int prints_waiting = 0;  ///< behind the one that is printing
  std::optional<int> job_seconds = std::nullopt;  ///< how long the current print has been printing
  /// When the values were read, by this computer's clock; it stays the same until they are read again.
  std::optional<std::time_t> read_at = std::nullopt;
  unsigned sightings = 0;  ///< the number of independent observations; see Sightings
};

/// ServerReport is a print server and its queues.
struct ServerReport {
  std::string server;
  std::string error;   ///< why it could not be reached; empty if it was
  double seconds = 0;  ///< how long its queues took, or, in a watch, its last answer
  std::vector<QueueReport> queues;
  unsigned sightings = 0;  ///< likewise, of the server itself
};

/// Report is the state of all print servers, which all views show.
struct Report {
  std::time_t time = 0;
  Limits limits;
  std::vector<ServerReport> servers;
};

/// Verdict is the status of a queue, a server or a report. The numbers are exit statuses.
enum class Verdict : std::uint8_t { Well = 0, Low = 1, Error = 2, Unknown = 3 };

/// Returns the worse of two. From worst to best: Error, Unknown, Low, Well.
[[nodiscard]] Verdict worse(Verdict one, Verdict other);

/// Returns whether the first is worse than the second.
[[nodiscard]] bool is_worse(Verdict one, Verdict other);

/// Returns whether the outcome is not a problem: refreshed, not requested, not answered yet, or printing.
[[nodiscard]] bool is_good(Outcome outcome);

/// Returns whether the ribbon is known to be empty.
[[nodiscard]] bool is_empty(const Reading& reading);

/// Error if the printer reports one, a print is stuck, the queue was stopped or the ribbon is empty or at the
/// critical limit; Unknown if the queue could not be refreshed or its level is not known; Low if the ribbon
/// is low.
[[nodiscard]] Verdict judge(const QueueReport& queue, const Limits& limits);

/// Returns the worst verdict of all queues; Unknown for an unreachable server and for a report without
/// queues.
[[nodiscard]] Verdict judge(const Report& report);
