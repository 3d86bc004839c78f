// SPDX-License-Identifier: Apache-2.0
// Safe text for terminals and JSON.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Returns the text as valid UTF-8 on one line. Invalid bytes, control characters, line separators and
/// characters that change the writing direction become U+FFFD. All text for a terminal passes through this
/// function.
[[nodiscard]] std::string printable(std::string_view text);

/// Returns JSON with escapes for the characters that printable() would replace, so that it is safe for a
/// terminal and has the same meaning.
[[nodiscard]] std::string escaped_json(std::string_view json);

/// Converts a text in valid UTF-8 to ASCII: a double prime becomes a quotation mark, other characters become
/// question marks.
[[nodiscard]] std::string to_ascii(std::string_view text);

/// Returns the width of a text in valid UTF-8 in columns of a terminal.
[[nodiscard]] std::size_t columns(std::string_view text);

/// Cuts a text in valid UTF-8 to `width` columns. If it is cut, it ends with `mark`, which has one column.
[[nodiscard]] std::string cut(std::string_view text, std::size_t width, std::string_view mark);
