// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The text as valid UTF-8 on one line: every broken byte sequence, control character, line separator and
/// character that changes the direction of writing becomes U+FFFD. The same rule holds for all that a
/// terminal gets.
[[nodiscard]] std::string printable(std::string_view text);

/// JSON that was written as UTF-8, with escapes for what printable() would replace: it means the same, and a
/// terminal can show it.
[[nodiscard]] std::string escaped_json(std::string_view json);

/// The text, which is valid UTF-8, with ASCII characters only: a double prime becomes a quotation mark, any
/// other character a question mark.
[[nodiscard]] std::string to_ascii(std::string_view text);

/// How many columns of a terminal the text, which is valid UTF-8, takes.
[[nodiscard]] std::size_t columns(std::string_view text);

/// The text, which is valid UTF-8, cut to so many columns, with `mark` (one column) as its last if it was.
[[nodiscard]] std::string cut(std::string_view text, std::size_t width, std::string_view mark);
