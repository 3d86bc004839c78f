// SPDX-License-Identifier: Apache-2.0
#include "monitor/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <csignal>

int spawn(const Spawn& what, pid_t& pid) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, what.input, STDIN_FILENO);
  if (what.output >= 0) {
    posix_spawn_file_actions_adddup2(&files, what.output, STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    sigaddset(&blocked, signal);
  }
  posix_spawnattr_setsigmask(&attributes, &blocked);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

  std::vector<char*> arguments;
  arguments.reserve(what.arguments.size() + 1);
  for (const auto& argument : what.arguments) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const int error =
      posix_spawn(&pid, what.program.c_str(), &files, &attributes, arguments.data(), what.environment);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return error;
}
