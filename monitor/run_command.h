// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

/// The first argument of a process that runs a command of the user's for its parent. The parent's process id,
/// the milliseconds that the command may take and the command follow.
inline constexpr const char* RUN_OPTION = "--run-for-parent";

/// Runs the command by /bin/sh with this process's standard input and standard error, if this program was
/// started for that, and writes to standard output why it failed; nothing if it did not. The command has a
/// process group of its own, of which nothing is left when this returns. It is ended when its time is over
/// and when the parent has gone or wants it to (END_SIGNAL).
/// @return the exit status; nothing if the program was started for anything else.
[[nodiscard]] std::optional<int> run_command(int argc, char** argv);

/// The signal that ends a command and its run_command().
[[nodiscard]] int end_signal();
