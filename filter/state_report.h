// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "printer_state.h"
#include "printer_state_reasons.h"

/// Reports the printer's condition to the scheduler, whole: writes "STATE: +" and "DEBUG: " lines for the
/// keywords of every row that matches `state` in table order (FALLBACK_REASON if none does), then "STATE: -"
/// lines for all other keywords of the table in byte-wise ascending order. Each line is one write to the
/// stream stderr, which is not flushed.
void update_printer_state(const PrinterState& state);

/// Does the same as update_printer_state() with the caller's own table, of any size and in any order.
void update_printer_state_from_table(const PrinterState& state, std::span<const PrinterStateReason> table);
