// SPDX-License-Identifier: Apache-2.0
#include "monitor/reason_code.h"

#include <gtest/gtest.h>

#include "tests/unit/known_codes.h"

namespace {

TEST(ReasonCode, EveryKnownKeywordGivesItsGroupAndCode) {
  int count = 0;
  for (const auto& [group, codes] : codes_of_group()) {
    for (const std::string code : codes) {
      const auto keyword = known_keywords().at(static_cast<std::uint16_t>(std::stoi(code, nullptr, 16)));
      EXPECT_EQ(parse_reason(keyword), (ReasonCode{group, code})) << keyword;
      ++count;
    }
  }
  EXPECT_EQ(count, 109);
}

TEST(ReasonCode, EveryKnownKeywordComesBackFromItsGroupAndCode) {
  for (const auto& [code, keyword] : known_keywords()) {
    const auto error = parse_reason(keyword);
    ASSERT_TRUE(error) << keyword;
    EXPECT_EQ(reason_keyword(*error), keyword);
  }
}

TEST(ReasonCode, ASeverityAtTheEndChangesNothing) {
  for (const std::string severity : {"-error", "-warning", "-report"}) {
    EXPECT_EQ(parse_reason("com.brenvellis-error0008_2660" + severity), (ReasonCode{"0008", "2660"}));
    EXPECT_EQ(parse_reason("com.brenvellis-error0032" + severity), (ReasonCode{"0032", "0032"}));
  }
}

TEST(ReasonCode, OtherKeywordsAreNone) {
  for (const char* keyword :
       {"", "none", "paused", "media-empty-error", "com.brenvellis-error", "com.brenvellis-error000",
        "com.brenvellis-error00080", "com.brenvellis-error0008_", "com.brenvellis-error0008_266",
        "com.brenvellis-error0008_26600", "com.brenvellis-error0008-2660", "com.brenvellis-error0008_26g0",
        "com.brenvellis-error00a8", "com.brenvellis-errorxxxx-error", "com.brenvellis-error0008_2660-errors",
        "com.brenvellis-error-error", "xcom.brenvellis-error0008",
        "com.brenvellis-error0008_2660-error-error"}) {
    EXPECT_EQ(parse_reason(keyword), std::nullopt) << keyword;
  }
}

TEST(ReasonCode, OnlyTheFallbackKeywordIsTheFallback) {
  for (const auto& [code, keyword] : known_keywords()) {
    EXPECT_EQ(is_fallback(*parse_reason(keyword)), keyword == "com.brenvellis-error0004") << keyword;
  }
}

}  // namespace
