// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/plain_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>

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

std::string utf8(unsigned character) {
  const auto byte = [](unsigned value) { return static_cast<char>(value); };
  const auto rest = [&](unsigned shift) { return byte(0x80 | ((character >> shift) & 0x3F)); };
  if (character < 0x80) {
    return {byte(character)};
  }
  if (character < 0x800) {
    return {byte(0xC0 | (character >> 6)), rest(0)};
  }
  if (character < 0x10000) {
    return {byte(0xE0 | (character >> 12)), rest(6), rest(0)};
  }
  return {byte(0xF0 | (character >> 18)), rest(12), rest(6), rest(0)};
}

/// Unicode's categories Cc, Zl and Zp, and its property Bidi_Control.
bool must_not_reach_a_terminal(unsigned character) {
  static const std::set<unsigned> others = {0x061C, 0x200E, 0x200F, 0x2028, 0x2029, 0x202A, 0x202B,
                                            0x202C, 0x202D, 0x202E, 0x2066, 0x2067, 0x2068, 0x2069};
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || others.contains(character);
}

TEST(PlainText, OfAllCharactersControlsSeparatorsAndChangesOfDirectionAreReplaced) {
  for (unsigned character = 0; character <= 0x10FFFF; ++character) {
    if (character >= 0xD800 && character < 0xE000) {
      continue;  // no characters
    }
    const auto text = utf8(character);
    ASSERT_EQ(printable(text), must_not_reach_a_terminal(character) ? "\uFFFD" : text)
        << std::hex << character;
  }
}

TEST(PlainText, JsonHasEscapesForThem) {
  for (unsigned character = 0x7F; character < 0x3000; ++character) {
    std::array<char, 16> escape{};
    snprintf(escape.data(), escape.size(), "\"\\u%04x\"", character);
    const auto text = "\"" + utf8(character) + "\"";
    ASSERT_EQ(escaped_json(text), must_not_reach_a_terminal(character) ? escape.data() : text)
        << std::hex << character;
  }
  EXPECT_EQ(escaped_json("{\n  \"a\": \"\\u001b″\"\n}"), "{\n  \"a\": \"\\u001b″\"\n}");
}

TEST(PlainText, WidthsAreThoseOfATerminal) {
  EXPECT_EQ(columns("Bu\u0308ro"), 4U);  // a combining mark
  EXPECT_EQ(columns("写真"), 4U);
  EXPECT_EQ(columns("\xF0\x9F\x96\xA8"), 1U);
  EXPECT_EQ(columns("a\u200Db"), 2U);  // a joiner
  EXPECT_EQ(cut("写真写真", 6, "…"), "写真…");
  EXPECT_EQ(cut("e\u0301e\u0301e\u0301", 2, "…"), "e\u0301…");
}

TEST(PlainText, AsciiHasAQuotationMarkForInches) {
  EXPECT_EQ(to_ascii("10x15(4x6″) Büro"), "10x15(4x6\") B?ro");
  for (int character = 0; character < 0x80; ++character) {
    const std::string text(1, static_cast<char>(character));
    EXPECT_EQ(to_ascii(text), text);
  }
  EXPECT_EQ(to_ascii("\u0080\xFF"), "??");
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
