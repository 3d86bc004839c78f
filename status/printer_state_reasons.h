#pragma once

#include <array>
#include <cstdint>
#include <span>

/// PrinterStateReason ties one status code of the printer, or a range of codes, to the
/// printer-state-reasons keywords that stand for it.
struct PrinterStateReason {
  /// High byte of the code; only the low 8 bits count.
  std::uint16_t major;
  /// Below 256: the low byte of the one code. From 256 on: a range of low bytes, the first in the low
  /// byte, the last (inclusive) in the high byte; first above last names no code.
  std::uint16_t minor;
  /// Keywords up to the first null pointer.
  std::array<const char*, 4> reasons;

  /// The keywords without the null pointers behind them.
  [[nodiscard]] constexpr std::span<const char* const> keywords() const {
    std::size_t count = 0;
    while (count < reasons.size() && reasons[count] != nullptr) {
      ++count;
    }
    return std::span(reasons).first(count);
  }
};

/// Every status code that the driver knows, in ascending order. Row 0 is "no error" and has no keyword;
/// every other row has one of its own.
extern const std::array<PrinterStateReason, 110> PRINTER_STATE_REASONS;

/// Raised when no row matches the printer's state. Also the keyword of code 0x0004.
inline constexpr const char* FALLBACK_REASON = "com.brenvellis-error0004";
