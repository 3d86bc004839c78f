// SPDX-License-Identifier: Apache-2.0
// The marker report shows the ink ribbon's levels to CUPS clients.
#pragma once

#include "printer_levels.h"

/// Reports the ink ribbon to the scheduler as the queue's only marker. Writes a "DEBUG: " line and then the
/// "ATTR: " lines marker-colors, marker-levels, marker-message, marker-names and marker-types to standard
/// error.
///
/// marker-levels is remaining × 100 / total, truncated; it may exceed 100. It is -1 if the printer does not
/// know its counters and -2 without a reading. marker-message is "Ink Ribbon = 200 / 400", or a blank if
/// the level is negative. marker-names is "InkSheetType: " and levels.InkSheetTypeName(), or a blank if the
/// sheet is 0xFF (unknown). Without a reading, it is "InkSheetType: 00" on purpose.
void report_printer_levels(const PrinterLevels& levels);
