// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/plugin_view.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "tests/unit/sample_report.h"

namespace {

std::string line_of(std::vector<QueueReport> queues) {
  return plugin_view(report_with(std::move(queues)), true);
}

/// Returns the text after the vertical bar.
std::string data_of(const std::string& line) {
  return line.substr(line.find('|') + 2);
}

TEST(PluginView, AHealthyPrinterIsOkWithItsPrints) {
  EXPECT_EQ(line_of({refreshed(ribbon_reading("booth", 200, 400, "10"))}),
            "BRENVELLIS OK - booth: 200 of 400 prints left (50 %) | 'booth_prints'=200;44:;1:;0;400\n");
}

TEST(PluginView, SeveralHealthyPrintersAreCounted) {
  EXPECT_EQ(line_of({refreshed(ribbon_reading("bar", 100, 400, "10")),
                     refreshed(ribbon_reading("booth", 200, 400, "10"))}),
            "BRENVELLIS OK - 2 printers, all well | "
            "'bar_prints'=100;44:;1:;0;400 'booth_prints'=200;44:;1:;0;400\n");
}

TEST(PluginView, TheWorstComesFirstAndTheDataKeepTheirOrder) {
  auto garden = refreshed(ribbon_reading("garden", 350, 350, "15"));
  garden.reading.errors = {{"0008", "2660"}};
  EXPECT_EQ(line_of({refreshed(ribbon_reading("bar", 12, 400, "10")), garden,
                     refreshed(ribbon_reading("hall", 200, 400, "10"))}),
            "BRENVELLIS CRITICAL - garden: error 0008, code 2660; bar: 12 of 400 prints left (3 %) | "
            "'bar_prints'=12;44:;1:;0;400 'garden_prints'=350;39:;1:;0;350 'hall_prints'=200;44:;1:;0;400\n");
}

TEST(PluginView, LimitsAreThresholds) {
  auto report = report_with({refreshed(ribbon_reading("booth", 15, 400, "10"))});
  report.limits = {{40, Limit::Unit::Prints}, {20, Limit::Unit::Prints}};
  EXPECT_EQ(plugin_view(report, true),
            "BRENVELLIS CRITICAL - booth: 15 of 400 prints left (3 %) | 'booth_prints'=15;41:;21:;0;400\n");
}

TEST(PluginView, APausedQueueIsUnknownWithItsReason) {
  QueueReport paused{ribbon_reading("hall", 100, 400, "10"), Outcome::Paused, {}, {}};
  paused.reading.state = QueueState::Stopped;
  paused.reading.state_message = "gone home";
  EXPECT_EQ(line_of({paused}),
            "BRENVELLIS UNKNOWN - hall: paused: gone home | 'hall_prints'=100;44:;1:;0;400\n");
}

TEST(PluginView, AnUnknownNumberOfPrintsIsU) {
  auto silent = refreshed(ribbon_reading("booth", 0, 1, ""));
  silent.reading.prints_remaining.reset();
  silent.reading.prints_total.reset();
  silent.reading.level_percent.reset();
  silent.reading.answered = false;
  EXPECT_EQ(data_of(line_of({silent})), "'booth_prints'=U\n");
}

TEST(PluginView, AServerThatWasNotReachedAndAMissingQueueAreUnknown) {
  Report report;
  QueueReport missing;
  missing.reading.queue = "hall";
  missing.outcome = Outcome::NotFound;
  report.servers = {{"annex", {}, 0, {missing}},
                    {"cellar", "it cannot be reached: Connection refused", 0, {}}};
  EXPECT_EQ(
      plugin_view(report, true),
      "BRENVELLIS UNKNOWN - hall@annex: no such queue; print server cellar: it cannot be reached: Connection "
      "refused\n");
}

TEST(PluginView, WithoutAQueueTheStateIsUnknown) {
  EXPECT_EQ(line_of({}), "BRENVELLIS UNKNOWN - no Brenvellis queues found\n");
}

TEST(PluginView, LabelsAreQuoted) {
  EXPECT_EQ(data_of(line_of({refreshed(ribbon_reading("a'b=c|d e", 200, 400, "10"))})),
            "'a''b_c_d e_prints'=200;44:;1:;0;400\n");
}

TEST(PluginView, LabelsAreUnique) {
  const auto queue = [](const char* name) { return refreshed(ribbon_reading(name, 200, 400, "10")); };
  const auto report = report_with(
      {queue("a=b"), queue("a_b"), queue("a_b_2"), queue("a|b"), queue("\u00e4"), queue("\u00f6")});
  for (const bool utf8 : {true, false}) {
    const auto data = data_of(plugin_view(report, utf8));
    std::set<std::string> labels;
    const std::regex label("'([^']+)'=");
    for (std::sregex_iterator one(data.begin(), data.end(), label); one != std::sregex_iterator(); ++one) {
      labels.insert((*one)[1]);
    }
    EXPECT_EQ(labels.size(), 6U) << data;
    EXPECT_TRUE(labels.contains("a_b_prints")) << data;
  }
}

TEST(PluginView, ManyTroublesAreCountedSoThatTheDataFit) {
  std::vector<QueueReport> queues;
  for (int i = 0; i < 40; ++i) {
    queues.push_back(refreshed(ribbon_reading("q" + std::to_string(i), 12, 400, "10")));
  }
  const auto line = line_of(queues);
  EXPECT_NE(line.find("; q9: 12 of 400 prints left (3 %); and 30 more | 'q0_prints'=12;"), std::string::npos)
      << line;
  EXPECT_NE(line.find(" 'q39_prints'=12;"), std::string::npos) << line;
}

TEST(PluginView, HostileTextsKeepTheRules) {
  const std::regex rules(
      R"(BRENVELLIS (OK|WARNING|CRITICAL|UNKNOWN) - [^|\n]+( \| ('([^'=|\n]|'')+'=[^' ]+ ?)+)?\n)");
  for (const auto& text : HOSTILE_TEXTS) {
    for (const bool utf8 : {true, false}) {
      if (text.size() < 500) {  // the expression recurses
        const auto line = plugin_view(hostile_report(text), utf8);
        EXPECT_TRUE(std::regex_match(line, rules)) << line;
      }
    }
  }
}

TEST(PluginView, TheSampleIsOneLineOfAscii) {
  const auto line = plugin_view(sample_report(), false);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  for (const char c : line) {
    EXPECT_GT(c, 0);
  }
}

}  // namespace
