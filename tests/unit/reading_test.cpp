// SPDX-License-Identifier: Apache-2.0
#include "monitor/reading.h"

#include <cups/cups.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// An answer of a scheduler, put together attribute by attribute.
class Answer {
 public:
  Answer() : answer_(ippNew(), ippDelete) {
    ippAddString(answer_.get(), IPP_TAG_OPERATION, IPP_TAG_CHARSET, "attributes-charset", nullptr, "utf-8");
  }
  Answer& text(const char* name, const std::vector<const char*>& values, ipp_tag_t tag = IPP_TAG_NAME) {
    ippAddStrings(answer_.get(), IPP_TAG_PRINTER, tag, name, static_cast<int>(values.size()), nullptr,
                  values.data());
    return *this;
  }
  Answer& keywords(const char* name, const std::vector<const char*>& values) {
    return text(name, values, IPP_TAG_KEYWORD);
  }
  Answer& number(const char* name, const std::vector<int>& values, ipp_tag_t tag = IPP_TAG_INTEGER) {
    ippAddIntegers(answer_.get(), IPP_TAG_PRINTER, tag, name, static_cast<int>(values.size()), values.data());
    return *this;
  }
  Answer& boolean(const char* name, bool value) {
    ippAddBoolean(answer_.get(), IPP_TAG_PRINTER, name, static_cast<char>(value));
    return *this;
  }
  Answer& ribbon(int level, const char* message, const char* name) {
    number("marker-levels", {level});
    text("marker-message", {message}, IPP_TAG_TEXT);
    text("marker-names", {name});
    return keywords("marker-types", {"ink-ribbon"});
  }
  Answer& next() {
    ippAddSeparator(answer_.get());
    return *this;
  }
  [[nodiscard]] std::vector<Reading> queues() const { return read_queues(answer_.get()); }
  [[nodiscard]] Reading queue() const { return queues().at(0); }

 private:
  std::unique_ptr<ipp_t, decltype(&ippDelete)> answer_;
};

TEST(Reading, AQueueIsReadWhole) {
  const auto reading = Answer()
                           .text("printer-name", {"hall"})
                           .text("printer-info", {"The booth"}, IPP_TAG_TEXT)
                           .text("printer-location", {"Hall"}, IPP_TAG_TEXT)
                           .text("printer-make-and-model", {"Brenvellis Photo Printer, 0.1"}, IPP_TAG_TEXT)
                           .number("printer-state", {4}, IPP_TAG_ENUM)
                           .boolean("printer-is-accepting-jobs", true)
                           .text("printer-state-message", {"Waiting for printer."}, IPP_TAG_TEXT)
                           .number("printer-state-change-time", {1000020})
                           .boolean("printer-is-shared", false)
                           .number("queued-job-count", {2})
                           .keywords("printer-commands", {"ReportLevels", "ReportStatus"})
                           .keywords("printer-state-reasons", {"com.brenvellis-error0008_2660", "paused"})
                           .number("printer-up-time", {1000060})
                           .number("marker-change-time", {1000000})
                           .ribbon(50, "Ink Ribbon = 200 / 400", "InkSheetType: 10x15(4x6″)")
                           .queue();
  EXPECT_EQ(reading.queue, "hall");
  EXPECT_EQ(reading.info, "The booth");
  EXPECT_EQ(reading.location, "Hall");
  EXPECT_EQ(reading.make_and_model, "Brenvellis Photo Printer, 0.1");
  EXPECT_EQ(reading.state, QueueState::Processing);
  EXPECT_EQ(reading.accepting, true);
  EXPECT_EQ(reading.state_message, "Waiting for printer.");
  EXPECT_EQ(reading.state_seconds, 40);
  EXPECT_EQ(reading.shared, false);
  EXPECT_EQ(reading.active_jobs, 2);
  EXPECT_TRUE(reading.reports_levels);
  EXPECT_TRUE(reading.reports_status);
  EXPECT_EQ(reading.prints_remaining, 200);
  EXPECT_EQ(reading.prints_total, 400);
  EXPECT_EQ(reading.level_percent, 50);
  EXPECT_EQ(reading.sheet, "10x15(4x6″)");
  EXPECT_EQ(reading.answered, true);
  EXPECT_EQ(reading.age_seconds, 60);
  EXPECT_THAT(reading.markers, ElementsAre(Marker{"InkSheetType: 10x15(4x6″)", "ink-ribbon", 50}));
  EXPECT_THAT(reading.errors, ElementsAre(ReasonCode{"0008", "2660"}));
  EXPECT_THAT(reading.reasons, ElementsAre("paused"));
}

TEST(Reading, EveryReportOfTheFilterIsUnderstood) {
  const std::optional<int> unknown;
  const struct {
    int level;
    const char* message;
    const char* name;
    std::optional<int> remaining, total, percent;
    const char* sheet;
    bool answered;
  } cases[] = {
      {-2, " ", "InkSheetType: 00", unknown, unknown, unknown, "", false},
      {50, "Ink Ribbon = 200 / 400", "InkSheetType: 10x15(4x6″)", 200, 400, 50, "10x15(4x6″)", true},
      {33, "Ink Ribbon = 1 / 3", "InkSheetType: 13x18(5x7″)", 1, 3, 33, "13x18(5x7″)", true},
      {66, "Ink Ribbon = 2 / 3", "InkSheetType: 15x20(6x8″)", 2, 3, 66, "15x20(6x8″)", true},
      {0, "Ink Ribbon = 0 / 400", "InkSheetType: 10", 0, 400, 0, "10", true},
      {125, "Ink Ribbon = 500 / 400", "InkSheetType: 10x15(4x6″)", 500, 400, 125, "10x15(4x6″)", true},
      {200, "Ink Ribbon = 800 / 400", "InkSheetType: 10x15(4x6″)", 800, 400, 200, "10x15(4x6″)", true},
      {-1, " ", "InkSheetType: 10x15(4x6″)", unknown, unknown, unknown, "10x15(4x6″)", true},
      {-1, " ", " ", unknown, unknown, unknown, "", true},
      {50, "Ink Ribbon = 200 / 400", " ", 200, 400, 50, "", true},
  };
  for (const auto& one : cases) {
    const auto reading = Answer().ribbon(one.level, one.message, one.name).queue();
    EXPECT_EQ(reading.prints_remaining, one.remaining) << one.message;
    EXPECT_EQ(reading.prints_total, one.total) << one.message;
    EXPECT_EQ(reading.level_percent, one.percent) << one.message;
    EXPECT_EQ(reading.sheet, one.sheet) << one.name;
    EXPECT_EQ(reading.answered, one.answered) << one.level;
  }
}

TEST(Reading, AnotherMessageGivesNoCounts) {
  for (const char* message :
       {"", " ", "Ink Ribbon = ", "Ink Ribbon = 200", "Ink Ribbon = 200 / ", "Ink Ribbon = / 400",
        "Ink Ribbon = -1 / 400", "Ink Ribbon = 200 / -400", "Ink Ribbon = 200 / 400 ",
        "Ink Ribbon = 200 / 400x", "Ink Ribbon = 200/400", "ink ribbon = 200 / 400",
        "Ink Ribbon = 99999999999 / 400", "Ink Ribbon = 200 / 99999999999", "Low toner"}) {
    const auto reading = Answer().ribbon(50, message, "InkSheetType: 10").queue();
    EXPECT_EQ(reading.prints_remaining, std::nullopt) << message;
    EXPECT_EQ(reading.prints_total, std::nullopt) << message;
    EXPECT_EQ(reading.level_percent, 50) << message;
  }
}

TEST(Reading, ImpossibleValuesAreUnknownButTheirMessageIsKept) {
  const struct {
    int level;
    const char* words;
  } cases[] = {{200, "Ink Ribbon = 801 / 400"},
               {6553400, "Ink Ribbon = 65534 / 1"},
               {0, "Ink Ribbon = 0 / 0"},
               {50, "Ink Ribbon = 200 / 0"},
               {50, "Ink Ribbon = 2147483647 / 1073741823"},
               {201, " "}};
  for (const auto& one : cases) {
    const auto reading = Answer().ribbon(one.level, one.words, "InkSheetType: 10").queue();
    EXPECT_EQ(reading.prints_remaining, std::nullopt) << one.words;
    EXPECT_EQ(reading.prints_total, std::nullopt) << one.words;
    EXPECT_EQ(reading.level_percent, std::nullopt) << one.words;
    EXPECT_EQ(reading.answered, true) << one.words;
    EXPECT_EQ(reading.ribbon_words, one.words);
  }
}

TEST(Reading, AQueueThatWasNeverAskedHasNoValues) {
  const auto reading = Answer()
                           .text("printer-name", {"new"})
                           .number("marker-change-time", {0})
                           .number("printer-up-time", {1000})
                           .queue();
  EXPECT_EQ(reading.answered, std::nullopt);
  EXPECT_EQ(reading.level_percent, std::nullopt);
  EXPECT_EQ(reading.age_seconds, std::nullopt);
  EXPECT_THAT(reading.markers, IsEmpty());
}

TEST(Reading, AClockThatWasPutBackGivesAgeZero) {
  const auto reading =
      Answer().number("marker-change-time", {2000}).number("printer-up-time", {1000}).queue();
  EXPECT_EQ(reading.age_seconds, 0);
  EXPECT_EQ(Answer().number("marker-change-time", {1}).number("printer-up-time", {1}).queue().age_seconds, 0);
}

TEST(Reading, AStateIsAsOldAsTheSchedulersClockSays) {
  EXPECT_EQ(Answer().number("printer-state-change-time", {2000}).queue().state_seconds, std::nullopt);
  EXPECT_EQ(Answer().number("printer-up-time", {2000}).queue().state_seconds, std::nullopt);
  EXPECT_EQ(Answer()
                .number("printer-state-change-time", {2000})
                .number("printer-up-time", {1000})
                .queue()
                .state_seconds,
            0);
}

TEST(Reading, AMissingClockGivesNoAge) {
  EXPECT_EQ(Answer().number("marker-change-time", {2000}).queue().age_seconds, std::nullopt);
}

TEST(Reading, TheRibbonIsFoundAmongSeveralMarkers) {
  const auto reading = Answer()
                           .number("marker-levels", {80, 7, -1})
                           .text("marker-names", {"Black", "InkSheetType: 10x15(4x6″)", "Waste"})
                           .keywords("marker-types", {"toner", "ink-ribbon", "waste-toner"})
                           .queue();
  EXPECT_EQ(reading.level_percent, 7);
  EXPECT_EQ(reading.sheet, "10x15(4x6″)");
  EXPECT_THAT(reading.markers,
              ElementsAre(Marker{"Black", "toner", 80}, Marker{"InkSheetType: 10x15(4x6″)", "ink-ribbon", 7},
                          Marker{"Waste", "waste-toner", {}}));
}

TEST(Reading, MarkersOfAnotherDriverAreNotARibbon) {
  const auto reading = Answer()
                           .number("marker-levels", {80, -3})
                           .text("marker-names", {"Black", "Cyan"})
                           .keywords("marker-types", {"toner", "toner"})
                           .queue();
  EXPECT_EQ(reading.level_percent, std::nullopt);
  EXPECT_EQ(reading.answered, std::nullopt);
  EXPECT_THAT(reading.markers, ElementsAre(Marker{"Black", "toner", 80}, Marker{"Cyan", "toner", {}}));
}

TEST(Reading, MarkerListsOfDifferentLengthsLeaveTheRestUnknown) {
  const auto reading = Answer().number("marker-levels", {80, 20, 30}).text("marker-names", {"Black"}).queue();
  EXPECT_THAT(reading.markers, ElementsAre(Marker{"Black", "", 80}, Marker{"", "", 20}, Marker{"", "", 30}));
}

TEST(Reading, ARibbonWithoutALevelIsNotKnown) {
  const auto reading = Answer().keywords("marker-types", {"ink-ribbon"}).queue();
  EXPECT_EQ(reading.level_percent, std::nullopt);
  EXPECT_EQ(reading.answered, std::nullopt);
}

TEST(Reading, AttributesOfAnotherTypeAreLeftOut) {
  const auto reading = Answer()
                           .text("marker-levels", {"50"})
                           .number("marker-names", {3})
                           .keywords("marker-types", {"ink-ribbon"})
                           .text("printer-state", {"idle"})
                           .text("printer-is-accepting-jobs", {"true"})
                           .text("printer-up-time", {"5"})
                           .number("printer-state-reasons", {1})
                           .number("printer-commands", {1})
                           .queue();
  EXPECT_EQ(reading.level_percent, std::nullopt);
  EXPECT_EQ(reading.state, QueueState::Unknown);
  EXPECT_EQ(reading.accepting, std::nullopt);
  EXPECT_EQ(reading.age_seconds, std::nullopt);
  EXPECT_THAT(reading.reasons, IsEmpty());
  EXPECT_FALSE(reading.reports_levels);
}

TEST(Reading, TheSameErrorTwiceIsOneError) {
  const auto reading = Answer()
                           .keywords("printer-state-reasons",
                                     {"com.brenvellis-error0008_2660", "com.brenvellis-error0008_2660-error"})
                           .queue();
  EXPECT_THAT(reading.errors, ElementsAre(ReasonCode{"0008", "2660"}));
}

TEST(Reading, NoReasonIsNone) {
  EXPECT_THAT(Answer().keywords("printer-state-reasons", {"none"}).queue().reasons, IsEmpty());
}

TEST(Reading, SeveralQueuesAreReadInTheirOrder) {
  const auto readings = Answer()
                            .text("printer-name", {"one"})
                            .ribbon(10, "Ink Ribbon = 40 / 400", "InkSheetType: 10")
                            .next()
                            .text("printer-name", {"two"})
                            .next()
                            .text("printer-name", {"three"})
                            .queues();
  ASSERT_EQ(readings.size(), 3U);
  EXPECT_EQ(readings[0].queue, "one");
  EXPECT_EQ(readings[0].prints_remaining, 40);
  EXPECT_EQ(readings[1].queue, "two");
  EXPECT_EQ(readings[1].prints_remaining, std::nullopt);
  EXPECT_EQ(readings[2].queue, "three");
}

TEST(Reading, AnAnswerWithoutQueuesIsEmpty) {
  EXPECT_THAT(Answer().queues(), IsEmpty());
}

TEST(Reading, QueuesAreFoundByTheirCommandFilterWhateverTheirMake) {
  const std::vector<Marker> ours = {{"InkSheetType: 10x15(4x6″)", "ink-ribbon", 50}};
  const std::vector<Marker> ours_not_answered = {{"InkSheetType: 00", "ink-ribbon", std::nullopt}};
  const std::vector<Marker> another_ribbon = {{"Black", "ink-ribbon", 50}};
  const std::vector<Marker> another_type = {{"InkSheetType: 10x15", "toner", 50}};
  const struct {
    const char* what;
    std::vector<const char*> commands;
    std::vector<Marker> markers;
    std::vector<ReasonCode> errors;
    bool found;
  } cases[] = {
      {"both commands", {"ReportLevels", "ReportStatus"}, {}, {}, true},
      {"both commands, supplies by SNMP", {"ReportLevels", "ReportStatus"}, another_type, {}, true},
      {"more commands", {"ReportLevels", "ReportStatus", "Clean"}, {}, {}, false},
      {"more commands, our ribbon", {"Clean", "ReportStatus", "ReportLevels"}, ours, {}, true},
      {"more commands, our unknown ribbon",
       {"Clean", "ReportStatus", "ReportLevels"},
       ours_not_answered,
       {},
       true},
      {"more commands, our error", {"ReportLevels", "ReportStatus", "Clean"}, {}, {{"0008", "2660"}}, true},
      {"more commands, another ribbon", {"ReportLevels", "ReportStatus", "Clean"}, another_ribbon, {}, false},
      {"more commands, another marker", {"ReportLevels", "ReportStatus", "Clean"}, another_type, {}, false},
      {"levels alone", {"ReportLevels"}, ours, {}, false},
      {"status alone", {"ReportStatus"}, ours, {}, false},
      {"the scheduler's commands", {"AutoConfigure", "Clean", "PrintSelfTestPage"}, {}, {}, false},
      {"none", {}, ours, {{"0008", "2660"}}, false},
  };
  for (const auto& one : cases) {
    Answer answer;
    answer.text("printer-name", {"booth"});
    if (!one.commands.empty()) {
      answer.keywords("printer-commands", one.commands);
    }
    auto readings = answer.queues();
    ASSERT_EQ(readings.size(), 1U);
    readings[0].markers = one.markers;
    readings[0].errors = one.errors;
    EXPECT_EQ(is_brenvellis_queue(readings[0]), one.found) << one.what;
  }
}

TEST(Reading, TheRatioComesFromTheCountsFirst) {
  Reading reading;
  EXPECT_EQ(ribbon_ratio(reading), std::nullopt);
  reading.level_percent = 33;
  EXPECT_EQ(ribbon_ratio(reading), 0.33);
  reading.prints_remaining = 1;
  EXPECT_EQ(ribbon_ratio(reading), 0.33);
  reading.prints_total = 4;
  EXPECT_EQ(ribbon_ratio(reading), 0.25);
}

TEST(Reading, EveryAttributeThatIsReadIsAskedFor) {
  const std::set<std::string> names(reading_attributes().begin(), reading_attributes().end());
  EXPECT_EQ(names, (std::set<std::string>{
                       "marker-change-time", "marker-levels", "marker-message", "marker-names",
                       "marker-types", "printer-commands", "printer-info", "printer-is-accepting-jobs",
                       "printer-is-shared", "printer-location", "printer-make-and-model", "printer-name",
                       "printer-state", "printer-state-change-time", "printer-state-message",
                       "printer-state-reasons", "printer-up-time", "queued-job-count"}));
}

}  // namespace
