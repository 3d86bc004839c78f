// SPDX-License-Identifier: Apache-2.0
// The words and numbers of control commands.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// Splits a text at blanks, ignoring leading, trailing and repeated blanks.
std::vector<std::string_view> split_words(std::string_view text);

/// Parses a word as a number, decimal or hexadecimal with 0x.
///
/// @return the number; nothing if the word is not a number from 0 to `largest`.
std::optional<unsigned> parse_number(std::string_view word, unsigned largest);
