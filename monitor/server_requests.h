// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

/// The first argument of a process that asks one print server for its parent. Host, port, encryption
/// and the milliseconds that an attempt to connect may take follow; standard input is the socket to the
/// parent.
inline constexpr const char* SERVE_OPTION = "--ask-for-parent";

/// Answers the requests of a ServerProcess until that goes away, if this program was started for that.
/// @return the exit status; nothing if the program was started for anything else.
[[nodiscard]] std::optional<int> serve_requests(int argc, char** argv);
