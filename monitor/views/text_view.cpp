// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/text_view.h"

#include <algorithm>
#include <cmath>

#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

constexpr std::size_t NARROWEST = 40;
constexpr std::size_t STATE_WIDTH = 9;
constexpr std::size_t GAUGE_WIDTH = 14;

constexpr const char* RED = "\033[1;31m";
constexpr const char* YELLOW = "\033[33m";
constexpr const char* GREEN = "\033[32m";
constexpr const char* FAINT = "\033[2m";
constexpr const char* BOLD = "\033[1m";
constexpr const char* PLAIN = "\033[0m";

/// TextWriter knows the terminal, so that the lines below need not.
class TextWriter {
 public:
  explicit TextWriter(const TextStyle& style) : style_(style) {}

  [[nodiscard]] std::size_t width() const { return std::max(style_.width, NARROWEST); }

  [[nodiscard]] std::string shown(std::string_view text) const {
    const std::string clean = printable(text);
    return style_.utf8 ? clean : to_ascii(clean);
  }

  [[nodiscard]] std::string fitted(std::string_view text, std::size_t width) const {
    return cut(shown(text), width, style_.utf8 ? "…" : "~");
  }

  [[nodiscard]] std::string colored(const char* color, const std::string& text) const {
    return style_.color && !text.empty() ? color + text + PLAIN : text;
  }

  [[nodiscard]] std::string gauge(const Reading& reading, const char* color) const {
    const auto ratio = ribbon_ratio(reading);
    if (!ratio) {
      return repeated("·", ".", GAUGE_WIDTH);
    }
    // The last print must not look like none, nor the first used one like a full ribbon.
    const double cells = std::clamp(*ratio, 0.0, 1.0) * static_cast<double>(GAUGE_WIDTH);
    const auto filled = static_cast<std::size_t>(cells < 1 ? std::ceil(cells) : std::floor(cells));
    return colored(color, repeated("█", "#", filled)) + repeated("░", "-", GAUGE_WIDTH - filled);
  }

 private:
  [[nodiscard]] std::string repeated(std::string_view utf8, std::string_view ascii, std::size_t count) const {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      text += style_.utf8 ? utf8 : ascii;
    }
    return text;
  }

  TextStyle style_;
};

std::string padded(const std::string& text, std::size_t width) {
  const auto used = columns(text);
  return used < width ? text + std::string(width - used, ' ') : text;
}

std::string name_of(const QueueReport& queue, const ServerReport& server, bool with_server) {
  return with_server ? queue.reading.queue + "@" + server.server : queue.reading.queue;
}

const char* ribbon_color(const Reading& reading, const Limits& limits) {
  return is_under(reading, limits.low) ? YELLOW : GREEN;
}

std::string queue_lines(const QueueReport& queue, const std::string& name, std::size_t name_width,
                        const Limits& limits, const TextWriter& writer) {
  const auto& reading = queue.reading;
  const std::string indent(name_width + 2, ' ');
  const auto detail = [&](const char* color, const std::string& text) {
    return indent + writer.colored(color, writer.fitted(text, writer.width() - indent.size())) + "\n";
  };

  std::string text = writer.colored(BOLD, padded(writer.fitted(name, name_width), name_width)) + "  ";
  if (queue.outcome == Outcome::NotFound) {
    return text + writer.colored(RED, outcome_text(queue)) + "\n";
  }

  text += padded(state_text(reading), STATE_WIDTH) + "  ";
  if (has_other_supplies(reading)) {
    text += writer.fitted(supplies_text(reading), writer.width() - columns(indent) - STATE_WIDTH - 2);
  } else {
    text += writer.gauge(reading, ribbon_color(reading, limits)) + "  " + prints_left_text(reading);
    if (is_empty(reading)) {
      text += writer.colored(RED, " EMPTY");
    } else if (is_under(reading, limits.critical)) {
      text += writer.colored(RED, " CRITICAL");
    } else if (is_under(reading, limits.low)) {
      text += writer.colored(YELLOW, " LOW");
    }
  }
  text += "\n";

  std::vector<std::string> facts;
  if (!reading.sheet.empty()) {
    facts.push_back("sheet " + reading.sheet);
  }
  facts.push_back(read_text(reading));
  text += detail(FAINT, joined(facts));
  if (const auto outcome = outcome_text(queue); !outcome.empty()) {
    text += detail(is_good(queue.outcome) ? FAINT : YELLOW, outcome);
  }
  for (const auto& error : reading.errors) {
    text += detail(RED, error_text(error, reading));
  }
  if (const auto trouble = trouble_text(queue); !trouble.empty()) {
    text += detail(RED, trouble);
  }
  if (const auto waiting = waiting_text(queue); !waiting.empty()) {
    text += detail(queue.stuck ? YELLOW : FAINT, waiting);
  }
  if (!reading.reasons.empty()) {
    text += detail(YELLOW, joined(reading.reasons));
  }
  return text;
}

}  // namespace

std::string text_view(const Report& report, const TextStyle& style) {
  const TextWriter writer(style);
  const bool with_server = report.servers.size() > 1;
  std::size_t name_width = 0;
  bool any = false;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      any = true;
      name_width = std::max(name_width, columns(writer.shown(name_of(queue, server, with_server))));
    }
  }
  name_width = std::min(name_width, writer.width() / 4);

  std::string text;
  bool all_reached = true;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      text += queue_lines(queue, name_of(queue, server, with_server), name_width, report.limits, writer);
    }
    if (!server.error.empty()) {
      all_reached = false;
      text += writer.colored(
          RED, writer.fitted("print server " + server.server + ": " + server.error, writer.width()));
      text += "\n";
    }
  }
  if (!any && all_reached) {
    text += "There is no Brenvellis printer's queue.\n";
  }
  return text;
}
