// SPDX-License-Identifier: Apache-2.0
// The client of the control socket, for the option --tell.
#pragma once

#include <chrono>
#include <string>

/// Sends a line to the control socket of a running simulator, waits for the reply for at most `limit`, and
/// prints it without control characters: "ok" to standard output, "error:" to standard error.
///
/// @return true for "ok"; false for an error or without a reply, which is reported on standard error.
bool tell_simulator(const std::string& path, const std::string& line,
                    std::chrono::milliseconds limit = std::chrono::seconds(10));
