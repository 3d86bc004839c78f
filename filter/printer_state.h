// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

/// PrinterState is the printer's condition: whether it could be asked and, if so, the status code that it
/// reported.
class PrinterState {
 public:
  enum class Type : std::int32_t {
    Unavailable = 0,  ///< the printer could not be asked or gave no usable answer
    Error = 1,        ///< the printer answered; `code` holds its status code
    Any = 2,          ///< wildcard: equal to every state
  };

  Type type;
  std::uint16_t code;  ///< 0 is "no error". Meaningful, and set, only with Type::Error.

  /// Sets the type and leaves the code as it was in memory, on purpose; it is not read then.
  constexpr explicit PrinterState(Type the_type)
      : type(the_type) {}  // NOLINT(clang-analyzer-optin.cplusplus.UninitializedObject)
  constexpr PrinterState(Type the_type, std::uint16_t the_code) : type(the_type), code(the_code) {}

  static constexpr PrinterState Unavailable() { return PrinterState(Type::Unavailable); }
  /// The printer answered and reported no error: the same value as Error(0).
  static constexpr PrinterState Good() { return {Type::Error, 0}; }
  static constexpr PrinterState Error(std::uint16_t code) { return {Type::Error, code}; }
  static constexpr PrinterState Any() { return PrinterState(Type::Any); }

  /// Any equals everything; two errors are equal if their codes are; unavailable equals unavailable.
  /// On purpose, a value of no known type equals Any alone, not even itself.
  constexpr bool operator==(const PrinterState& other) const {
    if (type == Type::Any || other.type == Type::Any) {
      return true;
    }
    if (type == Type::Error && other.type == Type::Error) {
      return code == other.code;
    }
    return type == Type::Unavailable && other.type == Type::Unavailable;
  }
  constexpr bool operator!=(const PrinterState& other) const { return !(*this == other); }

  /// The state as the job log shows it: "GOOD", the code as "0x2660", "UNAVAILABLE", "ANY", or "UNKNOWN"
  /// for a value of no known type.
  [[nodiscard]] std::string to_string() const;
};
