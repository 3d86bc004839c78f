// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Returns the errors of brenvellis-monitor --json's output by its installed schema; empty if it is valid.
/// Throws if the validator does not run.
[[nodiscard]] std::string schema_error(const std::string& json);
