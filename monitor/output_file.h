// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Writes a file under a temporary name in its folder and renames it, so that a reader sees the old text or
/// the new one, never a part.
///
/// Links are followed, also those in the middle of the path, if they belong to the caller or to root; any
/// other could have been planted. Whatever exists and is not a regular file is left alone. A new file has the
/// mode of the umask; one that replaces another has only those of these rights that the old one had, and
/// belongs to the caller.
/// @return nothing on success, else what went wrong, for a person.
[[nodiscard]] std::string write_whole(const std::string& path, const std::string& text);
