// SPDX-License-Identifier: Apache-2.0
// The child process that runs the user's command.
#pragma once

#include <optional>

/// The first argument of a child process that runs the user's command. It is followed by the parent's process
/// id, the time limit in milliseconds, and the command.
inline constexpr const char* RUN_OPTION = "--run-for-parent";

/// Runs the command with /bin/sh, if this program was started as its child process. The command has this
/// process's standard input and standard error; its standard output is /dev/null. If it fails, writes the
/// reason to this process's standard output.
///
/// The command has its own process group. After the time limit, when the parent exits, and on end_signal(),
/// the group gets SIGTERM, and SIGKILL as soon as the command has exited, or a second later. If the command
/// exits on its own, the rest of its group gets SIGKILL.
/// @return the exit status; nothing if the program was not started as such a process.
[[nodiscard]] std::optional<int> run_command(int argc, char** argv);

/// The signal that stops a command and its run_command().
[[nodiscard]] int end_signal();
