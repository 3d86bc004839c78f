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

/// What became of a queue in a call of brenvellis-monitor.
enum class Outcome : std::uint8_t {
  Refreshed,    ///< the printer was asked, the values are new
  NotAsked,     ///< no refresh was requested, or the values are young enough
  Asking,       ///< the answer is still out
  Busy,         ///< not asked: it is printing
  Paused,       ///< not asked: somebody paused the queue
  Stopped,      ///< not asked: the scheduler stopped the queue after an error
  Rejecting,    ///< not asked: the queue takes no jobs
  Unsupported,  ///< not asked: its filter does not know ReportLevels
  TimedOut,     ///< asked, and the command job given up
  Failed,       ///< the scheduler refused, went away, or the command job failed
  NotFound,     ///< there is no such queue
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

/// QueueReport is a queue as the views show it.
struct QueueReport {
  Reading reading;
  Outcome outcome = Outcome::NotAsked;
  std::string detail;             ///< why it failed, if there is more to say
  std::optional<double> seconds;  ///< how long the command job took

  bool stuck = false;      ///< a print does not move; the reading's message may say why
  int prints_waiting = 0;  ///< behind the one that is printing
  std::optional<int> job_seconds = std::nullopt;  ///< how long the current print has been printing
  /// When the values were read, by this computer's clock; it stays the same until they are read again.
  std::optional<std::time_t> read_at = std::nullopt;
  unsigned sightings = 0;  ///< how often the queue was seen in a watch; grows with each new one
  /// The outcome of the previous command job while the outcome is Asking; nothing before the first one ended.
  std::optional<Outcome> previous_outcome = std::nullopt;
};

/// ServerReport is a print server and its queues.
struct ServerReport {
  std::string server;
  std::string error;   ///< why it could not be reached; empty if it was
  double seconds = 0;  ///< how long its queues took, or, in a watch, its last answer
  std::vector<QueueReport> queues;
  unsigned sightings = 0;  ///< likewise, of the server itself
};

/// Report is the result of one call: what every view shows.
struct Report {
  std::time_t time = 0;
  Limits limits;
  std::vector<ServerReport> servers;
};

/// Verdict is how a queue, a server or a report is judged; the numbers are exit statuses.
enum class Verdict : std::uint8_t { Well = 0, Low = 1, Error = 2, Unknown = 3 };

/// The worse of two: Error before Unknown before Low before Well.
[[nodiscard]] Verdict worse(Verdict one, Verdict other);

/// Whether the one comes before the other in the order of worse().
[[nodiscard]] bool is_worse(Verdict one, Verdict other);

/// Whether the outcome left nothing to complain about: refreshed, not meant to be, still out, or busy
/// printing.
[[nodiscard]] bool is_good(Outcome outcome);

/// Whether the ribbon is known to have no print left.
[[nodiscard]] bool is_empty(const Reading& reading);

/// Error if the printer reports one, a print is stuck, the queue was stopped or the ribbon is empty or at the
/// critical limit; Unknown if the queue could not be refreshed or its level is not known; Low if the ribbon
/// is.
[[nodiscard]] Verdict judge(const QueueReport& queue, const Limits& limits);

/// The worst of all queues; Unknown for a server that was not reached and for a report without a queue.
[[nodiscard]] Verdict judge(const Report& report);
