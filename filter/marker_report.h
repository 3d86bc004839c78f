// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "printer_levels.h"

/// Reports the ink ribbon's state to the scheduler as the queue's one marker: a "DEBUG: " line and the "ATTR:
/// " lines marker-colors, marker-levels, marker-message, marker-names and marker-types, to standard error.
///
/// marker-levels is remaining × 100 / total, truncated and not limited to 100; -1 if the printer does not
/// know its counters, -2 without a reading.
void report_printer_levels(const PrinterLevels& levels);
