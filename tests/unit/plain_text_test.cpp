#include "monitor/views/plain_text.h"

#include <gtest/gtest.h>

namespace {

TEST(PlainText, OrdinaryTextStaysAsItIs) {
  const std::string text = "Büro 3 – 10x15(4x6″) 写真 \xF0\x9F\x96\xA8";
  EXPECT_EQ(printable(text), text);
}

TEST(PlainText, EveryControlCharacterIsReplaced) {
  for (int character = 0; character < 0x100; ++character) {
    const bool control = character < 0x20 || (character >= 0x7F);
    const std::string text(1, static_cast<char>(character));
    EXPECT_EQ(printable(text), control ? "\uFFFD" : text) << character;
  }
}

TEST(PlainText, BrokenUtf8IsReplacedByteByByte) {
  const struct {
    std::string text;
    std::string shown;
  } cases[] = {
      {"\xC3(", "\uFFFD("},                              // a lead without its continuation
      {"\xE2\x80", "\uFFFD\uFFFD"},                      // cut short
      {"\xC0\xAF", "\uFFFD\uFFFD"},                      // longer than it need be
      {"\xE0\x80\xAF", "\uFFFD\uFFFD\uFFFD"},            // the same
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // half of a surrogate pair
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // above the last character
      {"\xF8\x88\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\x80", "\uFFFD"},
      {"a\xFFz", "a\uFFFDz"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(printable(one.text), one.shown);
  }
}

TEST(PlainText, CharactersThatTurnTheDirectionOfWritingAreReplaced) {
  for (const char* text : {"\u200E", "\u200F", "\u202A", "\u202E", "\u2066", "\u2069", "\u2028", "\u2029"}) {
    EXPECT_EQ(printable(text), "\uFFFD");
  }
}

TEST(PlainText, AsciiHasAQuotationMarkForInches) {
  EXPECT_EQ(to_ascii("10x15(4x6″) Büro"), "10x15(4x6\") B?ro");
}

TEST(PlainText, ATextThatFitsIsNotCut) {
  EXPECT_EQ(cut("booth", 5, "~"), "booth");
}

TEST(PlainText, ATextThatDoesNotFitEndsInTheMark) {
  EXPECT_EQ(cut("photo booth", 5, "~"), "phot~");
  EXPECT_EQ(cut("Ääääää", 4, "…"), "Äää…");
  EXPECT_EQ(columns(cut(std::string(1000, 'x'), 20, "…")), 20U);
}

}  // namespace
