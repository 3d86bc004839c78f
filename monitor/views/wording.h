// SPDX-License-Identifier: Apache-2.0
// The wording that the views share.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/report.h"

// User-visible wording, shared by all views. Texts of schedulers and printers are not changed.

/// The name of this computer's scheduler in a report.
inline constexpr std::string_view LOCAL_SERVER = "localhost";

/// "200 of 400 prints left (50 %)", or less if not all values are known.
[[nodiscard]] std::string prints_left_text(const Reading& reading);

/// Returns whether the queue's markers are those of another driver without a ribbon.
[[nodiscard]] bool has_other_supplies(const Reading& reading);

/// "hall", or "hall@annex:8631" with the server.
[[nodiscard]] std::string full_name(const QueueReport& queue, const ServerReport& server, bool with_server);

/// "Black 30 %, Cyan not known": every marker.
[[nodiscard]] std::string supplies_text(const Reading& reading);

/// Joins texts with `between`.
[[nodiscard]] std::string joined(const std::vector<std::string>& parts, std::string_view between = ", ");

/// "error 0008, code 2660"; for the fallback keyword, both possible causes.
[[nodiscard]] std::string error_text(const ReasonCode& error, const Reading& reading);

/// "5 s", "3 min", "7 h", "12 days".
[[nodiscard]] std::string duration_text(int seconds);

/// "just now", "5 s ago", "3 min ago", "7 h ago", "12 days ago".
[[nodiscard]] std::string age_text(int seconds);

/// "read 5 s ago", "asked 5 s ago" if the printer did not answer, or "never read".
[[nodiscard]] std::string read_text(const Reading& reading);

/// "idle", "printing", "paused", "rejecting", "unknown".
[[nodiscard]] std::string state_text(const Reading& reading);

/// The reason that an operator gave for pausing the queue; empty if there is none.
[[nodiscard]] std::string pause_reason(const Reading& reading);

/// "2 prints wait"; empty if none does.
[[nodiscard]] std::string waiting_text(const QueueReport& queue);

/// The problem besides the printer's errors, if any: "the print does not move (41 min): Waiting for printer
/// to become available.".
[[nodiscard]] std::string trouble_text(const QueueReport& queue);

/// Why the values are not current: "not refreshed: printing". Empty if they are, or if the reason is obvious.
[[nodiscard]] std::string outcome_text(const QueueReport& queue);

/// Trouble is a problem of a queue and its solution.
struct Trouble {
  std::string cause;   ///< "error 0008, code 2660"; never a text of a scheduler, and at most 40 characters
  std::string action;  ///< "Look up 0008 / 2660 in the printer's manual."; may be empty
  std::string detail;  ///< the scheduler's unchanged text; may be empty

  bool operator==(const Trouble&) const = default;
};

/// The cause, with the scheduler's text if there is any: "stopped after an error: ...".
[[nodiscard]] std::string to_text(const Trouble& trouble);

/// Returns all problems of a queue, the most important first, with each action once; empty if and only if
/// judge() returns Well. `server` is the name of the queue's print server in the report.
[[nodiscard]] std::vector<Trouble> troubles(const QueueReport& queue, const Limits& limits,
                                            std::string_view server);

/// "2026-11-20 15:41 UTC", in the time zone of this process.
[[nodiscard]] std::string local_time_text(std::time_t time);

/// "15:41 UTC", likewise.
[[nodiscard]] std::string local_clock_text(std::time_t time);

/// "2026-11-20T15:41:33Z"
[[nodiscard]] std::string utc_time_text(std::time_t time);
