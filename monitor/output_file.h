// SPDX-License-Identifier: Apache-2.0
// The atomic replacement of output files.
#pragma once

#include <string>

/// Writes a file with a temporary name in its folder and renames it, so that a reader sees either the old or
/// the new text.
///
/// Follows symbolic links anywhere in the path only if they belong to the caller or to root. Replaces only
/// regular files. A new file has the mode that the umask allows. A replacement has at most the permissions of
/// the old file, and belongs to the caller. It keeps the group of the old file if that belonged to the
/// caller.
/// @return nothing on success, otherwise an error message.
[[nodiscard]] std::string write_whole(const std::string& path, const std::string& text);
