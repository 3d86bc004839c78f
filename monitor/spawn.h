// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Spawn is how this program starts itself to do a part of its work.
struct Spawn {
  std::string program;
  std::vector<std::string> arguments;  ///< the name first
  int input = -1;                      ///< becomes its standard input
  int output = -1;                     ///< becomes its standard output; -1: that is /dev/null
  char** environment = nullptr;
};

/// Starts the process. The signals by which a person ends this program are blocked in it: it ends with its
/// parent, which needs it until then.
/// @return 0, or why it could not be started, as errno.
[[nodiscard]] int spawn(const Spawn& what, pid_t& pid);
