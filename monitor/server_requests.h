// SPDX-License-Identifier: Apache-2.0
// The child process that queries a print server.
#pragma once

#include <optional>

/// The first argument of a child process that queries a print server for its parent. It is followed by host,
/// port, encryption and the connection timeout in milliseconds. Standard input is the socket to the parent.
inline constexpr const char* SERVE_OPTION = "--ask-for-parent";

/// Answers the requests of a ServerProcess until it exits, if this program was started as its child process.
/// @return the exit status; nothing if the program was not started as a child process.
[[nodiscard]] std::optional<int> serve_requests(int argc, char** argv);
