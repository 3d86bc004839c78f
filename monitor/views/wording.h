// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/report.h"

/// The words in which a person is told a report, the same in every view. Texts of schedulers and printers in
/// them are as they came.

/// "200 of 400 prints left (50 %)", or what is known instead.
[[nodiscard]] std::string prints_left_text(const Reading& reading);

/// Whether the queue's markers are another driver's, without a ribbon to stand for them.
[[nodiscard]] bool has_other_supplies(const Reading& reading);

/// "hall", or "hall@annex:8631" with the server.
[[nodiscard]] std::string full_name(const QueueReport& queue, const ServerReport& server, bool with_server);

/// "Black 30 %, Cyan not known": every marker.
[[nodiscard]] std::string supplies_text(const Reading& reading);

/// The texts with `between` between them.
[[nodiscard]] std::string joined(const std::vector<std::string>& parts, std::string_view between = ", ");

/// "error 0008, code 2660"; for the keyword that also stands for a missing answer, both of what it may mean.
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

/// What is wrong besides the printer's errors: "the print does not move (41 min): Waiting for printer to
/// become available.". Empty if nothing is.
[[nodiscard]] std::string trouble_text(const QueueReport& queue);

/// Why the values are not new: "not refreshed: printing". Empty if nothing needs to be said.
[[nodiscard]] std::string outcome_text(const QueueReport& queue);

/// Trouble is one thing that is wrong with a queue, and what a person can do about it.
struct Trouble {
  std::string cause;   ///< "error 0008, code 2660"; never a text of a scheduler, and at most 40 characters
  std::string action;  ///< "Look up 0008 / 2660 in the printer's manual."; empty if there is nothing to do
  std::string detail;  ///< the scheduler's own words, as they came; may be empty

  bool operator==(const Trouble&) const = default;
};

/// The cause, and the scheduler's own words if there are any: "stopped after an error: ...".
[[nodiscard]] std::string to_text(const Trouble& trouble);

/// Everything that is wrong with a queue, the most important first; empty if judge() says Well, and only
/// then.
[[nodiscard]] std::vector<Trouble> troubles(const QueueReport& queue, const Limits& limits);

/// "2026-11-20 15:41 UTC", in the time zone of this process.
[[nodiscard]] std::string local_time_text(std::time_t time);

/// "15:41 UTC", likewise.
[[nodiscard]] std::string local_clock_text(std::time_t time);

/// "2026-11-20T15:41:33Z"
[[nodiscard]] std::string utc_time_text(std::time_t time);
