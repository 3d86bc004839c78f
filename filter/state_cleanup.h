// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Clears all printer-state-reasons that CUPS lists for the default destination, whatever their origin:
/// writes a "STATE: -" line for each to standard error, between a "clean_printer_state() START" and an "END"
/// line. The default destination is that of the process's CUPS client setup, which need not be the queue that
/// runs the filter.
///
/// Keywords are separated by commas alone: blanks stay part of them, on purpose.
/// A list without any keyword writes "STATE: -(null)"; a destination without such a list no "STATE:" line.
void clean_printer_state();
