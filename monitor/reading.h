// SPDX-License-Identifier: Apache-2.0
// The values of a queue in a scheduler's answer.
#pragma once

#include <cups/ipp.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/reason_code.h"

/// The limits for an attribute: the number of values, and the bytes of a text (IPP's limit). The rest is
/// ignored.
inline constexpr std::size_t MAX_VALUES = 256;
inline constexpr std::size_t MAX_TEXT_BYTES = 1023;

/// The message with which CUPS pauses a queue if the operator gives no reason.
inline constexpr std::string_view PAUSED_MESSAGE = "Paused";

enum class QueueState : std::uint8_t { Unknown, Idle, Processing, Stopped };

/// Marker is one of a queue's markers (supplies), of this or another driver.
struct Marker {
  std::string name;
  std::string type;
  std::optional<int> level;  ///< percent

  bool operator==(const Marker&) const = default;
};

/// Reading holds a scheduler's data about a queue. Texts are untrusted and may contain any bytes.
struct Reading {
  std::string queue;
  std::string info;
  std::string location;
  std::string make_and_model;
  QueueState state = QueueState::Unknown;
  std::optional<bool> accepting;
  std::string state_message;         ///< the message of the scheduler or the backend about the state
  std::optional<int> state_seconds;  ///< how long ago the state last changed
  std::optional<bool> shared;        ///< whether other computers may print to it
  int active_jobs = 0;               ///< pending, held or printing
  bool reports_levels = false;       ///< the queue's filter supports ReportLevels
  bool reports_status = false;       ///< the queue's filter supports ReportStatus
  bool other_commands = false;       ///< the queue's filter supports other commands, unlike ours

  /// The ribbon's values are also unknown if they are impossible: far more prints left than in total, or a
  /// total of 0.
  std::optional<int> prints_remaining;
  std::optional<int> prints_total;
  std::optional<int> level_percent;  ///< of the ribbon; may be above 100
  std::string sheet;                 ///< empty if unknown
  std::string ribbon_words;          ///< the filter's message that the prints are parsed from
  /// Whether the printer answered the last query of its ribbon; nothing if it was never queried.
  std::optional<bool> answered;

  std::vector<Marker> markers;
  std::vector<ReasonCode> errors;
  std::vector<std::string> reasons;  ///< all other printer-state-reasons
  /// The time of the last marker report in seconds of the scheduler's clock; 0 if there was none.
  int reported_at = 0;
  /// The age of the last marker report; nothing if there was none or the clock is unknown.
  std::optional<int> age_seconds;

  bool operator==(const Reading&) const = default;
};

/// Returns whether this queue has our command filter, so that brenvellis-monitor selects it by default: its
/// PPD lists exactly the filter's two commands, or the filter has reported its ribbon or an error.
[[nodiscard]] bool is_brenvellis_queue(const Reading& reading);

/// Returns the prints remaining divided by the prints in total, otherwise the level; nothing if both are
/// unknown.
[[nodiscard]] std::optional<double> ribbon_ratio(const Reading& reading);

/// The attributes that read_queues uses.
[[nodiscard]] const std::vector<const char*>& reading_attributes();

/// Returns the queues of an answer to CUPS-Get-Printers or Get-Printer-Attributes in its order. The fields of
/// missing attributes and of attributes with an unexpected type are unknown.
[[nodiscard]] std::vector<Reading> read_queues(ipp_t* answer);
