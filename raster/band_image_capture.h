// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/// tagLNBandImageParams is one band of a page image: a horizontal strip of its lines. Edges are in pixels.
struct tagLNBandImageParams {
  const unsigned char* data;  ///< the band's first byte
  std::int64_t stride;        ///< bytes per line, padding included; only its magnitude counts
  std::int64_t left;
  std::int64_t top;
  std::int64_t right;   ///< the width is right - left
  std::int64_t bottom;  ///< the height is bottom - top
};

/// Saves a band's bytes as they lie in memory to a new file, see save_memory().
///
/// @param templ   the file's name, see format_string_util(); at most 1023 bytes when expanded.
/// @param params  not null. A band without lines is not saved; one with a negative height is not guarded
///                against.
/// @return whether the file was written in full.
bool save_image_as_raw(const char* templ, const tagLNBandImageParams* params);

/// Expands a file name's template. "%W" and "%H" stand for the band's width and height in pixels, "%B" for
/// its bits per pixel (bytes per line divided by the width, without the remainder, times 8), "%T" for the
/// local time as "20261116_073016" or "(no_time)", "%C" for the number of "%C"s that this process expanded
/// before, with at least 4 digits. A "%" with any other character, or at the end, expands to nothing. "%B"
/// for a band of width 0 ends the process by SIGFPE.
///
/// Literal characters are never cut: the first that does not fit ends the call with false. An expansion has
/// to leave one byte free beside that of the terminator; otherwise it is cut until it does, and nothing
/// behind it fits. A template without a literal character behind the cut still gives true.
///
/// @param out     gets the text and its terminator; nothing is written past its end.
/// @param size    of `out` in bytes. The result is false if it is 0.
/// @param params  the band; null gives "0" for "%W", "%H" and "%B".
/// @return whether every literal character of the template found its place.
bool format_string_util(char* out, unsigned long size, const char* templ, const tagLNBandImageParams* params);

/// Writes a block of memory to a file without a header, replacing one that exists, and sets its mode to 0666
/// whatever the process's file mode mask is, on purpose. Prints the
/// number of bytes written to standard output after every attempt: "written: 192000 bytes.".
///
/// @param size  in bytes; 0 is a failure, as is a null pointer, and neither touches the file.
/// @return whether all bytes were accepted. A file that was not written in full is kept, on purpose. Failures
///         are not reported in any other way.
bool save_memory(const char* path, const void* data, unsigned long size);
