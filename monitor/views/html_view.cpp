// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/html_view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

constexpr const char* STYLE = R"(
:root { color-scheme: light dark;
  --page: #eef1f4; --card: #ffffff; --text: #14181d; --faint: #4d5864; --track: #d9dfe5; --edge: #c9d1d9;
  --well: #11703a; --low: #8f5a00; --low-fill: #e0910a; --error: #b3171e; --unknown: #4d5864; }
@media (prefers-color-scheme: dark) { :root {
  --page: #0d1117; --card: #171c24; --text: #f0f4f8; --faint: #a4b0bd; --track: #2e3743; --edge: #2e3743;
  --well: #3fc46f; --low: #f5b642; --low-fill: #f5b642; --error: #ff7b72; --unknown: #a4b0bd; } }
* { box-sizing: border-box; }
body { margin: 0; padding: clamp(1rem, 2.5vw, 2.5rem); background: var(--page); color: var(--text);
  font-family: system-ui, "Segoe UI", Roboto, "DejaVu Sans", "Liberation Sans", sans-serif; line-height: 1.35; }
header { display: flex; flex-wrap: wrap; gap: .25rem 2rem; align-items: baseline; justify-content: space-between;
  margin-bottom: clamp(1rem, 2vw, 2rem); }
h1 { margin: 0; font-size: clamp(1.5rem, 3vw, 2.5rem); }
header p { margin: 0; color: var(--faint); font-size: 1.1rem; }
ul.printers { list-style: none; margin: 0; padding: 0; display: grid; gap: clamp(1rem, 2vw, 2rem);
  grid-template-columns: repeat(auto-fill, minmax(min(100%, 24rem), 1fr)); }
.card { --tone: var(--well); --fill: var(--well); background: var(--card); border: 1px solid var(--edge);
  border-top: .6rem solid var(--tone); border-radius: .8rem; padding: 1.25rem 1.5rem 1.4rem; overflow-wrap: anywhere; }
.card.low { --tone: var(--low); --fill: var(--low-fill); }
.card.error { --tone: var(--error); }
.card.unknown { --tone: var(--unknown); }
.card.error.ribbon-low, .card.unknown.ribbon-low { --fill: var(--low-fill); }
.card p { margin: .35rem 0 0; }
.top { display: flex; gap: 1rem; align-items: baseline; justify-content: space-between; }
ul.printers > li { display: grid; }
section.card { margin-bottom: clamp(1rem, 2vw, 2rem); }
section.card .problem { margin: 0; }
h2 { margin: 0; font-size: 2rem; line-height: 1.2; display: -webkit-box; -webkit-line-clamp: 2;
  -webkit-box-orient: vertical; overflow: hidden; }
.card .verdict { margin: 0; flex: none; color: var(--tone); font-weight: 700; font-size: 1.35rem; white-space: nowrap; }
.card .where, .card .age { color: var(--faint); font-size: 1.1rem; }
.card .left { margin-top: .6rem; display: flex; flex-wrap: wrap; align-items: center; gap: 0 .75rem; font-size: 1.3rem;
  line-height: 1.2; }
.left strong { font-size: 5.4rem; line-height: 1; font-variant-numeric: tabular-nums;
  letter-spacing: -.02em; }
.gauge { display: block; width: 100%; height: 1.6rem; margin-top: .8rem; }
.gauge .track { fill: var(--track); } .gauge .fill { fill: var(--fill); }
.card .facts { margin-top: .8rem; font-size: 1.15rem; }
.card .problem { color: var(--error); font-weight: 700; font-size: 1.6rem; line-height: 1.2; margin-top: .8rem; }
.card .note { color: var(--low); font-size: 1.15rem; font-weight: 600; }
.empty { font-size: 1.5rem; }
footer { margin-top: 2rem; color: var(--faint); }
@media print { body { background: none; } .card { break-inside: avoid; } }
)";

/// A queue and where it belongs, so that queues of all servers can be sorted.
struct Card {
  const ServerReport* server;
  const QueueReport* queue;
  Verdict verdict;
};

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string capitalized(std::string text) {
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') {
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
  }
  return text;
}

std::string paragraph(const char* kind, const std::string& text) {
  return text.empty() ? "" : std::string("<p class=\"") + kind + "\">" + escaped(text) + "</p>\n";
}

const char* class_of(Verdict verdict) {
  switch (verdict) {
    case Verdict::Well:
      return "well";
    case Verdict::Low:
      return "low";
    case Verdict::Error:
      return "error";
    case Verdict::Unknown:
      return "unknown";
  }
  return "unknown";
}

const char* verdict_text(Verdict verdict) {
  switch (verdict) {
    case Verdict::Well:
      return "✓ OK";
    case Verdict::Low:
      return "▼ Ribbon low";
    case Verdict::Error:
      return "✕ Error";
    case Verdict::Unknown:
      return "? Not read";
  }
  return "";
}

std::string gauge(const Reading& reading) {
  const auto ratio = ribbon_ratio(reading);
  if (!ratio) {
    return "<svg class=\"gauge\" viewBox=\"0 0 100 8\" preserveAspectRatio=\"none\" role=\"img\" "
           "aria-label=\"Ribbon level not known\"><rect class=\"track\" width=\"100\" height=\"8\"/></svg>\n";
  }
  std::array<char, 320> text{};
  snprintf(text.data(), text.size(),
           "<svg class=\"gauge\" viewBox=\"0 0 100 8\" preserveAspectRatio=\"none\" role=\"img\" "
           "aria-label=\"Ribbon %.0f percent left\"><rect class=\"track\" width=\"100\" height=\"8\"/>"
           "<rect class=\"fill\" width=\"%.1f\" height=\"8\"/></svg>\n",
           std::floor(*ratio * 100), *ratio <= 0 ? 0.0 : std::clamp(*ratio * 100, 1.0, 100.0));
  return text.data();
}

/// The large figure, and what it counts.
std::string prints_left(const Reading& reading) {
  std::string figure = "–";
  std::string unit = "prints left<br>not known";
  if (reading.prints_remaining && reading.prints_total && reading.level_percent) {
    figure = std::to_string(*reading.prints_remaining);
    unit = "of " + std::to_string(*reading.prints_total) + "<br>prints left";
  } else if (reading.level_percent) {
    figure = std::to_string(*reading.level_percent) + "&nbsp;%";
    unit = "left";
  }
  return "<p class=\"left\"><strong>" + figure + "</strong> <span>" + unit + "</span></p>\n";
}

/// What the printer's silence means, unless an error says so already.
std::string silence(const Reading& reading) {
  const bool is_told = std::ranges::any_of(reading.errors, is_fallback);
  return reading.answered == false && !is_told ? prints_left_text(reading) : "";
}

std::string facts(const Reading& reading) {
  std::vector<std::string> parts;
  if (reading.level_percent) {
    parts.push_back(std::to_string(*reading.level_percent) + " % left");
  }
  if (!reading.sheet.empty()) {
    parts.push_back("Sheet " + reading.sheet);
  }
  parts.push_back(capitalized(state_text(reading)));
  return joined(parts, " · ");
}

std::string age(const Report& report, const Reading& reading) {
  std::string text = capitalized(read_text(reading));
  if (reading.age_seconds) {
    constexpr int half_a_day = 12 * 60 * 60;
    const std::time_t read_at = report.time - *reading.age_seconds;
    text +=
        ", at " + (*reading.age_seconds < half_a_day ? local_clock_text(read_at) : local_time_text(read_at));
  }
  return text;
}

std::string where(const Card& card, bool with_server) {
  const auto& reading = card.queue->reading;
  std::vector<std::string> parts;
  for (const auto& part : {reading.info == reading.queue ? std::string() : reading.info, reading.location,
                           with_server ? card.server->server : std::string()}) {
    if (!part.empty()) {
      parts.push_back(part);
    }
  }
  return joined(parts, " · ");
}

std::string card_text(const Report& report, const Card& card, std::size_t number, bool with_server) {
  const auto& reading = card.queue->reading;
  const std::string id = "printer-" + std::to_string(number);
  std::string text = "<li>\n<article class=\"card ";
  text += class_of(card.verdict);
  text += is_under(reading, report.limits.low) ? " ribbon-low" : "";
  text += "\" aria-labelledby=\"" + id + "\">\n<div class=\"top\"><h2 id=\"" + id + "\">";
  text += escaped(reading.queue) + "</h2><p class=\"verdict\">" + verdict_text(card.verdict) + "</p></div>\n";
  text += paragraph("where", where(card, with_server));
  for (const auto& error : reading.errors) {
    text += paragraph("problem", capitalized(error_text(error, reading)));
  }
  text += paragraph("problem", capitalized(trouble_text(*card.queue)));
  if (card.queue->outcome == Outcome::NotFound) {
    return text + paragraph("problem", capitalized(outcome_text(*card.queue))) + "</article>\n</li>\n";
  }
  for (const auto& reason : reading.reasons) {
    text += paragraph("note", reason);
  }
  if (has_other_supplies(reading)) {
    text += paragraph("facts", supplies_text(reading));
  } else {
    text += prints_left(reading);
    text += gauge(reading);
  }
  text += paragraph("note", capitalized(silence(reading)));
  text += paragraph("facts", facts(reading));
  text += paragraph(card.queue->stuck ? "note" : "facts", capitalized(waiting_text(*card.queue)));
  text += paragraph(is_good(card.queue->outcome) ? "age" : "note", capitalized(outcome_text(*card.queue)));
  text += paragraph("age", age(report, reading));
  return text + "</article>\n</li>\n";
}

std::string summary(const std::vector<Card>& cards) {
  const auto trouble =
      std::ranges::count_if(cards, [](const Card& card) { return card.verdict != Verdict::Well; });
  const std::string of = std::to_string(cards.size()) + (cards.size() == 1 ? " printer" : " printers");
  return trouble == 0
             ? of + ", all well"
             : std::to_string(trouble) + " of " + of + (trouble == 1 ? " needs" : " need") + " attention";
}

}  // namespace

std::string html_view(const Report& report, int reload_seconds) {
  const bool with_server = report.servers.size() > 1;
  std::vector<Card> cards;
  std::string unreached_text;
  int unreached = 0;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      cards.push_back({&server, &queue, judge(queue, report.limits)});
    }
    if (!server.error.empty()) {
      ++unreached;
      unreached_text += paragraph("problem", "Print server " + server.server + ": " + server.error);
    }
  }
  std::ranges::stable_sort(cards, [](const Card& one, const Card& other) {
    return one.verdict != other.verdict && worse(one.verdict, other.verdict) == one.verdict;
  });

  std::string text =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
      "'unsafe-inline'\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta http-equiv=\"refresh\" content=\"" +
      std::to_string(reload_seconds) + "\">\n<title>";
  std::string said = cards.empty() ? "No printer" : summary(cards);
  if (unreached > 0) {
    said += ", " + std::to_string(unreached) + (unreached == 1 ? " print server" : " print servers") +
            " not reached";
  }
  text += said + "</title>\n<style>" + STYLE + "</style>\n</head>\n<body>\n<header><h1>" + said +
          "</h1><p>Written at <time datetime=\"" + utc_time_text(report.time) + "\">" +
          escaped(local_time_text(report.time)) + "</time></p></header>\n<main>\n";
  if (unreached > 0) {
    text += "<section class=\"card error\" aria-label=\"Print servers\">\n" + unreached_text + "</section>\n";
  } else if (cards.empty()) {
    text += "<p class=\"empty\">There is no Brenvellis printer's queue.</p>\n";
  }
  if (!cards.empty()) {
    text += "<ul class=\"printers\">\n";
    for (std::size_t i = 0; i < cards.size(); ++i) {
      text += card_text(report, cards[i], i + 1, with_server);
    }
    text += "</ul>\n";
  }
  return text + "</main>\n<footer>This page reads itself again every " + std::to_string(reload_seconds) +
         " seconds. If the time above is old, nobody writes it any more.</footer>\n</body>\n</html>\n";
}
