// SPDX-License-Identifier: Apache-2.0
// The Prometheus metrics.
#pragma once

#include <string>

#include "monitor/report.h"

/// The report in Prometheus' text format, for the textfile folder of a node exporter. A value that is not
/// known has no sample.
[[nodiscard]] std::string prometheus_view(const Report& report);
