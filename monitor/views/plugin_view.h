// SPDX-License-Identifier: Apache-2.0
// The output of a monitoring plug-in.
#pragma once

#include <string>

#include "monitor/report.h"

/// Returns the first words of a monitoring plug-in's line: the service, and the state for the exit status.
[[nodiscard]] std::string plugin_heading(Verdict verdict);

/// The report as a monitoring plug-in prints it: one line with the state, the queues in trouble, the worst
/// first, and performance data for every queue in the order of the report.
[[nodiscard]] std::string plugin_view(const Report& report, bool utf8);
