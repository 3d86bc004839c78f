// SPDX-License-Identifier: Apache-2.0
// The texts of errors of a print server.
#pragma once

#include <string>

#include "monitor/scheduler.h"

/// Returns an error message for a user. It may contain the scheduler's text, which may have any bytes.
/// @param shared  whether the queue is shared with other computers, if that is known.
[[nodiscard]] std::string explanation(const SchedulerError& error, std::optional<bool> shared = {});
