// SPDX-License-Identifier: Apache-2.0
#include "tests/bench/measure.h"

#include <cups/sidechannel.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string_view>

namespace {

constexpr std::string_view STATUS_REPLY("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 15);
constexpr std::string_view LEVELS_REPLY("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2\0\0\1\x90\0\xc8\0\0", 26);

void check(bool well, const char* what) {
  if (!well) {
    std::perror(what);
    std::exit(1);
  }
}

std::vector<char*> pointers(const std::vector<std::string>& words) {
  std::vector<char*> result;
  for (const auto& word : words) {
    result.push_back(const_cast<char*>(word.c_str()));
  }
  return result;
}

/// Moves a descriptor above those that the program gets.
int moved(int descriptor) {
  const int high = fcntl(descriptor, F_DUPFD_CLOEXEC, 20);
  check(high >= 0, "fcntl");
  close(descriptor);
  return high;
}

struct Ends {
  int ours;
  int theirs;
};

Ends pipe_to_us() {
  std::array<int, 2> ends{};
  check(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
  return {moved(ends[0]), moved(ends[1])};
}

/// @param descriptors  the program's descriptor -> ours. Not fork(): what the copy of this process costs
///                     would be counted as the program's.
pid_t spawn(const std::vector<std::string>& words, const std::vector<std::string>& environment,
            const std::map<int, int>& descriptors) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const auto& [theirs, ours] : descriptors) {
    posix_spawn_file_actions_adddup2(&actions, ours, theirs);
  }
  auto arguments = pointers(words);
  arguments.push_back(nullptr);
  auto variables = pointers(environment);
  for (char** variable = environ; *variable != nullptr; ++variable) {
    variables.push_back(*variable);
  }
  variables.push_back(nullptr);
  pid_t child = 0;
  const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), variables.data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    give_up("cannot start " + words[0]);
  }
  return child;
}

/// @param exit_status  gets it; if null, anything but 0 ends this process.
Cost cost_of(pid_t child, double start, const std::string& name, int* exit_status = nullptr) {
  int status = 0;
  rusage use{};
  check(wait4(child, &status, 0, &use) == child, "wait4");
  const double end = now();
  if (exit_status != nullptr && WIFEXITED(status)) {
    *exit_status = WEXITSTATUS(status);
  } else if (status != 0) {
    give_up(name + " ended with wait status " + std::to_string(status));
  }
  // A program's peak memory initially includes that of its parent.
  rusage own{};
  getrusage(RUSAGE_SELF, &own);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return {seconds(use.ru_utime) + seconds(use.ru_stime), end - start,
          use.ru_maxrss > own.ru_maxrss ? use.ru_maxrss : 0, use.ru_minflt};
}

/// Reads available data; returns false at the end of the stream.
bool take(int descriptor, std::string* into) {
  std::array<char, 65536> bytes;
  const ssize_t count = read(descriptor, bytes.data(), bytes.size());
  if (count > 0 && into != nullptr) {
    into->append(bytes.data(), static_cast<std::size_t>(count));
  }
  return count > 0;
}

void answer(int side, unsigned char command, std::string_view data) {
  std::string message = {static_cast<char>(command), CUPS_SC_STATUS_OK, 0, static_cast<char>(data.size())};
  message += data;
  check(write(side, message.data(), message.size()) == static_cast<ssize_t>(message.size()), "write");
}

struct Backend {
  int output;
  int log;
  int side;
  int back;
  bool bidirectional;

  /// Answers one request of the side channel; false at its end.
  void serve_request() {
    std::array<unsigned char, 4> request{};
    if (read(side, request.data(), request.size()) != 4) {
      side = -1;
    } else if (request[0] == CUPS_SC_CMD_GET_BIDI) {
      answer(side, request[0], std::string_view(bidirectional ? "\1" : "\0", 1));
    } else if (request[0] == CUPS_SC_CMD_DRAIN_OUTPUT) {
      std::string packet;
      take(output, &packet);
      const auto reply = packet.size() == 8 ? STATUS_REPLY : LEVELS_REPLY;
      check(write(back, reply.data(), reply.size()) == static_cast<ssize_t>(reply.size()), "write");
      answer(side, request[0], {});
    }
  }

  void serve(std::string* text) {
    while (log >= 0) {
      std::array<pollfd, 2> events = {{{log, POLLIN, 0}, {side, POLLIN, 0}}};
      check(poll(events.data(), events.size(), -1) > 0, "poll");
      if (events[1].revents != 0) {
        serve_request();
      }
      if (events[0].revents != 0 && !take(log, text)) {
        log = -1;
      }
    }
  }
};

}  // namespace

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void give_up(const std::string& message) {
  std::fprintf(stderr, "bench: %s\n", message.c_str());
  std::exit(1);
}

Cost run_job(const Job& job, std::string* log) {
  const Ends output = pipe_to_us();
  const Ends text = pipe_to_us();
  const Ends back = pipe_to_us();
  std::array<int, 2> side{};
  check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, side.data()) == 0, "socketpair");
  side = {moved(side[0]), moved(side[1])};
  for (const int channel : {back.ours, back.theirs, side[1]}) {
    fcntl(channel, F_SETFL, fcntl(channel, F_GETFL) | O_NONBLOCK);
  }

  auto words = job.program;
  words.insert(words.end(), {"1", "user", "title", "1", "", job.commands});
  const double start = now();
  // The back channel runs the other way: the program reads what this process writes.
  const pid_t child =
      spawn(words, job.environment, {{1, output.theirs}, {2, text.theirs}, {3, back.ours}, {4, side[1]}});
  close(output.theirs);
  close(text.theirs);
  close(side[1]);
  Backend{output.ours, text.ours, side[0], back.theirs, job.bidirectional}.serve(log);
  const Cost cost = cost_of(child, start, words[0]);
  for (const int ours : {output.ours, text.ours, back.ours, back.theirs, side[0]}) {
    close(ours);
  }
  return cost;
}

Cost run_plain(const std::vector<std::string>& program, const std::vector<std::string>& environment) {
  const int nowhere = moved(open("/dev/null", O_RDWR | O_CLOEXEC));
  const double start = now();
  const pid_t child = spawn(program, environment, {{0, nowhere}, {1, nowhere}, {2, nowhere}});
  const Cost cost = cost_of(child, start, program[0]);
  close(nowhere);
  return cost;
}

Cost run_for_output(const std::vector<std::string>& program, std::string& output, int& exit_status) {
  const Ends pipe = pipe_to_us();
  const double start = now();
  const pid_t child = spawn(program, {}, {{1, pipe.theirs}});
  close(pipe.theirs);
  while (take(pipe.ours, &output)) {
  }
  const Cost cost = cost_of(child, start, program[0], &exit_status);
  close(pipe.ours);
  return cost;
}

Spread spread(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto at = [&](double part) {
    return values[static_cast<std::size_t>(std::lround(part * static_cast<double>(values.size() - 1)))];
  };
  return {at(0.25), at(0.5), at(0.75)};
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
