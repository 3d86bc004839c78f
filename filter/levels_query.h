// SPDX-License-Identifier: Apache-2.0
// The levels query reads the ink ribbon's levels from the printer.
#pragma once

#include "printer_levels.h"

/// Queries the printer's ink ribbon levels through the queue's backend; see exchange_with_printer(). Requires
/// a bidirectional connection.
///
/// @return the decoded reply, or PrinterLevels::Unavailable() if any step failed.
PrinterLevels get_printer_levels();
