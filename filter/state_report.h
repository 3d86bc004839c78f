// SPDX-License-Identifier: Apache-2.0
// The state report shows the printer's error to CUPS clients as state reasons.
#pragma once

#include <span>

#include "printer_state.h"
#include "printer_state_reasons.h"

/// Reports the printer's state to the scheduler. Writes a "STATE: +" and a "DEBUG: " line for each keyword of
/// each row that matches `state`, in table order, or for FALLBACK_REASON if no row matches. Then writes a
/// "STATE: -" line for each other keyword of the table in ascending byte order. Each line is one write to the
/// stream stderr, which is not flushed.
void update_printer_state(const PrinterState& state);

/// Works like update_printer_state() with the caller's table, which may have any size and order.
void update_printer_state_from_table(const PrinterState& state, std::span<const PrinterStateReason> table);
