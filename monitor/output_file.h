#pragma once

#include <string>

/// Writes a file under a temporary name in its folder and renames it, so that who reads it sees the old text
/// or the new one, never a part. Links are followed; an existing file keeps its mode, a new one has that of
/// the umask. What exists and is no file, such as a device or a FIFO, is written to as it is.
/// @return nothing on success, else what went wrong, for a person.
[[nodiscard]] std::string write_whole(const std::string& path, const std::string& text);
