// SPDX-License-Identifier: Apache-2.0
// The status query reads the status code from the printer.
#pragma once

#include "printer_state.h"

/// Queries the printer's status code through the queue's backend; see exchange_with_printer(). Requires a
/// bidirectional connection.
///
/// @return PrinterState::Error with the code from reply bytes 4 and 5 (0 is "no error"), or
///         PrinterState::Unavailable() if any step failed.
PrinterState get_printer_state();
