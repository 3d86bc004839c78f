// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/text_view.h"

#include <algorithm>
#include <cmath>

#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

constexpr std::size_t NARROWEST = 40;
constexpr std::size_t GAUGE_WIDTH = 10;
constexpr std::size_t GAP = 2;
/// A longer name moves the rest of its own line only, or is cut if the width is limited.
constexpr std::size_t LONGEST_NAME = 24;
constexpr std::size_t SHORTEST_NAME = 8;
/// Longer texts of schedulers are cut.
constexpr std::size_t MOST_LINES = 4;

constexpr const char* RED = "\033[1;31m";
constexpr const char* YELLOW = "\033[33m";
constexpr const char* GREEN = "\033[32m";
constexpr const char* FAINT = "\033[2m";
constexpr const char* BOLD = "\033[1m";
constexpr const char* PLAIN = "\033[0m";

/// TextWriter adapts texts to the terminal.
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

  /// The text in lines of so many columns, broken at spaces.
  [[nodiscard]] std::vector<std::string> wrapped(std::string_view text, std::size_t width) const {
    std::vector<std::string> lines;
    std::string rest = shown(text);
    while (columns(rest) > width && lines.size() + 1 < MOST_LINES) {
      std::size_t end = 0;
      std::size_t space = rest.find(' ');
      for (; space != std::string::npos; space = rest.find(' ', space + 1)) {
        if (columns(std::string_view(rest).substr(0, space)) > width) {
          break;
        }
        end = space;
      }
      if (end == 0) {
        break;
      }
      lines.push_back(rest.substr(0, end));
      rest.erase(0, end + 1);
    }
    lines.push_back(cut(rest, width, style_.utf8 ? "…" : "~"));
    return lines;
  }

  [[nodiscard]] std::string colored(const char* color, const std::string& text) const {
    return style_.color && *color != '\0' && !text.empty() ? color + text + PLAIN : text;
  }

  [[nodiscard]] std::string gauge(const Reading& reading, const char* color) const {
    const auto ratio = ribbon_ratio(reading);
    if (!ratio) {
      return repeated("·", ".", GAUGE_WIDTH);
    }
    // The last print must not look like an empty ribbon, nor the first used one like a full ribbon.
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

/// A queue and what the table says of it.
struct Row {
  const QueueReport* queue;
  const ServerReport* server;
  Verdict verdict;
  std::string name;
  std::string state;
  std::string prints;
  std::string percent;
};

/// The columns of the table of queues; a width of 0 leaves a column out.
struct Table {
  std::size_t name = 0;
  std::size_t state = 0;
  std::size_t gauge = 0;
  std::size_t prints = 0;
  bool percent = false;

  [[nodiscard]] std::size_t width() const {
    return name + (state > 0 ? GAP + state : 0) + (gauge > 0 ? GAP + gauge : 0) + GAP + prints;
  }
};

/// A low ribbon is shown on the queue's line; other problems have a paragraph.
bool takes_a_line(Verdict verdict) {
  return verdict == Verdict::Well || verdict == Verdict::Low;
}

Row row_of(const QueueReport& queue, const ServerReport& server, const Report& report,
           const TextWriter& writer) {
  const auto& reading = queue.reading;
  Row row{&queue, &server, judge(queue, report.limits), {}, {}, {}, {}};
  row.name = writer.shown(full_name(queue, server, report.servers.size() > 1));
  row.state = queue.outcome == Outcome::Asking ? "asking" : state_text(reading);
  row.prints = prints_left_text(reading);
  if (reading.prints_remaining && reading.prints_total) {
    const auto bracket = row.prints.find(" (");
    row.percent = row.prints.substr(bracket);
    row.prints.erase(bracket);
  }
  return row;
}

std::string age_of(const Reading& reading) {
  return reading.age_seconds ? age_text(*reading.age_seconds) : read_text(reading);
}

/// Leaves out columns until the table fits: the percentage first, which the gauge shows, too, and which gives
/// way to the age as well.
Table table_of(const std::vector<Row>& rows, const TextWriter& writer) {
  Table table;
  std::size_t percent = 0;
  std::size_t age = 0;
  for (const auto& row : rows) {
    table.name = std::max(table.name, columns(row.name));
    if (takes_a_line(row.verdict)) {
      const std::size_t mark = row.verdict == Verdict::Low ? sizeof " LOW" - 1 : 0;
      table.state = std::max(table.state, columns(row.state));
      table.prints = std::max(table.prints, columns(row.prints) + mark);
      percent = std::max(percent, columns(row.percent));
      age = std::max(age, columns(age_of(row.queue->reading)));
    }
  }
  table.name = std::min(table.name, LONGEST_NAME);
  table.gauge = GAUGE_WIDTH;
  table.prints += percent;
  table.percent = true;
  if (table.width() + GAP + age > writer.width()) {
    table.prints -= percent;
    table.percent = false;
  }
  if (table.width() > writer.width()) {
    table.gauge = 0;
  }
  if (table.width() > writer.width()) {
    table.state = 0;
  }
  if (table.width() > writer.width()) {
    table.prints = std::min(table.prints, writer.width() - SHORTEST_NAME - GAP);
    table.name = writer.width() - table.prints - GAP;
  }
  return table;
}

std::string name_cell(const Row& row, const Table& table, const TextWriter& writer) {
  const auto name = writer.width() == UNLIMITED_WIDTH ? row.name : writer.fitted(row.name, table.name);
  return writer.colored(BOLD, padded(name, table.name)) + std::string(GAP, ' ');
}

/// Joins as many parts as fit.
std::string fitting(const std::vector<std::string>& parts, std::size_t width) {
  std::string text;
  for (const auto& part : parts) {
    std::string longer = text;
    longer.append(text.empty() ? "" : ", ").append(part);
    if (columns(longer) > width) {
      break;
    }
    text = longer;
  }
  return text;
}

std::string row_text(const Row& row, const Table& table, const TextWriter& writer) {
  const auto& reading = row.queue->reading;
  const bool is_low = row.verdict == Verdict::Low;
  const std::string gap(GAP, ' ');
  std::string text = name_cell(row, table, writer);
  if (table.state > 0) {
    text += padded(row.state, table.state) + gap;
  }
  if (table.gauge > 0) {
    text += writer.gauge(reading, is_low ? YELLOW : GREEN) + gap;
  }
  const std::string mark = is_low ? " LOW" : "";
  const auto left =
      writer.fitted(row.prints + (table.percent ? row.percent : ""), table.prints - columns(mark));
  const std::size_t used = columns(left) + columns(mark);
  text += left + writer.colored(YELLOW, mark);

  std::vector<std::string> facts;
  if (const auto waiting = waiting_text(*row.queue); !waiting.empty()) {
    facts.push_back(waiting);
  }
  facts.push_back(age_of(reading));
  if (!reading.sheet.empty()) {
    facts.push_back(writer.shown(reading.sheet));
  }
  for (const auto& reason : reading.reasons) {
    facts.push_back(writer.shown(reason));
  }
  const auto taken = std::min(table.width() + GAP, writer.width());
  if (const auto more = fitting(facts, writer.width() - taken); !more.empty()) {
    text += std::string(table.prints - used, ' ') + gap + writer.colored(FAINT, more);
  }
  return text + "\n";
}

/// Lines beside the name, the first of them on the name's own line if `text` is not ended yet.
void add_lines(std::string& text, const Table& table, const TextWriter& writer, const char* color,
               const std::string& more) {
  const std::size_t indent = table.name + GAP;
  const auto width = writer.width() == UNLIMITED_WIDTH ? UNLIMITED_WIDTH : writer.width() - indent;
  for (const auto& line : writer.wrapped(more, width)) {
    text += text.ends_with('\n') ? std::string(indent, ' ') : "";
    text += writer.colored(color, line) + "\n";
  }
}

/// The reason of a pause that is not among the troubles: of a queue that was only read.
std::string pause_text(const QueueReport& queue) {
  const auto reason = pause_reason(queue.reading);
  return is_good(queue.outcome) && !reason.empty() ? "paused: " + reason : "";
}

std::string paragraph_text(const Row& row, const Table& table, const Report& report,
                           const TextWriter& writer) {
  const auto& queue = *row.queue;
  const auto& reading = queue.reading;
  std::string text = name_cell(row, table, writer);
  for (const auto& trouble : troubles(queue, report.limits, row.server->server)) {
    add_lines(text, table, writer, row.verdict == Verdict::Error ? RED : YELLOW, to_text(trouble));
    if (!trouble.action.empty()) {
      add_lines(text, table, writer, "", trouble.action);
    }
  }
  if (queue.outcome == Outcome::NotFound) {
    return text;
  }
  std::vector<std::string> facts;
  if (reading.state != QueueState::Stopped && reading.accepting != false) {
    facts.push_back(row.state);
  }
  if (const auto waiting = waiting_text(queue); !waiting.empty()) {
    facts.push_back(waiting);
  }
  if (has_other_supplies(reading)) {
    facts.push_back(supplies_text(reading));
  } else if (reading.level_percent) {
    facts.push_back(row.prints + row.percent);
  }
  if (reading.age_seconds) {
    facts.push_back(read_text(reading));
  }
  if (!reading.sheet.empty()) {
    facts.push_back(reading.sheet);
  }
  for (const auto& reason : reading.reasons) {
    facts.push_back(reason);
  }
  add_lines(text, table, writer, FAINT, joined(facts));
  return text;
}

std::string summary(const std::vector<Row>& rows, const Report& report) {
  const auto count = rows.size();
  const auto in_trouble =
      std::ranges::count_if(rows, [](const Row& row) { return row.verdict != Verdict::Well; });
  const auto unreached =
      std::ranges::count_if(report.servers, [](const auto& server) { return !server.error.empty(); });
  const std::string all = std::to_string(count) + (count == 1 ? " printer" : " printers");
  std::vector<std::string> parts;
  if (count == 0) {
    parts.emplace_back(unreached > 0 ? "No printer was read" : "No Brenvellis queues found");
  } else if (in_trouble == 0) {
    parts.push_back(all + (unreached > 0 ? " well" : ", all well"));
  } else if (count == 1) {
    parts.push_back(all + " needs attention");
  } else {
    parts.push_back(std::to_string(in_trouble) + " of " + std::to_string(count) +
                    (in_trouble == 1 ? " needs attention" : " need attention"));
  }
  if (unreached > 0) {
    parts.push_back(std::to_string(unreached) + (unreached == 1 ? " print server" : " print servers") +
                    " not reached");
  }
  constexpr std::size_t hours_and_minutes = 5;
  parts.push_back(local_clock_text(report.time).substr(0, hours_and_minutes));
  return joined(parts);
}

}  // namespace

std::string text_view(const Report& report, const TextStyle& style) {
  const TextWriter writer(style);
  std::vector<Row> rows;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      rows.push_back(row_of(queue, server, report, writer));
    }
  }
  std::ranges::stable_sort(
      rows, [](const Row& one, const Row& other) { return is_worse(one.verdict, other.verdict); });
  const auto table = table_of(rows, writer);

  std::string text;
  for (const auto& line : writer.wrapped(summary(rows, report), writer.width())) {
    text += writer.colored(BOLD, line) + "\n";
  }
  for (const auto& server : report.servers) {
    if (!server.error.empty()) {
      for (const auto& line :
           writer.wrapped("print server " + server.server + ": " + server.error, writer.width())) {
        text += writer.colored(RED, line) + "\n";
      }
    }
  }
  for (const auto& row : rows) {
    if (takes_a_line(row.verdict)) {
      text += row_text(row, table, writer);
    } else {
      text += paragraph_text(row, table, report, writer);
    }
    if (const auto paused = pause_text(*row.queue); !paused.empty()) {
      add_lines(text, table, writer, YELLOW, paused);
    }
  }
  return text;
}
