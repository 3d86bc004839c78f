// SPDX-License-Identifier: Apache-2.0
// The marker report shows the ink ribbon's levels to CUPS clients.
#pragma once

#include "printer_levels.h"

/// Reports the ink ribbon to the scheduler as the queue's only marker. Writes a "DEBUG: " line and then the
/// "ATTR: " lines marker-colors, marker-levels, marker-message, marker-names and marker-types to standard
/// error.
///
/// marker-levels is remaining × 100 / total, truncated; it may exceed 100. It is -1 if the printer does not
/// know its counters and -2 if there is no reading.
void report_printer_levels(const PrinterLevels& levels);
