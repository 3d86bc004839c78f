// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/wording.h"

#include <array>

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
      return "there is no such queue";
  }
  return {};
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
