// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "monitor/views/html_view.h"
#include "monitor/views/json_view.h"
#include "monitor/views/plain_text.h"
#include "monitor/views/prometheus_view.h"
#include "monitor/views/text_view.h"
#include "monitor/views/wording.h"
#include "tests/unit/sample_report.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// The page without its style sheet, its script and the script's hash.
std::string without_style(std::string page) {
  const auto start = page.find("<style>");
  page.erase(start, page.find("</head>") - start);
  return std::regex_replace(page, std::regex("'sha256-[A-Za-z0-9+/]{43}='"), "'sha256-...'");
}

class Views : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
};

TEST_F(Views, TheTextIsAsExpected) {
  EXPECT_EQ(text_view(sample_report(), {true, false}), expected("report.txt"));
}

TEST_F(Views, TheTextWithoutUtf8IsAsExpected) {
  EXPECT_EQ(text_view(sample_report(), {false, false}), expected("report-ascii.txt"));
}

TEST_F(Views, TheColoredTextIsAsExpected) {
  EXPECT_EQ(text_view(sample_report(), {true, true}), expected("report-color.txt"));
}

TEST_F(Views, ColorsChangeNothingElse) {
  const std::regex colors("\x1b\\[[0-9;]*m");
  EXPECT_EQ(std::regex_replace(text_view(sample_report(), {true, true}), colors, ""),
            text_view(sample_report(), {true, false}));
}

TEST_F(Views, NoLineOfTheTextIsWiderThanTheTerminal) {
  for (const std::size_t width : {40U, 41U, 60U, 80U, 132U}) {
    for (const auto& text : HOSTILE_TEXTS) {
      for (const auto& line : lines_of(text_view(hostile_report(text), {true, false, width}))) {
        EXPECT_LE(columns(line), width) << line;
      }
    }
    for (const auto& line : lines_of(text_view(sample_report(), {true, false, width}))) {
      EXPECT_LE(columns(line), width) << line;
    }
  }
}

TEST_F(Views, TheTextForFortyColumnsIsAsExpected) {
  EXPECT_EQ(text_view(sample_report(), {true, false, 40}), expected("report-40.txt"));
}

TEST_F(Views, LongNumbersStayWithinTheTerminal) {
  Report report;
  report.servers = {
      {"here", {}, 0, {refreshed(ribbon_reading(std::string(40, 'n'), 2000000000, 2000000000, "10"))}}};
  report.servers[0].queues[0].reading.level_percent = 5;
  for (const std::size_t width : {40U, 60U, 80U}) {
    for (const auto& line : lines_of(text_view(report, {true, false, width}))) {
      EXPECT_LE(columns(line), width) << line;
    }
  }
}

TEST_F(Views, ALongReasonIsWrapped) {
  Report report;
  report.servers = {{"here", "one two three four five six seven eight nine ten", 0, {}}};
  EXPECT_EQ(text_view(report, {true, false, 40}),
            "No printer was read, 1 print server not\nreached, 00:00\n"
            "print server here: one two three four\nfive six seven eight nine ten\n");
}

TEST_F(Views, AVeryLongReasonIsCut) {
  std::string words;
  for (int i = 0; i < 100; ++i) {
    words += "word ";
  }
  Report report;
  report.servers = {{"here", words, 0, {}}};
  const auto lines = lines_of(text_view(report, {true, false, 60}));
  EXPECT_EQ(lines.size(), 5U);
  EXPECT_TRUE(lines.back().ends_with("…")) << lines.back();
}

TEST_F(Views, TheTextHasTheWorstFirst) {
  const auto text = text_view(sample_report(), {true, false});
  std::size_t at = 0;
  for (const char* name :
       {"\ndown@", "\ngarden@", "\nstuck@", "\npaused@", "\nslow@", "\nbar@", "\nasking@", "\nhall@"}) {
    const auto found = text.find(name);
    ASSERT_NE(found, std::string::npos) << name;
    EXPECT_GT(found, at) << name;
    at = found;
  }
}

/// So many healthy printers, the first `in_error` of them with an error.
Report many_printers(int count, int in_error) {
  Report report;
  report.time = 1795189500;  // 15:45 UTC
  report.servers = {{"here", {}, 0, {}}};
  for (int i = 0; i < count; ++i) {
    report.servers[0].queues.push_back(
        refreshed(ribbon_reading("booth" + std::to_string(i), 200, 400, "10x15(4x6″)")));
    if (i < in_error) {
      report.servers[0].queues.back().reading.errors = {{"0008", "2660"}};
    }
  }
  return report;
}

TEST_F(Views, AHealthyPrinterIsOneLineOfText) {
  for (const std::size_t width : {40U, 80U, 132U}) {
    EXPECT_EQ(lines_of(text_view(many_printers(40, 0), {true, false, width})).size(), 41U);
    EXPECT_EQ(lines_of(text_view(many_printers(40, 3), {true, false, width})).size(),
              width == 40 ? 56U : 47U);
  }
}

TEST_F(Views, TheFirstLineOfTheTextCountsThosePrintersThatNeedAttention) {
  const auto first = [](const Report& report) { return lines_of(text_view(report, {true, false, 40}))[0]; };
  EXPECT_EQ(first(many_printers(40, 3)), "3 of 40 need attention, 15:45");
  EXPECT_EQ(first(many_printers(40, 1)), "1 of 40 needs attention, 15:45");
  EXPECT_EQ(first(many_printers(1, 1)), "1 printer needs attention, 15:45");
  EXPECT_EQ(first(many_printers(40, 0)), "40 printers, all well, 15:45");
  EXPECT_EQ(first(many_printers(1, 0)), "1 printer, all well, 15:45");
  auto report = many_printers(3, 0);
  report.servers.push_back({"cellar", "no answer", 0, {}});
  EXPECT_EQ(lines_of(text_view(report, {true, false}))[0],
            "3 printers well, 1 print server not reached, 15:45");
}

TEST_F(Views, TheTextHasTheReasonOfAPause) {
  auto report = many_printers(1, 0);
  auto& queue = report.servers[0].queues[0];
  queue.reading.state = QueueState::Stopped;
  queue.reading.state_message = "gone home";
  for (const auto outcome : {Outcome::Paused, Outcome::NotAsked}) {
    queue.outcome = outcome;
    EXPECT_NE(text_view(report, {true, false}).find("paused: gone home\n"), std::string::npos);
  }
  queue.reading.state_message = "Paused";
  EXPECT_EQ(text_view(report, {true, false}).find("Paused"), std::string::npos);
}

TEST_F(Views, ALongNameMovesNoOtherLine) {
  auto report = many_printers(2, 0);
  report.servers[0].queues[0].reading.queue = std::string(1000, 'n');
  const auto lines = lines_of(text_view(report, {true, false, UNLIMITED_WIDTH}));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_NE(lines[1].find(std::string(1000, 'n') + "  idle"), std::string::npos);
  EXPECT_LE(columns(lines[2]), 120U);
}

TEST_F(Views, WhatIsNoTerminalGetsTheWholeText) {
  const std::string name(100, 'n');
  Report report;
  report.servers = {{"here", {}, 0, {QueueReport{}}}};
  report.servers[0].queues[0].reading.queue = name;
  report.servers[0].queues[0].reading.reasons = {std::string(500, 'x') + "end"};
  const auto text = text_view(report, {true, false, UNLIMITED_WIDTH});
  EXPECT_NE(text.find(name), std::string::npos);
  EXPECT_NE(text.find("xend"), std::string::npos);
}

TEST_F(Views, ANarrowTerminalGetsATextOfFortyColumnsOrMore) {
  for (const std::size_t width : {1U, 10U, 39U}) {
    EXPECT_EQ(text_view(sample_report(), {true, false, width}),
              text_view(sample_report(), {true, false, 40}));
  }
}

TEST_F(Views, OneServerIsNotNamedInTheText) {
  auto report = sample_report();
  report.servers.resize(1);
  EXPECT_EQ(text_view(report, {}).find("localhost"), std::string::npos);
}

TEST_F(Views, TheTextSaysThatThereIsNoQueue) {
  Report report;
  report.servers = {{"here", {}, 0, {}}};
  EXPECT_EQ(text_view(report, {}), "No Brenvellis queues found, 00:00\n");
}

TEST_F(Views, TheJsonIsAsExpected) {
  EXPECT_EQ(json_view(sample_report()), expected("report.json"));
}

TEST_F(Views, TheJsonFitsOnALine) {
  const auto text = json_view(sample_report(), -1);
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  EXPECT_EQ(nlohmann::json::parse(text), nlohmann::json::parse(json_view(sample_report())));
}

TEST_F(Views, TheMetricsAreAsExpected) {
  EXPECT_EQ(prometheus_view(sample_report()), expected("report.prom"));
}

TEST_F(Views, TheMetricsCallARibbonLowByTheSameRuleAsTheOtherViews) {
  Report report;
  report.servers = {{"here", {}, 0, {refreshed(ribbon_reading("hall", 43, 400, "10"))}}};
  const std::string low = "ribbon_low{queue=\"hall\",server=\"here\"} ";
  EXPECT_THAT(prometheus_view(report), HasSubstr(low + "1\n"));
  EXPECT_THAT(text_view(report, {}), HasSubstr("LOW"));
  report.limits.low = {9, Limit::Unit::Percent};
  EXPECT_THAT(prometheus_view(report), HasSubstr(low + "0\n"));
  EXPECT_THAT(text_view(report, {}), Not(HasSubstr("LOW")));
}

TEST_F(Views, TheMetricsTellAPausedQueueAlsoWithoutARefresh) {
  auto queue = refreshed(ribbon_reading("hall", 200, 400, "10"));
  queue.outcome = Outcome::NotAsked;
  queue.reading.state = QueueState::Stopped;
  Report report;
  report.servers = {{"here", {}, 0, {queue}}};
  const std::string paused = "queue_paused{queue=\"hall\",server=\"here\"} ";
  EXPECT_THAT(prometheus_view(report), HasSubstr(paused + "1\n"));
  report.servers[0].queues[0].outcome = Outcome::Stopped;
  EXPECT_THAT(prometheus_view(report), HasSubstr(paused + "0\n"));
}

TEST_F(Views, ThePageIsAsExpected) {
  EXPECT_EQ(without_style(html_view(sample_report())), expected("report.html"));
}

/// As many printers as a page shows in cards: one in trouble, the others well.
Report small_report() {
  auto report = many_printers(6, 1);
  auto& queues = report.servers[0].queues;
  queues[0].stuck = true;
  queues[0].job_seconds = 600;
  queues[0].reading.state_message = "Waiting for printer to become available.";
  queues[1].reading.prints_remaining.reset();
  queues[1].reading.age_seconds = 12 * 60 * 60;
  queues[2].reading.prints_total.reset();
  queues[2].reading.age_seconds = 12 * 60 * 60 - 1;
  queues[3].outcome = Outcome::Asking;
  queues[3].reading.info = "Photos";
  queues[3].reading.location = "Hall";
  queues[4].reading.state = QueueState::Processing;
  queues[4].reading.reasons = {"cover-open-report"};
  queues[4].prints_waiting = 1;
  queues[5].reading = ribbon_reading("booth5", 1000, 1000, "");
  queues[5].reading.age_seconds.reset();
  return report;
}

TEST_F(Views, APageOfAFewPrintersIsAsExpected) {
  EXPECT_EQ(without_style(html_view(small_report())), expected("report-small.html"));
}

struct TroubleCase {
  QueueReport queue;
  Trouble trouble;
};

TEST(Troubles, HaveTheirCausesAndActions) {
  const auto well = refreshed(ribbon_reading("booth", 200, 400, ""));
  const auto with_reason = [&well](const char* reason) {
    auto queue = well;
    queue.reading.reasons = {reason};
    return queue;
  };
  const auto with_outcome = [&well](Outcome outcome, const char* detail = "") {
    auto queue = well;
    queue.outcome = outcome;
    queue.detail = detail;
    queue.reading.state = outcome == Outcome::Paused ? QueueState::Stopped : QueueState::Idle;
    queue.reading.state_message = "words";
    return queue;
  };
  const auto with = [&well](const std::function<void(QueueReport&)>& change) {
    auto queue = well;
    change(queue);
    return queue;
  };
  const auto without_level = [&with](const std::function<void(QueueReport&)>& change) {
    return with([&change](QueueReport& queue) {
      queue.reading.level_percent.reset();
      queue.reading.prints_remaining.reset();
      change(queue);
    });
  };
  const std::string connect = "Switch the printer on and check its cable.";
  const TroubleCase cases[] = {
      {with_reason("media-empty-error"), {"out of paper", "Load paper.", {}}},
      {with_reason("media-needed-error"), {"out of paper", "Load paper.", {}}},
      {with_reason("media-jam-error"), {"paper jam", "Remove the jammed paper.", {}}},
      {with_reason("cover-open-error"), {"cover open", "Close the cover.", {}}},
      {with_reason("door-open-error"), {"door open", "Close the door.", {}}},
      {with_reason("marker-supply-empty-error"), {"ribbon empty", "Load a new ribbon.", {}}},
      {with_reason("offline-error"), {"printer offline", connect, {}}},
      {with_reason("timed-out-error"), {"printer not responding", connect, {}}},
      {with_reason("connecting-to-device-error"), {"printer not responding", connect, {}}},
      {with_reason("x-error"), {"printer error", "Look at the printer.", "x-error"}},
      {with_outcome(Outcome::Paused), {"paused", "Resume the queue (sudo cupsenable booth).", "words"}},
      {with_outcome(Outcome::Stopped),
       {"stopped after an error", "Remove the cause, then resume the queue (sudo cupsenable booth).",
        "words"}},
      {with_outcome(Outcome::Rejecting),
       {"rejecting jobs", "Let the queue accept jobs again (sudo cupsaccept booth).", {}}},
      {with_outcome(Outcome::Unsupported),
       {"another driver", "Use the Brenvellis driver, or do not name this queue.", {}}},
      {with_outcome(Outcome::TimedOut, "detail"), {"no answer in time", connect, "detail"}},
      {with_outcome(Outcome::Failed, "detail"), {"not refreshed", "Check the print server.", "detail"}},
      {with_outcome(Outcome::NotFound), {"no such queue", "Check the queue's name (lpstat -e).", {}}},
      {with([](auto& queue) { queue.stuck = true; }),
       {"print stuck", "Check the printer: power, cable, paper and ribbon.", {}}},
      {with([](auto& queue) {
         queue.stuck = true;
         queue.job_seconds = 120;
         queue.reading.state_message = "Connecting to printer.";
       }),
       {"print stuck for 2 min", connect, "Connecting to printer."}},
      {with([](auto& queue) {
         queue.reading.errors = {{"0004", "0004"}};
       }),
       {"error 0004, or an unknown code", "Look up 0004 in the printer's manual.", {}}},
      {with([](auto& queue) {
         queue.reading.errors = {{"0004", "0004"}};
         queue.reading.answered = false;
       }),
       {"no answer, or error 0004", connect, {}}},
      {with([](auto& queue) {
         queue.reading.errors = {{"0008", "0008"}};
       }),
       {"error 0008", "Look up 0008 in the printer's manual.", {}}},
      {with([](auto& queue) {
         queue.reading.errors = {{"0008", "2660"}};
       }),
       {"error 0008, code 2660", "Look up 0008 / 2660 in the printer's manual.", {}}},
      {with([](auto& queue) {
         queue.reading.errors = {{"00080", "1"}};
       }),
       {"unknown error", "Look at the printer.", "error 00080, code 1"}},
      {with([](auto& queue) {
         queue.reading.errors = {{"1", "26600"}};
       }),
       {"unknown error", "Look at the printer.", "error 1, code 26600"}},
      {without_level([](auto& queue) { queue.outcome = Outcome::Asking; }),
       {"asking", "Wait for the printer's answer.", {}}},
      {without_level([](auto& queue) { queue.reading.answered = false; }),
       {"no answer", "Check the cable, and that the URI begins with usb or socket (lpstat -v).", {}}},
      {without_level([](auto& queue) { queue.reading.ribbon_words = "words"; }),
       {"prints left not known", "Change or reseat the ribbon.", "words"}},
      {without_level([](auto& queue) { queue.reading.answered.reset(); }),
       {"another driver", "Use the Brenvellis driver, or do not name this queue.", {}}},
      {without_level([](auto& queue) {
         queue.reading.answered.reset();
         queue.reading.markers.clear();
         queue.outcome = Outcome::Busy;
       }),
       {"never read", "Wait for the end of the print.", {}}},
      {without_level([](auto& queue) {
         queue.reading.answered.reset();
         queue.reading.markers.clear();
       }),
       {"never read", "", {}}},
      {refreshed(ribbon_reading("booth", 0, 400, "")), {"ribbon empty", "Load a new ribbon.", {}}},
      {refreshed(ribbon_reading("booth", 1, 400, "")),
       {"only 1 print left", "Have a new ribbon at hand.", {}}},
      {refreshed(ribbon_reading("booth", 2, 400, "")),
       {"only 2 prints left", "Have a new ribbon at hand.", {}}},
      {with([](auto& queue) {
         queue.reading.prints_remaining.reset();
         queue.reading.prints_total.reset();
         queue.reading.level_percent = 7;
       }),
       {"only 7 % left", "Have a new ribbon at hand.", {}}},
  };
  for (const auto& [queue, trouble] : cases) {
    EXPECT_THAT(troubles(queue, {}, LOCAL_SERVER), testing::ElementsAre(trouble)) << trouble.cause;
  }
  EXPECT_THAT(troubles(well, {}, LOCAL_SERVER), testing::IsEmpty());
}

TEST(Durations, HaveAUnitOfWhichThereAreTwoAtLeast) {
  const std::pair<int, const char*> cases[] = {{0, "0 s"},        {119, "119 s"},     {120, "2 min"},
                                               {7199, "119 min"}, {7200, "2 h"},      {10799, "2 h"},
                                               {172799, "47 h"},  {172800, "2 days"}, {259199, "2 days"}};
  for (const auto& [seconds, text] : cases) {
    EXPECT_EQ(duration_text(seconds), text);
  }
  EXPECT_EQ(age_text(1), "just now");
  EXPECT_EQ(age_text(2), "2 s ago");
}

TEST_F(Views, ThePageSaysThatAllIsWell) {
  Report report;
  report.servers = {{"here", {}, 0, {refreshed(ribbon_reading("hall", 200, 400, "10"))}}};
  EXPECT_NE(html_view(report).find("<h1 aria-live=\"polite\">All well: 1 printer</h1>"), std::string::npos);
}

TEST_F(Views, ThePageSaysThatThereIsNoQueue) {
  Report report;
  report.servers = {{"here", {}, 0, {}}};
  EXPECT_NE(html_view(report).find("No Brenvellis queue found."), std::string::npos);
}

TEST_F(Views, AHostileTextPutsNoControlCharacterOnTheTerminal) {
  for (const auto& text : HOSTILE_TEXTS) {
    for (const auto& style :
         {TextStyle{true, false, UNLIMITED_WIDTH}, TextStyle{false, false, UNLIMITED_WIDTH}}) {
      const auto view = text_view(hostile_report(text), style);
      for (const auto& line : lines_of(view)) {
        EXPECT_EQ(printable(line), line);
      }
      if (!text.empty()) {  // no error text means that the server was reached
        EXPECT_EQ(lines_of(view).size(), lines_of(text_view(hostile_report("plain"), style)).size()) << text;
      }
    }
  }
}

TEST_F(Views, WithoutUtf8TheTextIsAscii) {
  for (const auto& text : HOSTILE_TEXTS) {
    for (const char c : text_view(hostile_report(text), {false, true})) {
      EXPECT_GT(c, 0);
    }
  }
}

TEST_F(Views, AHostileTextIsAStringInTheJson) {
  for (const auto& text : HOSTILE_TEXTS) {
    const auto object = nlohmann::json::parse(json_view(hostile_report(text)));
    const auto& queue = object["servers"][0]["queues"][0];
    EXPECT_EQ(queue["refresh"]["outcome"], "failed");
    if (nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).find("\uFFFD") ==
        std::string::npos) {
      EXPECT_EQ(queue["queue"], text);
    }
  }
}

TEST_F(Views, AHostileTextPutsNoControlCharacterIntoTheJson) {
  for (const auto& text : HOSTILE_TEXTS) {
    for (const auto& line : lines_of(json_view(hostile_report(text)))) {
      EXPECT_EQ(printable(line), line);
    }
  }
}

TEST_F(Views, AHostileTextStaysInItsLabel) {
  const std::regex comment(R"(# (HELP|TYPE) brenvellis_[a-z_]+ [^\n]+)");
  const std::regex sample(R"re(brenvellis_[a-z_]+\{([a-z]+="([^"\\]|\\\\|\\"|\\n)*",?)+\} [0-9.e+-]+)re");
  for (const auto& text : HOSTILE_TEXTS) {
    if (text.size() > 500) {
      continue;  // too deep for the expression; nothing in it needs to be escaped
    }
    for (const auto& line : lines_of(prometheus_view(hostile_report(text)))) {
      EXPECT_TRUE(std::regex_match(line, comment) || std::regex_match(line, sample)) << line;
    }
  }
}

TEST_F(Views, NoSeriesComesTwice) {
  auto report = sample_report();
  report.servers.push_back(report.servers[0]);
  EXPECT_EQ(prometheus_view(report), expected("report.prom"));
}

TEST_F(Views, AHostileTextOpensNoTagInThePage) {
  const auto count = [](const std::string& page, char c) { return std::ranges::count(page, c); };
  const auto plain = html_view(hostile_report("plain"));
  for (const auto& text : HOSTILE_TEXTS) {
    if (text.find_first_not_of(' ') == std::string::npos) {
      continue;  // leaves paragraphs out
    }
    const auto page = html_view(hostile_report(text));
    for (const char c : {'<', '>', '"', '\''}) {
      EXPECT_EQ(count(page, c), count(plain, c)) << c << " of " << text;
    }
    EXPECT_EQ(lines_of(page).size(), lines_of(plain).size()) << text;
  }
}

TEST_F(Views, ThePageEscapesTheCharactersOfMarkup) {
  EXPECT_NE(html_view(hostile_report("a&<>\"'b")).find("a&amp;&lt;&gt;&quot;&#39;b"), std::string::npos);
}

TEST_F(Views, AnAgeIsToldInTheUnitThatFits) {
  const struct {
    int seconds;
    const char* text;
  } cases[] = {{0, "just now"},        {1, "just now"},
               {2, "2 s ago"},         {119, "119 s ago"},
               {120, "2 min ago"},     {7199, "119 min ago"},
               {7200, "2 h ago"},      {172799, "47 h ago"},
               {172800, "2 days ago"}, {2147483647, "24855 days ago"}};
  for (const auto& one : cases) {
    EXPECT_EQ(age_text(one.seconds), one.text);
  }
}

TEST_F(Views, TheFallbackSaysWhatItMayMean) {
  Reading reading;
  reading.answered = true;
  EXPECT_EQ(error_text({"0004", "0004"}, reading), "error 0004, or a code that the driver does not know");
  reading.answered = false;
  EXPECT_EQ(error_text({"0004", "0004"}, reading), "error 0004, or no answer from the printer");
}

TEST_F(Views, AGroupOfOneCodeIsNotToldTwice) {
  EXPECT_EQ(error_text({"0032", "0032"}, {}), "error 0032");
  EXPECT_EQ(error_text({"0008", "2660"}, {}), "error 0008, code 2660");
}

/// "cause: action [detail]" of each trouble.
std::vector<std::string> trouble_lines(const QueueReport& queue) {
  std::vector<std::string> lines;
  for (const auto& trouble : troubles(queue, {}, LOCAL_SERVER)) {
    lines.push_back(trouble.cause + ": " + trouble.action +
                    (trouble.detail.empty() ? "" : " [" + trouble.detail + "]"));
  }
  return lines;
}

TEST_F(Views, EachTroubleSaysWhatToDo) {
  const std::map<std::string, std::vector<std::string>> expected_lines = {
      {"bar", {"only 12 prints left: Have a new ribbon at hand."}},
      {"down",
       {"stopped after an error: Remove the cause, then resume the queue (sudo cupsenable down). "
        "[Printer stopped due to backend errors.]"}},
      {"empty", {"ribbon empty: Load a new ribbon."}},
      {"garden", {"error 0008, code 2660: Look up 0008 / 2660 in the printer's manual."}},
      {"missing", {"no such queue: Check the queue's name (lpstat -e)."}},
      {"office", {"another driver: Use the Brenvellis driver, or do not name this queue."}},
      {"paused",
       {"paused: Resume the queue (sudo cupsenable paused).",
        "only 1 print left: Have a new ribbon at hand."}},
      {"silent", {"no answer, or error 0004: Switch the printer on and check its cable."}},
      {"slow", {"no answer in time: Switch the printer on and check its cable."}},
      {"strange", {"prints left not known: Change or reseat the ribbon. [Ink Ribbon = 65534 / 1]"}},
      {"stuck",
       {"print stuck for 41 min: Switch the printer on and check its cable. "
        "[Waiting for printer to become available.]"}},
  };
  for (const auto& server : sample_report().servers) {
    for (const auto& queue : server.queues) {
      const auto found = expected_lines.find(queue.reading.queue);
      EXPECT_EQ(trouble_lines(queue),
                found == expected_lines.end() ? std::vector<std::string>() : found->second)
          << queue.reading.queue;
    }
  }
}

TEST_F(Views, ThereIsATroubleExactlyWhereTheVerdictIsBad) {
  const Outcome outcomes[] = {Outcome::Refreshed, Outcome::NotAsked, Outcome::Asking,    Outcome::Busy,
                              Outcome::Paused,    Outcome::Stopped,  Outcome::Rejecting, Outcome::Unsupported,
                              Outcome::TimedOut,  Outcome::Failed,   Outcome::NotFound};
  const std::optional<bool> answers[] = {std::nullopt, false, true};
  for (const auto outcome : outcomes) {
    for (const auto& answered : answers) {
      for (const int left : {-1, 0, 1, 200}) {
        for (const char* reason : {"", "cover-open-report", "media-jam-error"}) {
          QueueReport queue{ribbon_reading("q", std::max(left, 0), 400, "10"), outcome, {}, {}};
          queue.reading.answered = answered;
          queue.reading.reasons = {reason};
          if (left < 0) {
            queue.reading.level_percent.reset();
            queue.reading.prints_remaining.reset();
          }
          EXPECT_EQ(troubles(queue, {}, LOCAL_SERVER).empty(), judge(queue, {}) == Verdict::Well)
              << static_cast<int>(outcome) << " " << left << " " << reason;
        }
      }
    }
  }
}

TEST_F(Views, ACauseIsShortAndNeverASchedulersText) {
  for (const auto& text : HOSTILE_TEXTS) {
    const auto report = hostile_report(text);
    for (const auto& queue : report.servers[0].queues) {
      for (const auto& trouble : troubles(queue, {}, LOCAL_SERVER)) {
        EXPECT_LE(trouble.cause.size(), 40U);
        EXPECT_EQ(printable(trouble.cause), trouble.cause);
        EXPECT_EQ(trouble.cause.find_first_of("<>&\"'"), std::string::npos) << trouble.cause;
      }
    }
  }
}

TEST_F(Views, EachActionIsShownOnce) {
  auto queue = refreshed(ribbon_reading("q", 200, 400, "10"));
  queue.reading.errors = {{"0004", "0004"}};
  queue.reading.answered = false;
  queue.outcome = Outcome::TimedOut;
  queue.detail = "The printer is not connected.";
  EXPECT_EQ(trouble_lines(queue),
            (std::vector<std::string>{"no answer, or error 0004: Switch the printer on and check its cable.",
                                      "no answer in time:  [The printer is not connected.]"}));
}

/// The action for a paused queue.
std::string pause_action(const std::string& name, std::string_view server) {
  auto queue = refreshed(ribbon_reading(name, 200, 400, "10"));
  queue.outcome = Outcome::Paused;
  return troubles(queue, {}, server).at(0).action;
}

TEST_F(Views, AnActionContainsTheQueuesNameIfAShellCannotMisreadIt) {
  EXPECT_EQ(pause_action("Booth_1.a-b", LOCAL_SERVER), "Resume the queue (sudo cupsenable Booth_1.a-b).");
  for (const char* name : {"", "-a", "a b", "a;b", "a$b", "a'b", "a\nb", "b\u00fcro"}) {
    EXPECT_EQ(pause_action(name, LOCAL_SERVER), "Resume the queue (sudo cupsenable).") << name;
  }
}

TEST_F(Views, AnActionOnAnotherServerSaysSo) {
  EXPECT_EQ(pause_action("hall", "annex:8631"),
            "Resume the queue on its print server (sudo cupsenable hall).");
}

TEST_F(Views, AnErrorOfAnotherFilterSaysWhatToDo) {
  auto queue = refreshed(ribbon_reading("q", 200, 400, "10"));
  queue.reading.reasons = {"media-jam-error", "media-empty-error", "fuser-over-temp-error", "offline-report"};
  EXPECT_EQ(trouble_lines(queue),
            (std::vector<std::string>{"paper jam: Remove the jammed paper.", "out of paper: Load paper.",
                                      "printer error: Look at the printer. [fuser-over-temp-error]"}));
}

TEST_F(Views, AStuckPrintOfAReachablePrinterSaysWhatToCheck) {
  auto queue = refreshed(ribbon_reading("q", 200, 400, "10"));
  queue.outcome = Outcome::Busy;
  queue.stuck = true;
  queue.reading.state_message = "Sending data to printer.";
  EXPECT_EQ(trouble_lines(queue),
            (std::vector<std::string>{"print stuck: Check the printer: power, cable, paper and ribbon. "
                                      "[Sending data to printer.]"}));
}

}  // namespace
