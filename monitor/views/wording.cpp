// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/wording.h"

#include <algorithm>
#include <array>

#include "monitor/queue_watch.h"

namespace {

constexpr const char* CONNECT = "Switch the printer on and check its cable.";
constexpr const char* NEW_RIBBON = "Load a new ribbon.";

/// The command with the queue's name, unless a shell could read the name as something else.
std::string queue_command(const char* command, const std::string& queue) {
  constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-";
  const bool is_plain =
      !queue.empty() && !queue.starts_with('-') && queue.find_first_not_of(plain) == std::string::npos;
  return std::string("sudo ") + command + (is_plain ? " " + queue : "");
}

/// "Resume the queue (sudo cupsenable booth).": what to do with the queue, on the computer that has it.
std::string queue_action(const char* action, const char* command, const QueueReport& queue,
                         std::string_view server) {
  return std::string(action) + (server == LOCAL_SERVER ? "" : " on its print server") + " (" +
         queue_command(command, queue.reading.queue) + ").";
}

/// The meaning of common state reasons of other filters and of backends.
struct KnownReason {
  std::string_view keyword;
  const char* cause;
  const char* action;
};
constexpr std::array<KnownReason, 9> KNOWN_REASONS = {{
    {"media-empty", "out of paper", "Load paper."},
    {"media-needed", "out of paper", "Load paper."},
    {"media-jam", "paper jam", "Remove the jammed paper."},
    {"cover-open", "cover open", "Close the cover."},
    {"door-open", "door open", "Close the door."},
    {"marker-supply-empty", "ribbon empty", NEW_RIBBON},
    {"offline", "printer offline", CONNECT},
    {"timed-out", "printer not responding", CONNECT},
    {"connecting-to-device", "printer not responding", CONNECT},
}};

Trouble trouble_of_error(const ReasonCode& error, const Reading& reading) {
  if (is_fallback(error)) {
    return reading.answered == false
               ? Trouble{"no answer, or error 0004", CONNECT, {}}
               : Trouble{"error 0004, or an unknown code", "Look up 0004 in the printer's manual.", {}};
  }
  // A report may contain any text, not only the codes of parse_reason().
  if (error.group.size() > 4 || error.code.size() > 4) {
    return {"unknown error", "Look at the printer.", error_text(error, reading)};
  }
  const std::string code = error.code == error.group ? error.group : error.group + " / " + error.code;
  return {error_text(error, reading), "Look up " + code + " in the printer's manual.", {}};
}

Trouble trouble_of_reason(const std::string& reason) {
  const std::string_view keyword = std::string_view(reason).substr(0, reason.rfind('-'));
  const auto* const known = std::ranges::find(KNOWN_REASONS, keyword, &KnownReason::keyword);
  return known == KNOWN_REASONS.end() ? Trouble{"printer error", "Look at the printer.", reason}
                                      : Trouble{known->cause, known->action, {}};
}

/// Returns why the queue was not refreshed; nothing if it was.
std::vector<Trouble> troubles_of_outcome(const QueueReport& queue, std::string_view server) {
  switch (queue.outcome) {
    case Outcome::Refreshed:
    case Outcome::NotAsked:
    case Outcome::Asking:
    case Outcome::Busy:
      return {};
    case Outcome::Paused:
      return {{"paused", queue_action("Resume the queue", "cupsenable", queue, server),
               pause_reason(queue.reading)}};
    case Outcome::Stopped:
      return {{"stopped after an error",
               queue_action("Remove the cause, then resume the queue", "cupsenable", queue, server),
               queue.reading.state_message}};
    case Outcome::Rejecting:
      return {{"rejecting jobs",
               queue_action("Let the queue accept jobs again", "cupsaccept", queue, server),
               {}}};
    case Outcome::Unsupported:
      return {{"another driver", "Use the Brenvellis driver, or do not name this queue.", {}}};
    case Outcome::TimedOut:
      return {{"no answer in time", CONNECT, queue.detail}};
    case Outcome::Failed:
      return {{"not refreshed", "Check the print server.", queue.detail}};
    case Outcome::NotFound:
      return {{"no such queue", "Check the queue's name (lpstat -e).", {}}};
  }
  return {};
}

/// Returns why the level is unknown.
Trouble trouble_of_level(const QueueReport& queue) {
  const auto& reading = queue.reading;
  if (queue.outcome == Outcome::Asking) {
    return {"asking", "Wait for the printer's answer.", {}};
  }
  if (has_other_supplies(reading)) {
    return {"another driver", "Use the Brenvellis driver, or do not name this queue.", {}};
  }
  if (reading.answered == false) {
    // After a failed exchange, the filter also reports an error. It does not if the backend cannot read, or
    // has not reached the printer.
    return {"no answer", "Check the cable, and that the URI begins with usb or socket (lpstat -v).", {}};
  }
  if (reading.answered) {
    return {"prints left not known", "Change or reseat the ribbon.", reading.ribbon_words};
  }
  return {"never read", queue.outcome == Outcome::Busy ? "Wait for the end of the print." : "", {}};
}

}  // namespace

std::string prints_left_text(const Reading& reading) {
  const std::string percent =
      reading.level_percent ? std::to_string(*reading.level_percent) + " %" : std::string();
  if (reading.prints_remaining && reading.prints_total) {
    return std::to_string(*reading.prints_remaining) + " of " + std::to_string(*reading.prints_total) +
           " prints left (" + percent + ")";
  }
  if (reading.level_percent) {
    return percent + " left";
  }
  return reading.answered == false ? "no answer from the printer" : "prints left not known";
}

bool has_other_supplies(const Reading& reading) {
  return !reading.level_percent && !reading.answered && !reading.markers.empty();
}

std::string full_name(const QueueReport& queue, const ServerReport& server, bool with_server) {
  return with_server ? queue.reading.queue + "@" + server.server : queue.reading.queue;
}

std::string supplies_text(const Reading& reading) {
  std::vector<std::string> parts;
  for (const auto& marker : reading.markers) {
    parts.push_back(marker.name);
    parts.back() += ' ';
    parts.back() += marker.level ? std::to_string(*marker.level) + " %" : "not known";
  }
  return joined(parts);
}

std::string joined(const std::vector<std::string>& parts, std::string_view between) {
  std::string text;
  for (const auto& part : parts) {
    text += text.empty() ? "" : between;
    text += part;
  }
  return text;
}

std::string error_text(const ReasonCode& error, const Reading& reading) {
  if (is_fallback(error)) {
    return reading.answered == false ? "error 0004, or no answer from the printer"
                                     : "error 0004, or a code that the driver does not know";
  }
  return error.code == error.group ? "error " + error.group : "error " + error.group + ", code " + error.code;
}

std::string duration_text(int seconds) {
  constexpr int minute = 60;
  constexpr int hour = 60 * minute;
  constexpr int day = 24 * hour;
  if (seconds < 2 * minute) {
    return std::to_string(seconds) + " s";
  }
  if (seconds < 2 * hour) {
    return std::to_string(seconds / minute) + " min";
  }
  if (seconds < 2 * day) {
    return std::to_string(seconds / hour) + " h";
  }
  return std::to_string(seconds / day) + " days";
}

std::string age_text(int seconds) {
  return seconds < 2 ? "just now" : duration_text(seconds) + " ago";
}

std::string read_text(const Reading& reading) {
  if (!reading.age_seconds) {
    return "never read";
  }
  return std::string(reading.answered == false ? "asked " : "read ") + age_text(*reading.age_seconds);
}

std::string state_text(const Reading& reading) {
  if (reading.state == QueueState::Stopped) {
    return "paused";
  }
  if (reading.accepting == false) {
    return "rejecting";
  }
  switch (reading.state) {
    case QueueState::Idle:
      return "idle";
    case QueueState::Processing:
      return "printing";
    default:
      return "unknown";
  }
}

std::string pause_reason(const Reading& reading) {
  const bool is_given = reading.state == QueueState::Stopped && reading.state_message != PAUSED_MESSAGE;
  return is_given ? reading.state_message : "";
}

std::string waiting_text(const QueueReport& queue) {
  if (queue.prints_waiting == 0) {
    return {};
  }
  return std::to_string(queue.prints_waiting) + (queue.prints_waiting == 1 ? " print waits" : " prints wait");
}

std::string trouble_text(const QueueReport& queue) {
  std::string text;
  if (queue.stuck) {
    text = "the print does not move";
    if (queue.job_seconds) {
      text += " (" + duration_text(*queue.job_seconds) + ")";
    }
  } else if (queue.outcome == Outcome::Stopped) {
    text = "the queue is down";
  } else {
    return is_empty(queue.reading) ? "the ribbon is empty" : "";
  }
  return queue.reading.state_message.empty() ? text : text + ": " + queue.reading.state_message;
}

std::string outcome_text(const QueueReport& queue) {
  const auto with_detail = [&](std::string text) {
    return queue.detail.empty() ? text : std::move(text) + ": " + queue.detail;
  };
  switch (queue.outcome) {
    case Outcome::Refreshed:
    case Outcome::NotAsked:
      return {};
    case Outcome::Asking:
      return "asking";
    case Outcome::Busy:
      return queue.stuck ? std::string() : "not refreshed: it is printing";
    case Outcome::Paused:
      return "not refreshed: the queue is paused";
    case Outcome::Stopped:
      return "not refreshed: the queue was stopped after an error";
    case Outcome::Rejecting:
      return "not refreshed: the queue rejects jobs";
    case Outcome::Unsupported:
      return "not refreshed: its filter does not know ReportLevels";
    case Outcome::TimedOut:
      return with_detail("not refreshed: no answer in time");
    case Outcome::Failed:
      return with_detail("not refreshed");
    case Outcome::NotFound:
      return "no such queue";
  }
  return {};
}

std::string to_text(const Trouble& trouble) {
  return trouble.detail.empty() ? trouble.cause : trouble.cause + ": " + trouble.detail;
}

std::vector<Trouble> troubles(const QueueReport& queue, const Limits& limits, std::string_view server) {
  const auto& reading = queue.reading;
  std::vector<Trouble> list;
  const auto add = [&](Trouble trouble) {
    const auto is_same = [&](const Trouble& other) { return other.cause == trouble.cause; };
    const auto is_same_action = [&](const Trouble& other) { return other.action == trouble.action; };
    if (std::ranges::none_of(list, is_same)) {
      if (std::ranges::any_of(list, is_same_action)) {
        trouble.action.clear();
      }
      list.push_back(std::move(trouble));
    }
  };

  if (is_empty(reading)) {
    add({"ribbon empty", NEW_RIBBON, {}});
  }
  for (const auto& error : reading.errors) {
    add(trouble_of_error(error, reading));
  }
  for (const auto& reason : reading.reasons) {
    if (reason.ends_with("-error")) {
      add(trouble_of_reason(reason));
    }
  }
  if (queue.stuck) {
    add({queue.job_seconds ? "print stuck for " + duration_text(*queue.job_seconds) : "print stuck",
         is_unreachable(reading) ? CONNECT : "Check the printer: power, cable, paper and ribbon.",
         reading.state_message});
  }
  for (auto& trouble : troubles_of_outcome(queue, server)) {
    add(std::move(trouble));
  }
  if (!reading.level_percent && list.empty()) {
    add(trouble_of_level(queue));
  }
  if ((is_under(reading, limits.low) || is_under(reading, limits.critical)) && !is_empty(reading)) {
    const int prints = reading.prints_remaining.value_or(0);
    add({prints == 0   ? "only " + std::to_string(*reading.level_percent) + " % left"
         : prints == 1 ? "only 1 print left"
                       : "only " + std::to_string(prints) + " prints left",
         "Have a new ribbon at hand.",
         {}});
  }
  return list;
}

std::string local_time_text(std::time_t time) {
  std::tm parts{};
  localtime_r(&time, &parts);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M %Z", &parts)};
}

std::string local_clock_text(std::time_t time) {
  std::tm parts{};
  localtime_r(&time, &parts);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%H:%M %Z", &parts)};
}

std::string utc_time_text(std::time_t time) {
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}
