// SPDX-License-Identifier: Apache-2.0
#include "monitor/limit.h"

#include <gtest/gtest.h>

#include "tests/unit/sample_report.h"

namespace {

TEST(Limit, PrintsAndPercentAreRead) {
  EXPECT_EQ(parse_limit("12"), (Limit{12, Limit::Unit::Prints}));
  EXPECT_EQ(parse_limit("12%"), (Limit{12, Limit::Unit::Percent}));
  EXPECT_EQ(parse_limit("0"), (Limit{0, Limit::Unit::Prints}));
  EXPECT_EQ(parse_limit("65535"), (Limit{65535, Limit::Unit::Prints}));
  EXPECT_EQ(parse_limit("100%"), (Limit{100, Limit::Unit::Percent}));
}

TEST(Limit, InvalidTextsAreRejected) {
  for (const char* text :
       {"", "%", "-1", "+1", " 1", "1 ", "1 %", "12%%", "101%", "65536", "1.5", "ten", "99999999999999"}) {
    EXPECT_FALSE(parse_limit(text)) << text;
  }
}

TEST(Limit, TextsAreReadBack) {
  for (const char* text : {"0", "12", "12%"}) {
    EXPECT_EQ(to_text(parse_limit(text).value()), text);
  }
}

TEST(Limit, APercentageIsRoundedDown) {
  const Limit limit{10, Limit::Unit::Percent};
  EXPECT_TRUE(is_under(ribbon_reading("q", 43, 400, "10"), limit));
  EXPECT_FALSE(is_under(ribbon_reading("q", 44, 400, "10"), limit));
}

TEST(Limit, PrintsAreComparedWithPrints) {
  const Limit limit{40, Limit::Unit::Prints};
  EXPECT_TRUE(is_under(ribbon_reading("q", 40, 700, "10"), limit));
  EXPECT_FALSE(is_under(ribbon_reading("q", 41, 700, "10"), limit));
}

TEST(Limit, WithoutPrintsOnlyAnEmptyRibbonIsUnderALimitInPrints) {
  auto reading = ribbon_reading("q", 5, 100, "10");
  reading.prints_remaining.reset();
  reading.prints_total.reset();
  EXPECT_FALSE(is_under(reading, {40, Limit::Unit::Prints}));
  EXPECT_TRUE(is_under(reading, {5, Limit::Unit::Percent}));
  reading.level_percent = 0;
  EXPECT_TRUE(is_under(reading, {0, Limit::Unit::Prints}));
}

TEST(Limit, AnUnknownLevelIsUnderNone) {
  EXPECT_FALSE(is_under({}, {100, Limit::Unit::Percent}));
  EXPECT_FALSE(is_under({}, {65535, Limit::Unit::Prints}));
}

TEST(Limit, FewestAboveIsWhereTheLimitNoLongerHolds) {
  for (const int total : {1, 7, 200, 230, 400, 700}) {
    for (const char* text : {"0", "5", "0%", "1%", "10%", "33%", "99%"}) {
      const auto limit = parse_limit(text).value();
      const int above = fewest_above(limit, total);
      for (int left = 0; left <= total; ++left) {
        EXPECT_EQ(is_under(ribbon_reading("q", left, total, "10"), limit), left < above)
            << left << " of " << total << ", " << text;
      }
    }
  }
}

}  // namespace
