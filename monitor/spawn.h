// SPDX-License-Identifier: Apache-2.0
// The start of child processes of this program.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Spawn describes a child process of this program.
struct Spawn {
  std::string program;
  std::vector<std::string> arguments;  ///< beginning with the program's name
  int input = -1;                      ///< becomes its standard input; that of this process if -1
  int output = -1;                     ///< becomes its standard output; /dev/null if -1
  char** environment = nullptr;        ///< ends with a null pointer; an empty environment if null
};

/// Starts the process. Signals with which a user stops this program are blocked in it, because its parent
/// needs it until it exits itself.
/// @param pid  receives the process's id on success.
/// @return 0, or an errno value.
[[nodiscard]] int spawn(const Spawn& what, pid_t& pid);
