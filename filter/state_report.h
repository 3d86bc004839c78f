// SPDX-License-Identifier: Apache-2.0
// The state report shows the printer's error to CUPS clients as state reasons.
#pragma once

#include <span>

#include "printer_state.h"
#include "printer_state_reasons.h"

/// Reports the printer's state to the scheduler. Writes a "STATE: +" and a "DEBUG: " line for each keyword of
/// each row that matches `state`, in table order. If no row matches, writes these two lines for
/// FALLBACK_REASON and then "DEBUG: error_number part mismatch processing ", which ends with a blank on
/// purpose. Finally writes a "STATE: -" line for each other keyword of the table in ascending byte order.
/// Each line is one write to the stream stderr, which is not flushed.
void update_printer_state(const PrinterState& state);

/// Works like update_printer_state() with the caller's table, which may have any size and order. Allocates
/// memory for the table's keywords; throws std::bad_alloc if there is none.
void update_printer_state_from_table(const PrinterState& state, std::span<const PrinterStateReason> table);
