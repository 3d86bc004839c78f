#pragma once

#include <string>

/// Writes a file under a temporary name in its folder and renames it, so that who reads it sees the old text
/// or the new one, never a part; readable by all. What a link points to is replaced by the file.
/// @return nothing on success, else what went wrong, for a person.
[[nodiscard]] std::string write_whole(const std::string& path, const std::string& text);
