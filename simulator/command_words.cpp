// SPDX-License-Identifier: Apache-2.0
#include "simulator/command_words.h"

#include <algorithm>
#include <charconv>
#include <system_error>

std::vector<std::string_view> split_words(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t start = text.find_first_not_of(' '); start != std::string_view::npos;) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    words.push_back(text.substr(start, end - start));
    start = text.find_first_not_of(' ', end);
  }
  return words;
}

std::optional<unsigned> parse_number(std::string_view word, unsigned largest) {
  const bool hexadecimal = word.starts_with("0x") || word.starts_with("0X");
  if (hexadecimal) {
    word.remove_prefix(2);
  }
  unsigned number = 0;
  const char* end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, number, hexadecimal ? 16 : 10);
  if (error != std::errc{} || stop != end || number > largest) {
    return std::nullopt;
  }
  return number;
}
