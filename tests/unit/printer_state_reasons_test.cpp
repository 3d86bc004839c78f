// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_state_reasons.h"

#include <gtest/gtest.h>

#include "tests/unit/known_codes.h"

namespace {

TEST(PrinterStateReasons, AreNoErrorAndThe109KnownCodesInAscendingOrder) {
  std::vector<std::pair<int, std::string>> expected = {{0, ""}};
  for (const auto& [code, keyword] : known_keywords()) {
    expected.emplace_back(code, keyword);
  }
  std::vector<std::pair<int, std::string>> actual;
  for (const auto& row : PRINTER_STATE_REASONS) {
    const auto keywords = row.keywords();
    actual.emplace_back(row.major << 8 | row.minor, keywords.empty() ? "" : keywords[0]);
  }
  EXPECT_EQ(expected.size(), 110U);
  EXPECT_EQ(actual, expected);
}

TEST(PrinterStateReasons, KeywordsEndAtTheFirstNullPointer) {
  const PrinterStateReason row = {0, 0, {"a", "b", nullptr, "d"}};
  EXPECT_EQ(row.keywords().size(), 2U);
}

TEST(PrinterStateReasons, FourKeywordsNeedNoNullPointer) {
  const PrinterStateReason row = {0, 0, {"a", "b", "c", "d"}};
  EXPECT_EQ(std::size(row.reasons), 4U);
  EXPECT_EQ(row.keywords().size(), 4U);
}

TEST(PrinterStateReasons, ArePlainArrays) {
  const PrinterStateReason* row = PRINTER_STATE_REASONS;
  const char* const* keyword = row[1].reasons;
  EXPECT_STREQ(keyword[0], "com.brenvellis-error0001");
  EXPECT_EQ(std::size(PRINTER_STATE_REASONS), 110U);
}

TEST(PrinterStateReasons, AreNullBehindTheFirstNullPointer) {
  for (const auto& row : PRINTER_STATE_REASONS) {
    for (std::size_t i = row.keywords().size(); i < std::size(row.reasons); ++i) {
      EXPECT_EQ(row.reasons[i], nullptr) << row.major << ' ' << row.minor;
    }
  }
}

}  // namespace
