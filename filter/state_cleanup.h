// SPDX-License-Identifier: Apache-2.0
// The state cleanup clears the state reasons that the default destination has.
#pragma once

/// Reads the printer-state-reasons of the default destination and clears each of them, whatever its origin.
/// Writes the line "clean_printer_state() START", a "STATE: -" line per keyword and the line
/// "clean_printer_state() END" to standard error. The scheduler clears the keywords on the queue that runs
/// the filter. The default destination is that of the process's CUPS client configuration, which may be
/// another queue.
///
/// Only commas separate keywords; blanks remain part of them on purpose. For a list without keywords, the
/// line is "STATE: -(null)". For a destination without such a list, there is no "STATE:" line. Without a
/// default destination, the only line between the first and the last is
/// "DEBUG: Not found default(destination) printer.".
///
/// Asks the scheduler with cupsGetDests() and sets no time limit: if the scheduler does not answer, libcups
/// waits for about 2 minutes.
void clean_printer_state();
