// SPDX-License-Identifier: Apache-2.0
// The output of --ready.
#pragma once

#include <string>

#include "monitor/report.h"

/// A line for each queue that does not take prints now, with the reasons, and for each print server that
/// could not be reached; empty if every queue takes prints. A critical ribbon counts as such a reason, a low
/// one does not.
[[nodiscard]] std::string ready_view(const Report& report, bool utf8);
