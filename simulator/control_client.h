// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Sends one line to the control socket of a running simulator, waits at most 10 seconds for the reply and
/// prints it without control characters: "ok" to standard output, "error:" to standard error.
///
/// @return true for "ok"; false for an error or if nobody answers, which is said on standard error.
bool tell_simulator(const std::string& path, const std::string& line);
