// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/plain_text.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";
constexpr utf8proc_int32_t BROKEN = -1;
constexpr utf8proc_int32_t DOUBLE_PRIME = 0x2033;

/// Removes the first character of the text and returns it; BROKEN, and one byte, if it is invalid UTF-8.
utf8proc_int32_t take(std::string_view& text) {
  utf8proc_int32_t character = BROKEN;
  const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &character);
  text.remove_prefix(static_cast<std::size_t>(std::max<utf8proc_ssize_t>(length, 1)));
  return length > 0 ? character : BROKEN;
}

/// The three marks without an explicit direction class; the rest of Unicode's Bidi_Control have one.
bool is_direction_mark(utf8proc_int32_t character) {
  return character == 0x061C || character == 0x200E || character == 0x200F;
}

bool is_unwanted(utf8proc_int32_t character) {
  if (character == BROKEN || is_direction_mark(character)) {
    return true;
  }
  const auto* property = utf8proc_get_property(character);
  switch (property->category) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return true;
    default:
      break;
  }
  switch (property->bidi_class) {
    case UTF8PROC_BIDI_CLASS_LRE:
    case UTF8PROC_BIDI_CLASS_LRO:
    case UTF8PROC_BIDI_CLASS_RLE:
    case UTF8PROC_BIDI_CLASS_RLO:
    case UTF8PROC_BIDI_CLASS_PDF:
    case UTF8PROC_BIDI_CLASS_LRI:
    case UTF8PROC_BIDI_CLASS_RLI:
    case UTF8PROC_BIDI_CLASS_FSI:
    case UTF8PROC_BIDI_CLASS_PDI:
      return true;
    default:
      return false;
  }
}

std::size_t width_of(utf8proc_int32_t character) {
  return character == BROKEN ? 1 : static_cast<std::size_t>(utf8proc_charwidth(character));
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto before = text;
    if (is_unwanted(take(text))) {
      result += REPLACEMENT;
    } else {
      result += before.substr(0, before.size() - text.size());
    }
  }
  return result;
}

std::string escaped_json(std::string_view json) {
  std::string result;
  while (!json.empty()) {
    const auto before = json;
    const auto character = take(json);
    if (character >= 0x7F && is_unwanted(character)) {
      std::array<char, 16> escape{};
      snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(character));
      result += escape.data();
    } else {
      result += before.substr(0, before.size() - json.size());
    }
  }
  return result;
}

std::string to_ascii(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto character = take(text);
    if (character == DOUBLE_PRIME) {
      result += '"';
    } else {
      result += character >= 0 && character < 0x80 ? static_cast<char>(character) : '?';
    }
  }
  return result;
}

std::size_t columns(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    width += width_of(take(text));
  }
  return width;
}

std::string cut(std::string_view text, std::size_t width, std::string_view mark) {
  if (columns(text) <= width) {
    return std::string(text);
  }
  auto rest = text;
  std::size_t used = 0;
  std::size_t kept = 0;
  while (!rest.empty()) {
    used += width_of(take(rest));
    if (used >= width) {
      break;
    }
    kept = text.size() - rest.size();
  }
  return std::string(text.substr(0, kept)) + std::string(mark);
}
