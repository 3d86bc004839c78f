// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "printer_levels.h"

/// Asks the printer for its ink ribbon levels through the queue's backend; see exchange_with_printer().
/// The connection must be bidirectional.
///
/// @return the decoded reply, or PrinterLevels::Unavailable() if any step failed.
PrinterLevels get_printer_levels();
