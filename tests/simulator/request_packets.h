// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulator/printer_condition.h"
#include "tests/support/expected_log.h"

inline const Bytes STATUS(STATUS_REQUEST.begin(), STATUS_REQUEST.end());
inline const Bytes LEVELS(LEVELS_REQUEST.begin(), LEVELS_REQUEST.end());
