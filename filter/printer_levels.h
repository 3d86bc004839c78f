// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

/// PrinterLevels holds what the printer reported about its ink ribbon.
class PrinterLevels {
 public:
  enum class Type : std::int32_t {
    Unavailable = 0,  ///< no reading: the printer could not be asked or did not answer
    Good = 1,         ///< the fields hold the printer's values as they came, unchecked
  };

  Type type;
  std::uint16_t total = 0;          ///< prints on a new ribbon of the loaded kind; 0 and 0xFFFF: not known
  std::uint16_t remaining = 0;      ///< prints left; 0xFFFF: not known; may exceed `total`
  std::uint8_t ink_sheet_type = 0;  ///< code of the print size

  /// Sets the type; the counters and the sheet code are 0.
  constexpr explicit PrinterLevels(Type the_type) : type(the_type) {}

  static constexpr PrinterLevels Unavailable() { return PrinterLevels(Type::Unavailable); }

  /// Decodes the printer's reply to the levels request; see printer_packets.h. Nothing else is looked at or
  /// verified.
  ///
  /// @param reply  at least LEVELS_REPLY_MINIMUM bytes.
  static PrinterLevels Parse(const char* reply);

  /// True if the record holds a reading.
  [[nodiscard]] constexpr bool isGood() const { return type == Type::Good; }

  /// The print size in centimetres and inches, for example "10x15(4x6″)" in UTF-8; for a code without a
  /// name its two lower-case hexadecimal digits.
  [[nodiscard]] std::string InkSheetTypeName() const;

  /// The record as the job log shows it, for example "ink ribbon 200 / 400 ink_sheet_type=0x02";
  /// "UNAVAILABLE" without a reading, "UNKNOWN" for a record of no known type.
  [[nodiscard]] std::string to_string() const;
};
