// SPDX-License-Identifier: Apache-2.0
// The printer state value: the printer's status code, or that it is not available.
#pragma once

#include <cstdint>
#include <string>

/// PrinterState says whether the printer answered and, if it did, which status code it reported.
class PrinterState {
 public:
  enum class Type : std::int32_t {
    Unavailable = 0,  ///< the printer could not be queried or did not answer
    Error = 1,        ///< the printer answered; `code` holds its status code
    Any = 2,          ///< wildcard: equals every state
  };

  Type type;
  std::uint16_t code;  ///< 0 is "no error"; set and read only with Type::Error

  /// Sets the type and leaves the code uninitialised, on purpose.
  constexpr explicit PrinterState(Type the_type)
      : type(the_type) {}  // NOLINT(clang-analyzer-optin.cplusplus.UninitializedObject)
  constexpr PrinterState(Type the_type, std::uint16_t the_code) : type(the_type), code(the_code) {}

  /// Returns the state of a printer that could not be queried or did not answer.
  static constexpr PrinterState Unavailable() { return PrinterState(Type::Unavailable); }
  /// Returns the state of a printer that reported no error; the same value as Error(0).
  static constexpr PrinterState Good() { return {Type::Error, 0}; }
  /// Returns the state of a printer that reported this status code.
  static constexpr PrinterState Error(std::uint16_t code) { return {Type::Error, code}; }
  /// Returns the wildcard.
  static constexpr PrinterState Any() { return PrinterState(Type::Any); }

  /// Any equals every state. Two errors are equal if their codes are equal. Unavailable equals Unavailable.
  /// On purpose, a state of an invalid type equals only Any, not itself.
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

  /// Returns the state's text for the job log: "GOOD", the code as "0x2660", "UNAVAILABLE", "ANY", or
  /// "UNKNOWN" for an invalid type.
  [[nodiscard]] std::string to_string() const;
};
