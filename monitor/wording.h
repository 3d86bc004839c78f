#pragma once

#include <ctime>
#include <string>

#include "monitor/report.h"

/// The words in which a person is told a report, the same in every view. Texts of schedulers and printers in
/// them are as they came.

/// "200 of 400 prints left (50 %)", or what is known instead.
[[nodiscard]] std::string prints_left_text(const Reading& reading);

/// "error 0008, code 2660"; for the keyword that also stands for a missing answer, both of what it may mean.
[[nodiscard]] std::string error_text(const ReasonCode& error, const Reading& reading);

/// "just now", "5 s ago", "3 min ago", "7 h ago", "12 days ago".
[[nodiscard]] std::string age_text(int seconds);

/// "read 5 s ago", "asked 5 s ago" if the printer did not answer, or "never read".
[[nodiscard]] std::string read_text(const Reading& reading);

/// "idle", "printing", "paused", "rejecting", "unknown".
[[nodiscard]] std::string state_text(const Reading& reading);

/// Why the values are not new: "not refreshed: printing". Empty if nothing needs to be said.
[[nodiscard]] std::string outcome_text(const QueueReport& queue);

/// "2026-11-20 15:41:33 UTC", in the time zone of this process.
[[nodiscard]] std::string local_time_text(std::time_t time);

/// "2026-11-20T15:41:33Z"
[[nodiscard]] std::string utc_time_text(std::time_t time);
