// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

/// Sends one line to the control socket of a running simulator, waits for the reply until `limit` is over,
/// and prints it without control characters: "ok" to standard output, "error:" to standard error.
///
/// @return true for "ok"; false for an error or if nobody answers, which is said on standard error.
bool tell_simulator(const std::string& path, const std::string& line,
                    std::chrono::milliseconds limit = std::chrono::seconds(10));
