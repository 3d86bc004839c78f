// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "monitor/scheduler.h"

/// Why a scheduler did not do what it was asked, for a person, with its own words: any bytes.
/// @param shared  whether the queue is shared with other computers, if that is known.
[[nodiscard]] std::string explanation(const SchedulerError& error, std::optional<bool> shared = {});
