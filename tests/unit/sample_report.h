// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "monitor/queue_watch.h"
#include "monitor/report.h"

/// The rules of a watch, where a one-time call is the default.
inline WatchRules again() {
  WatchRules rules;
  rules.again = true;
  return rules;
}

/// A queue's reading after a report of a healthy printer.
inline Reading ribbon_reading(const std::string& queue, int remaining, int total, const std::string& sheet) {
  Reading reading;
  reading.queue = queue;
  reading.info = queue;
  reading.make_and_model = "Brenvellis Photo Printer, 0.1";
  reading.state = QueueState::Idle;
  reading.accepting = true;
  reading.reports_levels = true;
  reading.reports_status = true;
  reading.prints_remaining = remaining;
  reading.prints_total = total;
  reading.level_percent = static_cast<int>(std::int64_t{100} * remaining / total);
  reading.sheet = sheet;
  reading.answered = true;
  reading.markers = {{"InkSheetType: " + sheet, "ink-ribbon", reading.level_percent}};
  reading.age_seconds = 0;
  return reading;
}

inline QueueReport refreshed(const Reading& reading, double seconds = 0.125) {
  return {reading, Outcome::Refreshed, {}, seconds};
}

/// A report of one print server with these queues.
inline Report report_with(std::vector<QueueReport> queues) {
  Report report;
  report.servers = {{"localhost", {}, 0, std::move(queues)}};
  return report;
}

/// Returns a report of two print servers, with queues in all conditions that a view can show, and of one that
/// is down.
inline Report sample_report() {
  Report report;
  report.time = 1795189293;  // 2026-11-20 15:41:33 UTC

  auto hall = refreshed(ribbon_reading("hall", 200, 400, "10x15(4x6″)"));
  hall.reading.info = "The booth in the hall";
  hall.reading.location = "Ground floor";
  auto bar = refreshed(ribbon_reading("bar", 12, 400, "13x18(5x7″)"));
  auto garden = refreshed(ribbon_reading("garden", 350, 350, "15x20(6x8″)"));
  garden.reading.errors = {{"0008", "2660"}};
  garden.reading.reasons = {"cover-open-report"};

  auto silent = refreshed(ribbon_reading("silent", 0, 1, ""), 4.5);
  silent.reading.prints_remaining.reset();
  silent.reading.prints_total.reset();
  silent.reading.level_percent.reset();
  silent.reading.markers = {{"InkSheetType: 00", "ink-ribbon", {}}};
  silent.reading.answered = false;
  silent.reading.errors = {{"0004", "0004"}};

  QueueReport paused{ribbon_reading("paused", 1, 400, "10x15(4x6″)"), Outcome::Paused, {}, {}};
  paused.reading.state = QueueState::Stopped;
  paused.reading.age_seconds = 90000;
  QueueReport busy{ribbon_reading("busy", 125, 400, "10x15(4x6″)"), Outcome::Busy, {}, {}};
  busy.reading.state = QueueState::Processing;
  busy.reading.age_seconds = 240;

  QueueReport stuck{ribbon_reading("stuck", 400, 400, "10x15(4x6″)"), Outcome::Busy, {}, {}};
  stuck.reading.state = QueueState::Processing;
  stuck.reading.state_message = "Waiting for printer to become available.";
  stuck.reading.state_seconds = 2460;
  stuck.reading.age_seconds = 2520;
  stuck.stuck = true;
  stuck.prints_waiting = 2;
  stuck.job_seconds = 2460;
  QueueReport down{ribbon_reading("down", 90, 400, "10x15(4x6″)"), Outcome::Stopped, {}, {}};
  down.reading.state = QueueState::Stopped;
  down.reading.state_message = "Printer stopped due to backend errors.";
  down.reading.age_seconds = 600;
  down.prints_waiting = 1;
  auto asking = refreshed(ribbon_reading("asking", 88, 400, "10x15(4x6″)"));
  asking.outcome = Outcome::Asking;
  asking.seconds.reset();
  asking.reading.age_seconds = 60;
  auto empty = refreshed(ribbon_reading("empty", 0, 400, "10x15(4x6″)"));
  auto strange = refreshed(ribbon_reading("strange", 0, 1, "10x15(4x6″)"));
  strange.reading.prints_remaining.reset();
  strange.reading.prints_total.reset();
  strange.reading.level_percent.reset();
  strange.reading.ribbon_words = "Ink Ribbon = 65534 / 1";

  QueueReport slow{ribbon_reading("slow", 77, 700, "42"), Outcome::TimedOut, {}, {}};
  slow.reading.age_seconds = 8000;
  QueueReport office;
  office.reading.queue = "office";
  office.reading.make_and_model = "Some Laser Printer";
  office.reading.state = QueueState::Idle;
  office.reading.accepting = true;
  office.reading.markers = {{"Black", "toner", 30}, {"Waste", "waste-toner", {}}};
  office.reading.age_seconds = 60;
  office.outcome = Outcome::Unsupported;
  QueueReport missing;
  missing.reading.queue = "missing";
  missing.outcome = Outcome::NotFound;

  report.servers = {
      {"localhost", {}, 4.75, {asking, bar, busy, down, empty, garden, hall, paused, silent, strange, stuck}},
      {"annex:8631", {}, 30.5, {office, slow, missing}},
      {"cellar", "it cannot be reached: Connection refused", 0.25, {}},
  };
  for (auto& server : report.servers) {
    for (auto& queue : server.queues) {
      if (queue.reading.age_seconds) {
        queue.read_at = report.time - *queue.reading.age_seconds;
      }
    }
  }
  return report;
}

/// A report whose every text is `text`.
inline Report hostile_report(const std::string& text) {
  Reading reading = ribbon_reading(text, 200, 400, text);
  reading.info = text;
  reading.location = text;
  reading.state_message = text;
  reading.ribbon_words = text;
  reading.make_and_model = text;
  reading.reasons = {text};
  reading.markers.push_back({text, text, 5});
  reading.errors = {{text, text}};
  QueueReport queue{reading, Outcome::Failed, text, 1.0};
  queue.stuck = true;
  QueueReport foreign = queue;
  foreign.reading.level_percent.reset();
  foreign.reading.prints_remaining.reset();
  foreign.reading.answered.reset();
  QueueReport missing = queue;
  missing.outcome = Outcome::NotFound;
  Report report;
  report.time = 1795189293;
  report.servers = {{text, {}, 0.5, {queue, foreign, missing}}, {text, text, 0.5, {}}};
  return report;
}

/// Texts in a printer's name that may break a view.
inline const std::string HOSTILE_TEXTS[] = {
    "<script>alert(1)</script>",
    "\"><img src=x onerror=alert(1)>",
    "' onload='alert(1)",
    "a\"b\\c{d=\"e\"}",
    "line\nbrenvellis_queue_up{queue=\"forged\"} 1\r\n",
    "\x1b[31mred\x1b[0m \x07 \x08 \x7f \x9b 31m",
    "\xc2\x9b"
    "31m \xe2\x80\xae reversed \xe2\x80\xa8 separated",
    "\u061C\u200E\u200F\u202A\u202B\u202C\u202D\u202E\u2066\u2067\u2068\u2069 \u2029 \u0080\u0085\u009F",
    "\xff\xfe\xc3( \xe2\x82 \xf0\x9f \xed\xa0\x80 \xc0\xaf broken",
    std::string("nul\0inside", 10),
    "&amp; &lt; &#60; ${jndi} {{7*7}} %s%n",
    std::string(1000, 'x'),
    "",
    " ",
};

/// The text of a file with an expected output.
inline std::string expected(const std::string& name) {
  std::ifstream file(std::string(EXPECTED_FOLDER) + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
