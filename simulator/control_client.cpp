// SPDX-License-Identifier: Apache-2.0
#include "simulator/control_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "files/place.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Larger than the longest reply.
constexpr std::size_t LONGEST_REPLY = 1 << 20;

/// Throws the system's error; a timed-out call sets EAGAIN.
[[noreturn]] void throw_error() {
  throw_file_error(errno == EAGAIN ? ETIMEDOUT : errno);
}

/// Limits subsequent calls to the deadline.
///
/// @param direction  SO_SNDTIMEO, for connect() too, or SO_RCVTIMEO.
void set_deadline(const Descriptor& socket, int direction, Clock::time_point deadline) {
  constexpr std::chrono::microseconds second = std::chrono::seconds(1);
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
  if (left.count() <= 0) {
    throw_file_error(ETIMEDOUT);
  }
  const timeval limit{left / second, (left % second).count()};
  if (setsockopt(socket.number(), SOL_SOCKET, direction, &limit, sizeof limit) != 0) {
    throw_error();
  }
}

/// Returns whether the simulator at the other end was started by this user or by root. Root may use any.
bool is_of_this_user(const Descriptor& socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  const uid_t self = geteuid();
  return getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         (self == 0 || peer.uid == self || peer.uid == 0);
}

/// Returns the reply with printable ASCII characters only, because any program may listen on the socket.
std::string printable(std::string reply) {
  std::ranges::replace_if(
      reply, [](char c) { return c < ' ' || c > '~'; }, '?');
  return reply;
}

/// Returns the reply without its line end. Throws if none comes.
std::string ask(const std::string& path, const std::string& line, Clock::time_point deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw_file_error(ENAMETOOLONG);
  }
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const Descriptor simulator(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  set_deadline(simulator, SO_SNDTIMEO, deadline);
  if (connect(simulator.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw_error();
  }
  if (!is_of_this_user(simulator)) {
    throw_file_error(EACCES);
  }

  const std::string request = line + "\n";
  for (std::size_t sent = 0; sent < request.size();) {
    set_deadline(simulator, SO_SNDTIMEO, deadline);
    const ssize_t count =
        send(simulator.number(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (count < 0) {
      throw_error();
    }
    sent += static_cast<std::size_t>(count);
  }

  std::string reply;
  std::array<char, 4096> chunk{};
  while (reply.size() < LONGEST_REPLY) {
    set_deadline(simulator, SO_RCVTIMEO, deadline);
    const ssize_t count = recv(simulator.number(), chunk.data(), chunk.size(), 0);
    if (count < 0) {
      throw_error();
    }
    const std::string_view piece(chunk.data(), static_cast<std::size_t>(count));
    const std::size_t end = piece.find('\n');
    reply += piece.substr(0, end);
    if (end != std::string_view::npos) {
      return reply;
    }
    if (count == 0) {
      throw FileError("End of file");
    }
  }
  throw_file_error(EMSGSIZE);
}

}  // namespace

bool tell_simulator(const std::string& path, const std::string& line, std::chrono::milliseconds limit) {
  std::string reply;
  try {
    reply = printable(ask(path, line, Clock::now() + limit));
  } catch (const std::exception& error) {
    fprintf(stderr, "brenvellis-simulator: no simulator answers at '%s' (%s); start one with --control %s\n",
            path.c_str(), error.what(), path.c_str());
    return false;
  }
  const bool ok = reply == "ok" || reply.starts_with("ok ");
  fprintf(ok ? stdout : stderr, "%s\n", reply.c_str());
  if (fflush(stdout) != 0) {
    perror("brenvellis-simulator: cannot write the reply");
    return false;
  }
  return ok;
}
