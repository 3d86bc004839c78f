// SPDX-License-Identifier: Apache-2.0
// The state cleanup clears all state reasons of the default destination.
#pragma once

/// Clears all printer-state-reasons of the default destination, whatever their origin. Writes the line
/// "clean_printer_state() START", a "STATE: -" line per keyword and the line "clean_printer_state() END" to
/// standard error. The default destination is that of the process's CUPS client configuration, which may
/// differ from the queue that runs the filter.
///
/// Only commas separate keywords; blanks remain part of them on purpose. For a list without keywords, the
/// line is "STATE: -(null)". For a destination without such a list there is no "STATE:" line.
void clean_printer_state();
