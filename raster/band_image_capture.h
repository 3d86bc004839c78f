// SPDX-License-Identifier: Apache-2.0
// The band image capture saves the pixels of a page band to a file for inspection.
#pragma once

#include <cstdint>

/// tagLNBandImageParams describes one band of a page image: a horizontal strip of lines. Edges are in pixels.
struct tagLNBandImageParams {
  const unsigned char* data;  ///< the band's first byte
  std::int64_t stride;        ///< bytes per line including padding; the sign is ignored
  std::int64_t left;
  std::int64_t top;
  std::int64_t right;   ///< the width is right - left
  std::int64_t bottom;  ///< the height is bottom - top
};

/// Saves the bytes of a band as they are in memory; see save_memory().
///
/// @param templ   the template of the file's name; see format_string_util(). The name has at most 1023 bytes.
/// @param params  the band; not null. A band without lines is not saved. The height must not be negative.
/// @return whether the whole band was written.
bool save_image_as_raw(const char* templ, const tagLNBandImageParams* params);

/// Expands the template of a file name:
///
///     %W  the band's width in pixels
///     %H  the band's height in pixels
///     %B  the bits per pixel: bytes per line divided by the width, rounded down, times 8
///     %T  the local time, or "(no_time)" if there is none
///     %C  the number of "%C"s that this process expanded before, with at least 4 digits
///
/// A "%" with another character, or at the end, expands to nothing. For a band 1200 pixels wide and 600 high
/// with 3600 bytes per line, these calls in this order give:
///
///     page_%Wx%H.raw     page_1200x600.raw
///     %C_%Bbpp.raw       0000_24bpp.raw
///     %C_%Bbpp.raw       0001_24bpp.raw
///     band_%T.raw        band_20261116_073016.raw
///     100%%_%x_%h.raw    100__.raw
///
/// Literal characters are never cut: the call returns false as soon as one does not fit. An expansion must
/// leave one byte free besides that of the terminator. If it does not, it is cut, and nothing fits behind it;
/// the call still returns true if no literal character follows. "%B" terminates the process with SIGFPE if
/// the band's width is 0.
///
/// @param out     receives the name and its terminator; nothing is written past its end.
/// @param size    of `out` in bytes; the call returns false if it is 0.
/// @param params  the band; if null, "%W", "%H" and "%B" expand to "0".
/// @return whether all literal characters of the template fit.
bool format_string_util(char* out, unsigned long size, const char* templ, const tagLNBandImageParams* params);

/// Writes a block of memory to a file without a header and replaces an existing file. Sets the mode of a
/// complete file to 0666 on purpose, regardless of the process's umask. After each attempt to write, prints
/// the number of bytes written to standard output: "written: 192000 bytes.".
///
/// @param size  in bytes. The call returns false and leaves the file alone if it is 0 or a pointer is null.
/// @return whether all bytes were written. An incomplete file is kept on purpose. Nothing else reports a
///         failure.
bool save_memory(const char* path, const void* data, unsigned long size);
