// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/ipp.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/reason_code.h"

/// The most that is read of an attribute, whatever the scheduler sends: values, and bytes of a text (as many
/// as IPP allows).
inline constexpr std::size_t MAX_VALUES = 256;
inline constexpr std::size_t MAX_TEXT_BYTES = 1023;

/// The message with which CUPS pauses a queue if the operator gives no reason.
inline constexpr std::string_view PAUSED_MESSAGE = "Paused";

enum class QueueState : std::uint8_t { Unknown, Idle, Processing, Stopped };

/// One of a queue's markers (supplies), of this driver or of any other.
struct Marker {
  std::string name;
  std::string type;
  std::optional<int> level;  ///< percent

  bool operator==(const Marker&) const = default;
};

/// Reading is what a scheduler knows about a queue. Texts are as the scheduler gave them: any bytes.
struct Reading {
  std::string queue;
  std::string info;
  std::string location;
  std::string make_and_model;
  QueueState state = QueueState::Unknown;
  std::optional<bool> accepting;
  std::string state_message;         ///< the scheduler's or the backend's own words about the state
  std::optional<int> state_seconds;  ///< how long ago the state last changed
  std::optional<bool> shared;        ///< whether other computers may print to it
  int active_jobs = 0;               ///< that wait, are held or print
  bool reports_levels = false;       ///< the queue's filter knows the command ReportLevels
  bool reports_status = false;       ///< and ReportStatus
  bool other_commands = false;       ///< and others, which ours does not

  /// The ribbon's values are unknown, too, where they cannot be: far more prints left than it had, or a total
  /// of 0.
  std::optional<int> prints_remaining;
  std::optional<int> prints_total;
  std::optional<int> level_percent;  ///< of the ribbon; may be above 100
  std::string sheet;                 ///< empty if not known
  std::string ribbon_words;          ///< the filter's words from which the prints are read
  /// Whether the printer answered when it was last asked for its ribbon; nothing if it never was.
  std::optional<bool> answered;

  std::vector<Marker> markers;
  std::vector<ReasonCode> errors;
  std::vector<std::string> reasons;  ///< all other printer-state-reasons
  /// When the markers were last reported, in seconds of the scheduler's clock; 0 if they never were.
  int reported_at = 0;
  /// How long ago that is; nothing if they never were or the clock is not known.
  std::optional<int> age_seconds;

  bool operator==(const Reading&) const = default;
};

/// Whether this queue has our command filter: brenvellis-monitor looks after it without being told its name.
/// Its PPD names the filter's two commands and no others, or the filter has reported its ribbon or an error.
[[nodiscard]] bool is_brenvellis_queue(const Reading& reading);

/// Prints remaining divided by prints total, or else the level; nothing if neither is known.
[[nodiscard]] std::optional<double> ribbon_ratio(const Reading& reading);

/// The attributes that read_queues looks at.
[[nodiscard]] const std::vector<const char*>& reading_attributes();

/// The queues of an answer to CUPS-Get-Printers or Get-Printer-Attributes, in its order. Attributes that are
/// missing, or of another type than they should be, leave their fields unknown.
[[nodiscard]] std::vector<Reading> read_queues(ipp_t* answer);
