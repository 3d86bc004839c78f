// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// Splits a text at its blanks; leading, trailing and repeated blanks make no words.
std::vector<std::string_view> split_words(std::string_view text);

/// Reads a whole word as a number, decimal or hexadecimal with 0x.
///
/// @return the number; nothing if the word is no number from 0 to `largest`.
std::optional<unsigned> parse_number(std::string_view word, unsigned largest);
