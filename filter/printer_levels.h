// SPDX-License-Identifier: Apache-2.0
// The supply level record: what the printer reports about its ink ribbon.
#pragma once

#include <cstdint>
#include <string>

/// PrinterLevels holds the printer's counters and the print size of its ink ribbon.
///
///     char reply[LEVELS_REPLY_MINIMUM] = {};
///     reply[17] = 0x02;                     // print size 10x15
///     reply[20] = 0x01, reply[21] = '\x90'; // 400 prints on a new ribbon
///     reply[22] = 0x00, reply[23] = '\xc8'; // 200 prints left
///     const PrinterLevels levels = PrinterLevels::Parse(reply);
///     levels.remaining;                     // 200
///     levels.InkSheetTypeName();            // "10x15(4x6″)"
///     levels.to_string();                   // "ink ribbon 200 / 400 ink_sheet_type=0x02"
class PrinterLevels {
 public:
  enum class Type : std::int32_t {
    Unavailable = 0,  ///< no reading: the printer could not be queried or did not answer
    Good = 1,         ///< the fields hold the printer's values, unchecked
  };

  Type type;
  std::uint16_t total = 0;          ///< prints on a new ribbon of the loaded type; unknown if 0 or 0xFFFF
  std::uint16_t remaining = 0;      ///< prints left; unknown if 0xFFFF; may exceed `total`
  std::uint8_t ink_sheet_type = 0;  ///< code of the print size; unknown if 0xFF

  /// Sets the type. The counters and the sheet code are 0.
  constexpr explicit PrinterLevels(Type the_type) : type(the_type) {}

  /// Returns a record without a reading.
  static constexpr PrinterLevels Unavailable() { return PrinterLevels(Type::Unavailable); }

  /// Decodes the printer's reply to the levels request; see printer_packets.h. All other bytes of the reply
  /// are ignored.
  ///
  /// @param reply  at least LEVELS_REPLY_MINIMUM bytes.
  static PrinterLevels Parse(const char* reply);

  /// Returns whether the record holds a reading.
  [[nodiscard]] constexpr bool isGood() const { return type == Type::Good; }

  /// Returns the print size in centimetres and inches, for example "10x15(4x6″)" in UTF-8, or the code's two
  /// lower-case hexadecimal digits if it has no name.
  [[nodiscard]] std::string InkSheetTypeName() const;

  /// Returns the record's text for the job log, for example "ink ribbon 200 / 400 ink_sheet_type=0x02",
  /// "UNAVAILABLE" without a reading, or "UNKNOWN" for an invalid type.
  [[nodiscard]] std::string to_string() const;
};
