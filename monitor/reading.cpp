// SPDX-License-Identifier: Apache-2.0
#include "monitor/reading.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view MESSAGE = "Ink Ribbon = ";
constexpr std::string_view SHEET_PREFIX = "InkSheetType: ";
constexpr const char* RIBBON_TYPE = "ink-ribbon";

/// The level that the filter reports if the printer did not answer; -1 is an unknown level.
constexpr int NO_ANSWER = -2;

/// Returns the time from `then` to `now`; nothing if either is unknown. Both are seconds of the scheduler's
/// clock, which may have been set back.
std::optional<int> seconds_between(int past, int now) {
  if (past <= 0 || now <= 0) {
    return std::nullopt;
  }
  return std::max(0, now - past);
}

/// Values that are needed only while a queue is read.
struct MarkerTexts {
  std::vector<std::string> names;
  std::vector<std::string> types;
  std::vector<int> levels;
  int now = 0;
  int state_changed_at = 0;
};

std::string text_of(ipp_attribute_t* attribute, int index = 0) {
  const char* text = ippGetString(attribute, index, nullptr);
  return text == nullptr ? "" : std::string(text, strnlen(text, MAX_TEXT_BYTES));
}

int count_of(ipp_attribute_t* attribute) {
  return std::min(ippGetCount(attribute), static_cast<int>(MAX_VALUES));
}

std::vector<std::string> texts_of(ipp_attribute_t* attribute) {
  const int count = count_of(attribute);
  std::vector<std::string> texts;
  texts.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    texts.push_back(text_of(attribute, i));
  }
  return texts;
}

std::optional<bool> truth_of(ipp_attribute_t* attribute) {
  if (ippGetValueTag(attribute) != IPP_TAG_BOOLEAN) {
    return std::nullopt;
  }
  return ippGetBoolean(attribute, 0) != 0;
}

bool is_number(ipp_attribute_t* attribute) {
  const auto tag = ippGetValueTag(attribute);
  return (tag == IPP_TAG_INTEGER || tag == IPP_TAG_ENUM) && ippGetCount(attribute) > 0;
}

std::vector<int> numbers_of(ipp_attribute_t* attribute) {
  std::vector<int> numbers;
  for (int i = 0; is_number(attribute) && i < count_of(attribute); ++i) {
    numbers.push_back(ippGetInteger(attribute, i));
  }
  return numbers;
}

int number_or_zero(ipp_attribute_t* attribute) {
  return is_number(attribute) ? ippGetInteger(attribute, 0) : 0;
}

QueueState state_of(int state) {
  switch (state) {
    case IPP_PSTATE_IDLE:
      return QueueState::Idle;
    case IPP_PSTATE_PROCESSING:
      return QueueState::Processing;
    case IPP_PSTATE_STOPPED:
      return QueueState::Stopped;
    default:
      return QueueState::Unknown;
  }
}

std::optional<int> take_number(std::string_view& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < 0) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

/// Reads "Ink Ribbon = 12 / 400".
void read_counts(std::string_view message, Reading& reading) {
  if (!message.starts_with(MESSAGE)) {
    return;
  }
  message.remove_prefix(MESSAGE.size());
  const auto remaining = take_number(message);
  constexpr std::string_view between = " / ";
  if (!remaining || !message.starts_with(between)) {
    return;
  }
  message.remove_prefix(between.size());
  const auto total = take_number(message);
  if (total && message.empty()) {
    reading.prints_remaining = remaining;
    reading.prints_total = total;
  }
}

/// A new ribbon may have a few more prints than its nominal total, but not this many times the total.
constexpr int IMPOSSIBLE_TIMES = 2;

bool is_possible(const Reading& reading) {
  const std::int64_t most = std::int64_t{IMPOSSIBLE_TIMES} * reading.prints_total.value_or(0);
  const bool counts =
      !reading.prints_total || (*reading.prints_total > 0 && *reading.prints_remaining <= most);
  return counts && reading.level_percent <= IMPOSSIBLE_TIMES * 100;
}

void read_markers(const MarkerTexts& texts, Reading& reading) {
  const std::size_t count = std::max({texts.names.size(), texts.types.size(), texts.levels.size()});
  std::optional<std::size_t> ribbon;
  for (std::size_t i = 0; i < count; ++i) {
    Marker marker;
    marker.name = i < texts.names.size() ? texts.names[i] : "";
    marker.type = i < texts.types.size() ? texts.types[i] : "";
    if (i < texts.levels.size() && texts.levels[i] >= 0) {
      marker.level = texts.levels[i];
    }
    if (!ribbon && marker.type == RIBBON_TYPE) {
      ribbon = i;
    }
    reading.markers.push_back(marker);
  }
  if (!ribbon) {
    return;
  }

  reading.level_percent = reading.markers[*ribbon].level;
  if (*ribbon < texts.levels.size() && texts.levels[*ribbon] >= NO_ANSWER) {
    reading.answered = texts.levels[*ribbon] != NO_ANSWER;
  }
  // If the printer did not answer, the filter reports the meaningless sheet code 00.
  const std::string_view name = reading.markers[*ribbon].name;
  if (reading.answered != false && name.starts_with(SHEET_PREFIX)) {
    reading.sheet = name.substr(SHEET_PREFIX.size());
  }
  if (reading.level_percent) {
    read_counts(reading.ribbon_words, reading);
    if (!is_possible(reading)) {
      reading.prints_remaining.reset();
      reading.prints_total.reset();
      reading.level_percent.reset();
    }
  }
}

void read_reasons(ipp_attribute_t* attribute, Reading& reading) {
  for (auto& keyword : texts_of(attribute)) {
    if (const auto error = parse_reason(keyword)) {
      if (std::ranges::find(reading.errors, *error) == reading.errors.end()) {
        reading.errors.push_back(*error);
      }
    } else if (keyword != "none" && !keyword.empty()) {
      reading.reasons.push_back(keyword);
    }
  }
}

void read_attribute(ipp_attribute_t* attribute, std::string_view name, Reading& reading, MarkerTexts& texts) {
  if (name == "printer-name") {
    reading.queue = text_of(attribute);
  } else if (name == "printer-info") {
    reading.info = text_of(attribute);
  } else if (name == "printer-location") {
    reading.location = text_of(attribute);
  } else if (name == "printer-make-and-model") {
    reading.make_and_model = text_of(attribute);
  } else if (name == "printer-state") {
    reading.state = state_of(number_or_zero(attribute));
  } else if (name == "printer-is-accepting-jobs") {
    reading.accepting = truth_of(attribute);
  } else if (name == "printer-is-shared") {
    reading.shared = truth_of(attribute);
  } else if (name == "printer-state-message") {
    reading.state_message = text_of(attribute);
  } else if (name == "printer-state-change-time") {
    texts.state_changed_at = number_or_zero(attribute);
  } else if (name == "queued-job-count") {
    reading.active_jobs = number_or_zero(attribute);
  } else if (name == "printer-commands") {
    reading.reports_levels = ippContainsString(attribute, "ReportLevels") != 0;
    reading.reports_status = ippContainsString(attribute, "ReportStatus") != 0;
    reading.other_commands =
        ippGetCount(attribute) > int{reading.reports_levels} + int{reading.reports_status};
  } else if (name == "printer-state-reasons") {
    read_reasons(attribute, reading);
  } else if (name == "printer-up-time") {
    texts.now = number_or_zero(attribute);
  } else if (name == "marker-change-time") {
    reading.reported_at = number_or_zero(attribute);
  } else if (name == "marker-message") {
    reading.ribbon_words = text_of(attribute);
  } else if (name == "marker-names") {
    texts.names = texts_of(attribute);
  } else if (name == "marker-types") {
    texts.types = texts_of(attribute);
  } else if (name == "marker-levels") {
    texts.levels = numbers_of(attribute);
  }
}

/// Reads one queue and moves `attribute` past it.
Reading read_queue(ipp_t* answer, ipp_attribute_t*& attribute) {
  Reading reading;
  MarkerTexts texts;
  while (attribute != nullptr && ippGetGroupTag(attribute) == IPP_TAG_PRINTER) {
    if (const char* name = ippGetName(attribute)) {
      read_attribute(attribute, name, reading, texts);
    }
    attribute = ippNextAttribute(answer);
  }
  read_markers(texts, reading);
  reading.age_seconds = seconds_between(reading.reported_at, texts.now);
  reading.state_seconds = seconds_between(texts.state_changed_at, texts.now);
  return reading;
}

}  // namespace

bool is_brenvellis_queue(const Reading& reading) {
  if (!reading.reports_levels || !reading.reports_status) {
    return false;
  }
  return !reading.other_commands || !reading.errors.empty() ||
         std::ranges::any_of(reading.markers, [](const Marker& marker) {
           return marker.type == RIBBON_TYPE && std::string_view(marker.name).starts_with(SHEET_PREFIX);
         });
}

std::optional<double> ribbon_ratio(const Reading& reading) {
  if (reading.prints_remaining && reading.prints_total) {
    return static_cast<double>(*reading.prints_remaining) / *reading.prints_total;
  }
  if (reading.level_percent) {
    return *reading.level_percent / 100.0;
  }
  return std::nullopt;
}

const std::vector<const char*>& reading_attributes() {
  static const std::vector<const char*> names = {
      "printer-name",
      "printer-info",
      "printer-location",
      "printer-make-and-model",
      "printer-state",
      "printer-state-message",
      "printer-state-change-time",
      "printer-commands",
      "printer-is-accepting-jobs",
      "printer-is-shared",
      "queued-job-count",
      "printer-up-time",
      "marker-names",
      "printer-state-reasons",
      "marker-change-time",
      "marker-message",
      "marker-types",
      "marker-levels",
  };
  return names;
}

std::vector<Reading> read_queues(ipp_t* answer) {
  std::vector<Reading> readings;
  ipp_attribute_t* attribute = ippFirstAttribute(answer);
  while (attribute != nullptr) {
    if (ippGetGroupTag(attribute) == IPP_TAG_PRINTER) {
      readings.push_back(read_queue(answer, attribute));
    } else {
      attribute = ippNextAttribute(answer);
    }
  }
  return readings;
}
