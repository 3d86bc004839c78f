// SPDX-License-Identifier: Apache-2.0
// The interface to a print server: requests and answers.
#pragma once

#include <cups/ipp.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "monitor/reading.h"

/// A job as a look at a scheduler shows it.
struct Job {
  int number = 0;
  std::string queue;
  bool is_command = false;  ///< a command file, not a print
  bool is_own = false;      ///< sent by this monitor's user
  ipp_jstate_t state = IPP_JSTATE_PENDING;
  /// How long ago it began to print, in seconds of the scheduler's clock; nothing if it has not begun.
  std::optional<int> processing_seconds;
  bool stopped_queue = false;  ///< it failed, and the scheduler stopped its queue
  std::optional<int> sheets_completed;

  bool operator==(const Job&) const = default;
};

/// Asks for all printers' queues and for jobs.
struct LookRequest {
  /// Also returns ended jobs with this number or a higher one; 0: none.
  int first_job = 0;
  /// False: only the jobs are wanted, which costs the scheduler far less than all its queues.
  bool queues = true;
  /// The only queues that are wanted; empty: all. A few cost the scheduler less than all.
  std::vector<std::string> names = {};
};

/// Asks to send a queue one command job.
struct SendRequest {
  std::string queue;
  int report_levels = 1;  ///< how many ReportLevels lines the command file has
  /// The scheduler cancels the job after this many seconds if this program exits before it can purge it.
  int lifetime_seconds = 60;
};

/// Asks to end a job of this user at once and to forget it: its filter and backend are killed. If the
/// scheduler refuses to forget it, it is canceled instead; the answer is still the refusal.
struct PurgeRequest {
  std::string queue;
  int job = 0;
  bool has_ended = false;  ///< it only needs to be forgotten
};

using SchedulerRequest = std::variant<LookRequest, SendRequest, PurgeRequest>;

/// A scheduler's queues and jobs. The jobs are read first: the values of a queue are never older than the end
/// of a job that is listed with them.
struct Look {
  std::vector<Reading> queues;  ///< those that were wanted and that exist, perhaps with others
  std::vector<Job> jobs;        ///< without the history if the scheduler keeps none
};

/// The number of the job that was sent.
struct Sent {
  int job = 0;
};

/// The job is gone, or did not exist.
struct Purged {};

/// Why a scheduler did not do what it was asked.
struct SchedulerError {
  enum class Kind : std::uint8_t {
    Unreachable,      ///< no connection, or it broke
    NoAnswer,         ///< not within the time
    InvalidAnswer,    ///< not IPP, too large, nested too deeply
    Forbidden,        ///< its policy does not allow it
    Unauthorized,     ///< it wants a password
    NeedsEncryption,  ///< it wants TLS, or cannot do TLS though the user requires it
    NotFound,         ///< no such queue or job
    Busy,             ///< it takes no more jobs now
    Refused,          ///< any other answer than success
  };
  Kind kind = Kind::Refused;
  std::string text;  ///< the scheduler's or the system's own words: any bytes

  bool operator==(const SchedulerError&) const = default;
};

using SchedulerAnswer = std::variant<Look, Sent, Purged, SchedulerError>;

/// Scheduler is one print server, asked one request at a time without waiting for the answer.
class Scheduler {
 public:
  virtual ~Scheduler() = default;

  /// Begins a request; no other request may be under way.
  virtual void ask(const SchedulerRequest& request) = 0;

  /// Returns the answer once; nothing while there is none. Does not wait.
  [[nodiscard]] virtual std::optional<SchedulerAnswer> take_answer() = 0;

  /// A descriptor that poll() finds readable when an answer may be there; -1 if there is none now.
  [[nodiscard]] virtual int descriptor() const = 0;

  /// Abandons the current request: no answer to it follows. The scheduler may have executed it.
  virtual void give_up() = 0;
};
