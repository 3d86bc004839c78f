// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// What is wrong with the output of brenvellis-monitor --json by its installed schema; empty if it is valid.
/// Throws if the validator does not run.
[[nodiscard]] std::string schema_error(const std::string& json);
