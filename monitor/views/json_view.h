// SPDX-License-Identifier: Apache-2.0
// The JSON output.
#pragma once

#include <string>

#include "monitor/report.h"

/// The version of what json_view writes; it changes when a field's meaning does.
inline constexpr int JSON_SCHEMA = 1;

/// Returns the report as one JSON object in valid UTF-8 with a line end. brenvellis-monitor(1) describes its
/// fields. Unknown values are null.
/// @param indent  columns per level; -1 for all on one line.
[[nodiscard]] std::string json_view(const Report& report, int indent = 2);
