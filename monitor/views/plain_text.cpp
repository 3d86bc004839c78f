#include "monitor/views/plain_text.h"

#include <cwchar>

namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";
constexpr char32_t BROKEN = 0xFFFFFFFF;
constexpr char32_t DOUBLE_PRIME = 0x2033;

/// Takes one character off the text's front; BROKEN (and one byte) if that is no valid UTF-8.
char32_t take(std::string_view& text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto lead = byte(0);
  std::size_t length = 1;
  char32_t least = 0;
  char32_t character = lead;
  if (lead >= 0xF0 && lead < 0xF8) {
    length = 4;
    least = 0x10000;
    character = lead & 0x07U;
  } else if (lead >= 0xE0 && lead < 0xF0) {
    length = 3;
    least = 0x800;
    character = lead & 0x0FU;
  } else if (lead >= 0xC0 && lead < 0xE0) {
    length = 2;
    least = 0x80;
    character = lead & 0x1FU;
  } else if (lead >= 0x80) {
    character = BROKEN;
  }
  for (std::size_t i = 1; i < length && character != BROKEN; ++i) {
    character = i < text.size() && (byte(i) & 0xC0U) == 0x80 ? (character << 6U) | (byte(i) & 0x3FU) : BROKEN;
  }
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  if (character == BROKEN || character < least || character > 0x10FFFF || surrogate) {
    text.remove_prefix(1);
    return BROKEN;
  }
  text.remove_prefix(length);
  return character;
}

bool is_unwanted(char32_t character) {
  return character == BROKEN || character < 0x20 || (character >= 0x7F && character < 0xA0) ||
         character == 0x200E || character == 0x200F ||    // marks of direction
         (character >= 0x2028 && character <= 0x202E) ||  // separators, embeddings, overrides
         (character >= 0x2066 && character <= 0x2069);    // isolates
}

std::size_t width_of(char32_t character) {
  const int width = wcwidth(static_cast<wchar_t>(character));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
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

std::string to_ascii(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto character = take(text);
    if (character == DOUBLE_PRIME) {
      result += '"';
    } else {
      result += character < 0x80 ? static_cast<char>(character) : '?';
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
