#pragma once

#include <span>

#include "printer_state.h"
#include "printer_state_reasons.h"

/// Tells the scheduler the printer's condition, whole: writes "STATE: +" and "DEBUG: " lines for the keywords
/// of every row that matches `state` in table order (FALLBACK_REASON if none does), then "STATE: -" lines for
/// all other keywords of the table in byte-wise ascending order, to standard error.
void update_printer_state(const PrinterState& state);

/// The same with a table of the caller's, of any size and in any order.
void update_printer_state(const PrinterState& state, std::span<const PrinterStateReason> table);
