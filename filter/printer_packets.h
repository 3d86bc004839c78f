// SPDX-License-Identifier: Apache-2.0
// The packets that the filter and the printer exchange.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Bytes are hexadecimal, offsets are decimal, and ".." is a byte that is ignored.
//
// A request is ESC "GD0", two zero bytes, the number of selectors, and the selectors:
//
//   offset     0  1  2  3  4  5  6  7  8  9
//   status    1b 47 44 30 00 00 01 16
//   levels    1b 47 44 30 00 00 03 1e 16 2a
//
// A reply has at least these bytes. Further bytes are traced but otherwise ignored. Two-byte numbers are
// big-endian. On purpose, no lead-in, length or checksum is verified.
//
//   offset     0  1  2  3  4  5  6  7  8  9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25
//   status    .. .. .. .. cc cc .. .. .. .. .. .. .. .. ..
//   levels    .. .. .. .. .. .. .. .. .. .. .. .. .. .. .. .. .. ss .. .. tt tt rr rr .. ..
//
//   cc  status code, 0 for no error      tt  prints on a new ribbon
//   ss  code of the ink sheet            rr  prints left

/// PRINTER_REQUEST is the request packet with the given selectors.
template <unsigned char... SELECTORS>
inline constexpr std::array<unsigned char, 7 + sizeof...(SELECTORS)> PRINTER_REQUEST = {
    0x1b, 'G', 'D', '0', 0, 0, sizeof...(SELECTORS), SELECTORS...};

/// Selects the status.
inline constexpr unsigned char SELECT_STATUS = 0x16;
/// The first and the last selector of the levels; SELECT_STATUS is between them.
inline constexpr unsigned char SELECT_LEVELS_BEGIN = 0x1e;
inline constexpr unsigned char SELECT_LEVELS_END = 0x2a;

inline constexpr auto& STATUS_REQUEST_PACKET = PRINTER_REQUEST<SELECT_STATUS>;
inline constexpr auto& LEVELS_REQUEST_PACKET =
    PRINTER_REQUEST<SELECT_LEVELS_BEGIN, SELECT_STATUS, SELECT_LEVELS_END>;

// The minimum length of each reply in bytes, and the offsets of its values.
inline constexpr std::size_t STATUS_REPLY_MINIMUM = 15;
inline constexpr std::size_t STATUS_REPLY_CODE = 4;

inline constexpr std::size_t LEVELS_REPLY_MINIMUM = 26;
inline constexpr std::size_t LEVELS_REPLY_SHEET = 17;
inline constexpr std::size_t LEVELS_REPLY_TOTAL = 20;
inline constexpr std::size_t LEVELS_REPLY_REMAINING = 22;

/// Returns the byte of a reply at an offset as an unsigned number.
constexpr std::uint8_t reply_byte(const char* reply, std::size_t offset) {
  return static_cast<std::uint8_t>(reply[offset]);
}

/// Returns the big-endian number of two bytes at an offset.
constexpr std::uint16_t reply_word(const char* reply, std::size_t offset) {
  return static_cast<std::uint16_t>(reply_byte(reply, offset) << 8 | reply_byte(reply, offset + 1));
}
