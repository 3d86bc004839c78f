// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "printer_state.h"

/// Asks the printer for its status code through the queue's backend; see exchange_with_printer().
/// The connection must be bidirectional.
///
/// @return PrinterState::Error with the code from reply bytes 4 and 5 (0 is "no error"), or
///         PrinterState::Unavailable() if any step failed.
PrinterState get_printer_state();
