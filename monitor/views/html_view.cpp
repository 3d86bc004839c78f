// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/html_view.h"

#include <cups/cups.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "monitor/views/page_files.h"
#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

/// If there are more printers than this, healthy ones become tiles.
constexpr std::size_t MANY = 6;

/// A queue and its server, so that queues of all servers can be sorted.
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

/// Returns HTML for an untrusted text in any script and direction, isolated from its surroundings.
std::string foreign(std::string_view text) {
  return "<bdi>" + escaped(text) + "</bdi>";
}

std::string element(const char* name, const char* kind, const std::string& content) {
  const std::string tag = name;
  return content.empty() ? "" : "<" + tag + " class=\"" + kind + "\">" + content + "</" + tag + ">\n";
}

std::string paragraph(const char* kind, const std::string& content) {
  return element("p", kind, content);
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
      return "✓ <span>OK</span>";
    case Verdict::Low:
      return "▼ <span>Low</span>";
    case Verdict::Error:
      return "✕ <span>Error</span>";
    case Verdict::Unknown:
      return "? <span>Not read</span>";
  }
  return "";
}

std::string gauge(const Reading& reading) {
  const auto ratio = ribbon_ratio(reading);
  if (!ratio) {
    return "";
  }
  std::array<char, 320> text{};
  snprintf(text.data(), text.size(),
           "<svg class=\"gauge\" viewBox=\"0 0 100 8\" preserveAspectRatio=\"none\" role=\"img\" "
           "aria-label=\"Ribbon %.0f percent left\"><rect class=\"track\" width=\"100\" height=\"8\"/>"
           "<rect class=\"fill\" width=\"%.1f\" height=\"8\"/></svg>\n",
           std::floor(*ratio * 100), *ratio <= 0 ? 0.0 : std::clamp(*ratio * 100, 1.0, 100.0));
  return text.data();
}

/// The large number and its unit.
std::string figure(const Reading& reading) {
  std::string number;
  std::string unit = "left";
  if (reading.prints_remaining && reading.prints_total) {
    number = std::to_string(*reading.prints_remaining);
    unit = "of " + std::to_string(*reading.prints_total) + " prints left";
  } else {
    number = std::to_string(reading.level_percent.value_or(0)) + " %";
  }
  constexpr std::size_t usual = 3;
  return R"(<p class="figure"><strong style="--digits:)" + std::to_string(std::max(usual, number.size())) +
         "\">" + number + "</strong> <span>" + unit + "</span></p>\n";
}

/// The time of the last reading; the script adds the age and updates it.
std::string read_at(const Report& report, const Reading& reading) {
  if (!reading.age_seconds) {
    return "Never read";
  }
  constexpr int half_a_day = 12 * 60 * 60;
  const std::time_t at = report.time - *reading.age_seconds;
  return std::string(reading.answered == false ? "Asked" : "Read") + " <time datetime=\"" +
         utc_time_text(at) + "\" data-age=\"" + std::to_string(*reading.age_seconds) + "\">at " +
         escaped(*reading.age_seconds < half_a_day ? local_clock_text(at) : local_time_text(at)) + "</time>";
}

std::string facts(const Report& report, const QueueReport& queue) {
  const auto& reading = queue.reading;
  std::vector<std::string> parts;
  if (!reading.sheet.empty()) {
    parts.push_back("Sheet " + foreign(reading.sheet));
  }
  if (reading.state == QueueState::Processing && !queue.stuck) {
    parts.emplace_back("Printing");
  } else if (queue.outcome == Outcome::Asking && reading.level_percent) {
    parts.emplace_back("Asking");
  }
  if (queue.prints_waiting > 0) {
    parts.push_back(waiting_text(queue));
  }
  for (const auto& reason : reading.reasons) {
    if (!reason.ends_with("-error")) {
      parts.push_back(foreign(reason));
    }
  }
  parts.push_back(read_at(report, reading));
  return joined(parts, " · ");
}

std::string where(const Card& card, bool with_server) {
  const auto& reading = card.queue->reading;
  std::vector<std::string> parts;
  for (const auto& part : {reading.info == reading.queue ? std::string() : reading.info, reading.location,
                           with_server ? card.server->server : std::string()}) {
    if (!part.empty()) {
      parts.push_back(foreign(part));
    }
  }
  return joined(parts, " · ");
}

/// The text with "0008 / 2660" and "12 %" kept on one line.
std::string unbroken(std::string text) {
  for (const std::string_view mark : {"/ ", " /", " %"}) {
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark)) {
      text.replace(text.find(' ', at), 1, "&nbsp;");
    }
  }
  return text;
}

/// The first problem in large letters, and the others.
std::string trouble_text(const QueueReport& queue, const std::vector<Trouble>& list) {
  std::string text;
  for (const auto& trouble : list) {
    std::string cause = escaped(capitalized(trouble.cause));
    if (queue.stuck && queue.job_seconds) {
      const std::string duration = duration_text(*queue.job_seconds);
      if (cause.ends_with(" " + duration)) {
        cause.erase(cause.size() - duration.size());
        cause += "<span data-lasts=\"" + std::to_string(*queue.job_seconds) + "\">" + duration + "</span>";
      }
    }
    if (text.empty()) {
      text = paragraph("cause", cause) + paragraph("action", unbroken(escaped(trouble.action)));
      text += paragraph("detail", trouble.detail.empty() ? "" : foreign(trouble.detail));
    } else {
      text +=
          paragraph("more", std::string("<b>") + cause + ".</b> " + escaped(trouble.action) +
                                (trouble.detail.empty() ? "" : std::string(" ") + foreign(trouble.detail)));
    }
  }
  return text;
}

std::string card_text(const char* kind, const std::string& id, const std::string& name,
                      const std::string& verdict, const std::string& rest) {
  return std::string("<li class=\"card ") + kind + "\"><article aria-labelledby=\"" + id +
         "\">\n<div class=\"top\"><h2 id=\"" + id + "\">" + foreign(name) + "</h2><p class=\"verdict\">" +
         verdict + "</p></div>\n" + rest + "</article></li>\n";
}

std::string printer_card(const Report& report, const Card& card, const std::string& id, bool with_server) {
  const auto& reading = card.queue->reading;
  std::string rest;
  std::string text;
  if (card.verdict == Verdict::Well) {
    text = figure(reading);
    rest = gauge(reading);
  } else {
    text = trouble_text(*card.queue, troubles(*card.queue, report.limits, card.server->server));
    if (has_other_supplies(reading)) {
      rest = paragraph("supplies", foreign(supplies_text(reading)));
    } else if (reading.level_percent) {
      rest = paragraph("left", unbroken(prints_left_text(reading))) +
             (card.verdict == Verdict::Low ? gauge(reading) : "");
    }
  }
  rest += paragraph("where", where(card, with_server));
  if (card.queue->outcome != Outcome::NotFound) {
    rest += paragraph("facts", facts(report, *card.queue));
  }
  return card_text(class_of(card.verdict), id, reading.queue, verdict_text(card.verdict),
                   text + element("div", "rest", rest));
}

std::string server_card(const ServerReport& server, const std::string& id) {
  return card_text("error", id, server.server, "✕ <span>Error</span>",
                   paragraph("cause", "Print server not reached") +
                       paragraph("action", "Switch the server on and check the network.") +
                       paragraph("detail", foreign(server.error)));
}

std::string tile(const Reading& reading) {
  const std::string total = reading.prints_total ? "of " + std::to_string(*reading.prints_total) : "left";
  const std::string left = reading.prints_remaining
                               ? std::to_string(*reading.prints_remaining)
                               : std::to_string(reading.level_percent.value_or(0)) + "&nbsp;%";
  return "<li class=\"tile well\"><div><h2>" + foreign(reading.queue) + "</h2><p><strong>" + left +
         "</strong> " + total + "</p>" + gauge(reading) + "</div></li>\n";
}

/// Returns the number of columns with which `count` boxes are largest in an area with this ratio of width to
/// height, if each box is `box_ratio` times as wide as high.
std::size_t columns_for(std::size_t boxes, double area_ratio, double box_ratio) {
  std::size_t best = 1;
  double best_size = 0;
  for (std::size_t columns = 1; columns <= boxes; ++columns) {
    const std::size_t rows = (boxes + columns - 1) / columns;
    const double size =
        std::min(area_ratio / static_cast<double>(columns) / box_ratio, 1 / static_cast<double>(rows));
    if (size > best_size) {
      best = columns;
      best_size = size;
    }
  }
  return best;
}

/// A list that fills `share` percent of the screen's height. The first box may use the remaining space.
std::string grid(const char* kind, const std::string& items, std::size_t count, int share, double box_ratio,
                 bool widens_first) {
  if (count == 0) {
    return "";
  }
  constexpr double landscape = 1.75;
  constexpr double portrait = 0.6;
  const auto columns = [&](const std::string& name, double screen_ratio) {
    const std::size_t number = columns_for(count, screen_ratio * 100 / std::max(share, 1), box_ratio);
    const std::size_t left_over = (number - count % number) % number;
    return "--" + name + ":" + std::to_string(number) + ";--" + name +
           "-first:" + std::to_string(widens_first ? 1 + left_over : 1);
  };
  return std::string("<ul class=\"") + kind + "\" style=\"" + columns("wide", landscape) + ";" +
         columns("tall", portrait) + "\">\n" + items + "</ul>\n";
}

/// The page's heading: "3 of 40 printers need attention".
std::string summary(std::size_t printers, std::size_t in_trouble, std::size_t servers_unreached) {
  const auto counted = [](std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
  };
  std::vector<std::string> parts;
  if (in_trouble > 0) {
    parts.push_back((in_trouble < printers ? std::to_string(in_trouble) + " of " : "") +
                    counted(printers, "printer") + (in_trouble == 1 ? " needs" : " need") + " attention");
  }
  if (servers_unreached > 0) {
    parts.push_back(counted(servers_unreached, "print server") + " not reached");
  }
  if (parts.empty()) {
    return printers == 0 ? "No printer" : "All well: " + counted(printers, "printer");
  }
  return joined(parts);
}

/// The source expression that allows this script in a content security policy.
std::string hash_source(std::string_view script) {
  std::array<unsigned char, 32> hash{};
  std::array<char, 64> text{};
  if (cupsHashData("sha2-256", script.data(), script.size(), hash.data(), hash.size()) < 0) {
    return "'none'";
  }
  httpEncode64_2(text.data(), text.size(), reinterpret_cast<const char*>(hash.data()), hash.size());
  return std::string("'sha256-") + text.data() + "'";
}

}  // namespace

std::string html_view(const Report& report, const PageTimes& times) {
  const bool with_server = report.servers.size() > 1;
  std::vector<Card> queues;
  std::string cards;
  std::size_t unreached = 0;
  for (const auto& server : report.servers) {
    for (const auto& queue : server.queues) {
      queues.push_back({&server, &queue, judge(queue, report.limits)});
    }
    if (!server.error.empty()) {
      ++unreached;
      cards += server_card(server, "server-" + std::to_string(unreached));
    }
  }
  std::ranges::stable_sort(
      queues, [](const Card& one, const Card& other) { return is_worse(one.verdict, other.verdict); });

  std::string tiles;
  std::size_t tile_count = 0;
  std::size_t in_trouble = 0;
  for (const auto& card : queues) {
    in_trouble += card.verdict == Verdict::Well ? 0 : 1;
    if (card.verdict == Verdict::Well && queues.size() + unreached > MANY) {
      ++tile_count;
      tiles += tile(card.queue->reading);
    } else {
      cards +=
          printer_card(report, card, "printer-" + std::to_string(&card - queues.data() + 1), with_server);
    }
  }
  const std::size_t card_count = queues.size() + unreached - tile_count;

  // The cards' share of the height in percent: the rest of the tiles, but at least 40.
  constexpr double half_screen = 3.5;
  constexpr double tile_ratio = 2.2;
  constexpr int tile_height = 10;
  int share = 100;
  if (tile_count > 0) {
    const std::size_t tile_columns = columns_for(tile_count, half_screen, tile_ratio);
    const auto rows = static_cast<int>((tile_count + tile_columns - 1) / tile_columns);
    share = card_count == 0 ? 0 : std::max(40, 100 - rows * tile_height);
  }

  const std::string said = summary(queues.size(), in_trouble, unreached);
  const std::string written = escaped(local_time_text(report.time));
  const std::string reload = std::to_string(times.reload);
  std::string text =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
      "script-src " +
      hash_source(PAGE_SCRIPT) +
      "; connect-src 'self'; frame-src file:\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<noscript><meta http-equiv=\"refresh\" content=\"" +
      reload + "\"></noscript>\n<title>" + said + "</title>\n<style>" + PAGE_STYLE + "</style>\n<script>" +
      PAGE_SCRIPT + "</script>\n</head>\n<body>\n" +
      "<div id=\"stopped\" hidden><strong role=\"alert\">The monitor has stopped.</strong> <span>Nothing new "
      "since "
      "<time></time>.</span> <span>Start brenvellis-monitor again.</span></div>\n<header><h1 "
      "aria-live=\"polite\">" +
      said + "</h1><p>Updated <time datetime=\"" + utc_time_text(report.time) + R"(" data-age="0">)" +
      written +
      "</time><noscript>. If this time is old, brenvellis-monitor has "
      "stopped.</noscript></p></header>\n"
      "<main data-time=\"" +
      std::to_string(report.time) + "\" data-written=\"" + written + "\" data-interval=\"" +
      std::to_string(times.interval) + "\" data-reload=\"" + reload +
      "\" style=\"--share:" + std::to_string(share) + "\">\n";
  if (card_count + tile_count == 0) {
    text +=
        "<p class=\"none\">No Brenvellis queue found. Run brenvellis-check-ppd on the queue's PPD, or name "
        "the "
        "queue.</p>\n";
  }
  // A number fits into a narrower card than a sentence.
  const bool any_trouble = in_trouble + unreached > 0;
  text +=
      grid("cards", cards, card_count, share, any_trouble ? 1.35 : 0.9, any_trouble && card_count <= MANY);
  text += grid("tiles", tiles, tile_count, 100 - share, tile_ratio, false);
  return text + "</main>\n</body>\n</html>\n";
}
