// SPDX-License-Identifier: Apache-2.0
#include "filter/state_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <set>
#include <type_traits>
#include <vector>

#include "tests/unit/captured_stream.h"
#include "tests/unit/known_codes.h"

namespace {

const std::string FALLBACK = "com.brenvellis-error0004";

std::string clearing_lines(const std::set<std::string>& raised) {
  std::set<std::string> cleared;
  for (const auto& [code, keyword] : known_keywords()) {
    if (!raised.contains(keyword)) {
      cleared.insert(keyword);
    }
  }
  std::string lines;
  for (const auto& keyword : cleared) {
    lines += "STATE: -" + keyword + "\n";
  }
  return lines;
}

std::string fallback_lines(const std::string& state_text) {
  static const std::string cleared = clearing_lines({FALLBACK});
  return "STATE: +" + FALLBACK + "\nDEBUG: " + FALLBACK + " " + state_text +
         "\nDEBUG: error_number part mismatch processing \n" + cleared;
}

std::string report(const PrinterState& state) {
  return captured_log([&] { update_printer_state(state); });
}

std::string report(const PrinterState& state, std::span<const PrinterStateReason> table) {
  return captured_log([&] { update_printer_state_from_table(state, table); });
}

TEST(StateReport, NoErrorClearsAll109KeywordsInSortedOrder) {
  const std::string log = report(PrinterState::Good());
  EXPECT_EQ(log, clearing_lines({}));
  EXPECT_EQ(std::ranges::count(log, '\n'), 109);
}

TEST(StateReport, TheClearingOrderIsByGroupNotByCode) {
  const std::string log = report(PrinterState::Good());
  EXPECT_THAT(log, testing::StartsWith("STATE: -com.brenvellis-error0001\n"
                                       "STATE: -com.brenvellis-error0002\n"
                                       "STATE: -com.brenvellis-error0003\n"
                                       "STATE: -com.brenvellis-error0004\n"
                                       "STATE: -com.brenvellis-error0005\n"
                                       "STATE: -com.brenvellis-error0006_2190\n"
                                       "STATE: -com.brenvellis-error0007_2100\n"));
  EXPECT_THAT(log, testing::EndsWith("STATE: -com.brenvellis-error0032\n"
                                     "STATE: -com.brenvellis-error0033\n"
                                     "STATE: -com.brenvellis-error0034_6700\n"
                                     "STATE: -com.brenvellis-error0034_6710\n"
                                     "STATE: -com.brenvellis-error0034_6900\n"
                                     "STATE: -com.brenvellis-error0034_6901\n"
                                     "STATE: -com.brenvellis-error0034_6903\n"));
}

TEST(StateReport, EveryCodeRaisesItsOwnKeywordOrTheFallback) {
  const auto known = known_keywords();
  for (int code = 1; code <= 0xFFFF; ++code) {
    const auto state = PrinterState::Error(static_cast<std::uint16_t>(code));
    const auto found = known.find(static_cast<std::uint16_t>(code));
    const std::string expected = found == known.end()
                                     ? fallback_lines(state.to_string())
                                     : "STATE: +" + found->second + "\nDEBUG: " + found->second + " " +
                                           state.to_string() + "\n" + clearing_lines({found->second});
    ASSERT_EQ(report(state), expected);
  }
}

TEST(StateReport, AnUnavailablePrinterRaisesTheFallback) {
  EXPECT_EQ(report(PrinterState::Unavailable()), fallback_lines("UNAVAILABLE"));
}

TEST(StateReport, AnInvalidTypeRaisesTheFallback) {
  EXPECT_EQ(report(PrinterState(static_cast<PrinterState::Type>(3))), fallback_lines("UNKNOWN"));
}

TEST(StateReport, AnUnknownCodeRaisesTheFallbackWithItsText) {
  EXPECT_EQ(report(PrinterState::Error(0x1234)), fallback_lines("0x1234"));
}

TEST(StateReport, TheFallbacksOwnCodeIsNoMismatch) {
  EXPECT_EQ(report(PrinterState::Error(4)),
            "STATE: +" + FALLBACK + "\nDEBUG: " + FALLBACK + " 0x0004\n" + clearing_lines({FALLBACK}));
}

TEST(StateReport, AnyRaisesAllInTableOrderAndClearsNone) {
  std::string expected;
  for (const auto& [code, keyword] : known_keywords()) {
    expected += "STATE: +" + keyword + "\nDEBUG: " + keyword + " ANY\n";
  }
  EXPECT_EQ(report(PrinterState::Any()), expected);
}

StreamWrites writes_of(const PrinterState& state, int buffering) {
  return log_writes(buffering, [&] { update_printer_state(state); });
}

class Streams : public testing::TestWithParam<int> {};

TEST_P(Streams, TakeEachLineInOneWrite) {
  const auto [writes, before_close] = writes_of(PrinterState::Unavailable(), GetParam());
  EXPECT_EQ(before_close, 3U + 108U);
  std::string log;
  for (const auto& line : writes) {
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    log += line;
  }
  EXPECT_EQ(log, fallback_lines("UNAVAILABLE"));
}

INSTANTIATE_TEST_SUITE_P(StateReport, Streams, testing::Values(_IONBF, _IOLBF));

TEST(StateReport, IsNotFlushed) {
  const auto [writes, before_close] = writes_of(PrinterState::Unavailable(), _IOFBF);
  EXPECT_EQ(before_close, 0U);
  EXPECT_EQ(writes, std::vector{fallback_lines("UNAVAILABLE")});
}

TEST(StateReport, AStreamOfWideCharactersTakesNoLine) {
  FILE* const original = stderr;
  stderr = std::tmpfile();
  EXPECT_GT(fwide(stderr, 1), 0);
  update_printer_state(PrinterState::Unavailable());
  fflush(stderr);
  EXPECT_EQ(lseek(fileno(stderr), 0, SEEK_END), 0);
  fclose(stderr);
  stderr = original;
}

TEST(StateReport, ReachesTheProcessesStandardError) {
  FILE* const file = std::tmpfile();
  const int original = dup(STDERR_FILENO);
  dup2(fileno(file), STDERR_FILENO);
  update_printer_state(PrinterState::Error(0x2660));
  dup2(original, STDERR_FILENO);
  close(original);
  std::string text(static_cast<std::size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
  EXPECT_EQ(pread(fileno(file), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  fclose(file);
  EXPECT_EQ(text, report(PrinterState::Error(0x2660)));
}

TEST(StateReport, IsOneFunctionOfThisName) {
  const auto function = &update_printer_state;
  static_assert(std::is_same_v<decltype(function), void (*const)(const PrinterState&)>);
  EXPECT_EQ(captured_log([&] { function(PrinterState::Good()); }), clearing_lines({}));
}

TEST(StateReport, NothingIsKeptFromOneReportToTheNext) {
  report(PrinterState::Error(0x2660));
  report(PrinterState::Unavailable());
  EXPECT_EQ(report(PrinterState::Good()), clearing_lines({}));
}

struct RangeCase {
  PrinterStateReason row;
  std::uint16_t code;
  bool matches;
};

class RangeRows : public testing::TestWithParam<RangeCase> {};

TEST_P(RangeRows, MatchTheCodesFromFirstToLast) {
  const auto& [row, code, matches] = GetParam();
  const std::string log = report(PrinterState::Error(code), std::span(&row, 1));
  EXPECT_EQ(log.starts_with("STATE: +k\n"), matches) << log;
  EXPECT_EQ(log.find("STATE: -k\n") == std::string::npos, matches) << log;
}

INSTANTIATE_TEST_SUITE_P(
    StateReport, RangeRows,
    testing::Values(
        RangeCase{{0x26, 0x1510, {"k"}}, 0x260f, false}, RangeCase{{0x26, 0x1510, {"k"}}, 0x2610, true},
        RangeCase{{0x26, 0x1510, {"k"}}, 0x2612, true}, RangeCase{{0x26, 0x1510, {"k"}}, 0x2615, true},
        RangeCase{{0x26, 0x1510, {"k"}}, 0x2616, false}, RangeCase{{0x26, 0x1510, {"k"}}, 0x2510, false},
        RangeCase{{0x26, 0x0305, {"k"}}, 0x2603, false}, RangeCase{{0x26, 0x0305, {"k"}}, 0x2604, false},
        RangeCase{{0x26, 0x0305, {"k"}}, 0x2605, false}, RangeCase{{0x26, 0x0100, {"k"}}, 0x2600, true},
        RangeCase{{0x26, 0x0100, {"k"}}, 0x2601, true}, RangeCase{{0x26, 0x0100, {"k"}}, 0x2602, false},
        RangeCase{{0x26, 0xff00, {"k"}}, 0x26ff, true}, RangeCase{{0x26, 0xff00, {"k"}}, 0x2700, false},
        RangeCase{{0x26, 0xffff, {"k"}}, 0x26ff, true}, RangeCase{{0x26, 0x00ff, {"k"}}, 0x26ff, true},
        RangeCase{{0x26, 0x00ff, {"k"}}, 0x2600, false}, RangeCase{{0x0126, 0x00, {"k"}}, 0x2600, true},
        RangeCase{{0xff26, 0x1510, {"k"}}, 0x2611, true}, RangeCase{{0x0126, 0x00, {"k"}}, 0x0126, false}));

TEST(StateReport, ARangeRaisesItsKeywordsOnceForAny) {
  const std::array<PrinterStateReason, 1> table = {{{0x26, 0x1510, {"k"}}}};
  EXPECT_EQ(report(PrinterState::Any(), table), "STATE: +k\nDEBUG: k ANY\n");
}

TEST(StateReport, AnInvertedRangeNeverMatches) {
  const std::array<PrinterStateReason, 1> table = {{{0x26, 0x0305, {"k"}}}};
  const auto fallback = [](const std::string& state_text) {
    return "STATE: +" + FALLBACK + "\nDEBUG: " + FALLBACK + " " + state_text +
           "\nDEBUG: error_number part mismatch processing \nSTATE: -k\n";
  };
  EXPECT_EQ(report(PrinterState::Any(), table), fallback("ANY"));
  for (int code = 0x2600; code <= 0x26ff; ++code) {
    const auto state = PrinterState::Error(static_cast<std::uint16_t>(code));
    EXPECT_EQ(report(state, table), fallback(state.to_string()));
  }
}

TEST(StateReport, AllKeywordsOfAMatchingRowAreRaisedInOrder) {
  const std::array<PrinterStateReason, 2> table = {{{0, 1, {"b", "a"}}, {0, 2, {"d", "c", "e", "f"}}}};
  EXPECT_EQ(report(PrinterState::Error(2), table),
            "STATE: +d\nDEBUG: d 0x0002\nSTATE: +c\nDEBUG: c 0x0002\nSTATE: +e\nDEBUG: e 0x0002\n"
            "STATE: +f\nDEBUG: f 0x0002\nSTATE: -a\nSTATE: -b\n");
}

TEST(StateReport, KeywordsBehindTheFirstNullAreNeitherRaisedNorCleared) {
  const std::array<PrinterStateReason, 1> table = {{{0, 1, {"a", nullptr, "c"}}}};
  EXPECT_EQ(report(PrinterState::Error(1), table), "STATE: +a\nDEBUG: a 0x0001\n");
  EXPECT_EQ(report(PrinterState::Error(2), table),
            "STATE: +" + FALLBACK + "\nDEBUG: " + FALLBACK +
                " 0x0002\nDEBUG: error_number part mismatch processing \nSTATE: -a\n");
}

TEST(StateReport, TheScanContinuesAfterAMatch) {
  const std::array<PrinterStateReason, 3> table = {{{0, 1, {"a"}}, {0, 2, {"b"}}, {0, 1, {"c"}}}};
  EXPECT_EQ(report(PrinterState::Error(1), table),
            "STATE: +a\nDEBUG: a 0x0001\nSTATE: +c\nDEBUG: c 0x0001\nSTATE: -b\n");
}

TEST(StateReport, AKeywordSharedByTwoRowsIsNeverRaisedAndClearedAtOnce) {
  const std::array<PrinterStateReason, 3> table = {{{0, 1, {"a"}}, {0, 2, {"a", "b"}}, {0, 3, {"b"}}}};
  EXPECT_EQ(report(PrinterState::Error(1), table), "STATE: +a\nDEBUG: a 0x0001\nSTATE: -b\n");
  EXPECT_EQ(report(PrinterState::Error(2), table),
            "STATE: +a\nDEBUG: a 0x0002\nSTATE: +b\nDEBUG: b 0x0002\n");
  EXPECT_EQ(report(PrinterState::Error(3), table), "STATE: +b\nDEBUG: b 0x0003\nSTATE: -a\n");
}

TEST(StateReport, AKeywordSharedByTwoRowsIsClearedOnce) {
  const std::array<PrinterStateReason, 3> table = {{{0, 1, {"a"}}, {0, 2, {"a"}}, {0, 3, {}}}};
  EXPECT_EQ(report(PrinterState::Error(3), table), "STATE: -a\n");
}

TEST(StateReport, APrefixSortsFirst) {
  const std::array<PrinterStateReason, 4> table = {
      {{0, 0, {}}, {0, 1, {"ab_"}}, {0, 2, {"ab"}}, {0, 3, {"aB"}}}};
  EXPECT_EQ(report(PrinterState::Good(), table), "STATE: -aB\nSTATE: -ab\nSTATE: -ab_\n");
}

TEST(StateReport, BytesAbove127SortBehindLetters) {
  const std::array<PrinterStateReason, 3> table = {{{0, 0, {}}, {0, 1, {"\xc3\xa4"}}, {0, 2, {"z"}}}};
  EXPECT_EQ(report(PrinterState::Good(), table), "STATE: -z\nSTATE: -\xc3\xa4\n");
}

TEST(StateReport, TheFallbackIsRaisedEvenIfTheTableDoesNotContainIt) {
  const std::array<PrinterStateReason, 1> table = {{{0, 1, {"a"}}}};
  EXPECT_EQ(report(PrinterState::Error(9), table),
            "STATE: +com.brenvellis-error0004\nDEBUG: com.brenvellis-error0004 0x0009\n"
            "DEBUG: error_number part mismatch processing \nSTATE: -a\n");
}

TEST(StateReport, AnEmptyTableRaisesTheFallback) {
  EXPECT_EQ(report(PrinterState::Any(), {}),
            "STATE: +com.brenvellis-error0004\nDEBUG: com.brenvellis-error0004 ANY\n"
            "DEBUG: error_number part mismatch processing \n");
}

}  // namespace
