// SPDX-License-Identifier: Apache-2.0
#include "simulator/control_client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <cstdio>
#include <string_view>
#include <system_error>

namespace {

using Local = asio::local::stream_protocol;

/// More than all requests that a simulator remembers.
constexpr std::size_t LONGEST_REPLY = 1 << 20;

/// Whether the simulator at the other end was started by this user or by root. Root may use any.
bool is_of_this_user(Local::socket& socket) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  const uid_t self = geteuid();
  return getsockopt(socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         (self == 0 || peer.uid == self || peer.uid == 0);
}

/// The reply with printable ASCII characters only, as a simulator writes it; anybody else may listen there.
std::string printable(std::string reply) {
  std::ranges::replace_if(
      reply, [](char c) { return c < ' ' || c > '~'; }, '?');
  return reply;
}

/// @param error  why there is no reply, if so.
/// @return the reply without its line end; empty if there is none.
std::string ask(const std::string& path, const std::string& line, std::error_code& error) {
  if (path.size() >= sizeof(sockaddr_un::sun_path)) {
    error = std::make_error_code(std::errc::filename_too_long);
    return {};
  }
  asio::io_context io;
  Local::socket socket(io);
  std::string reply;
  std::string answer;
  socket.connect(Local::endpoint(path), error);
  if (!error && !is_of_this_user(socket)) {
    error = std::make_error_code(std::errc::permission_denied);
  }
  if (!error) {
    asio::write(socket, asio::buffer(line + "\n"), error);
  }
  if (!error) {
    asio::async_read_until(
        socket, asio::dynamic_buffer(reply, LONGEST_REPLY), '\n', [&](auto failed, auto count) {
          error = failed == asio::error::not_found ? std::make_error_code(std::errc::message_size) : failed;
          answer = failed ? "" : reply.substr(0, count - 1);
        });
    error = std::make_error_code(std::errc::timed_out);
    io.run_for(std::chrono::seconds(10));
  }
  return answer;
}

}  // namespace

bool tell_simulator(const std::string& path, const std::string& line) {
  std::error_code error;
  const std::string reply = printable(ask(path, line, error));
  if (reply.empty()) {
    fprintf(stderr, "brenvellis-simulator: no simulator answers at '%s' (%s); start one with --control %s\n",
            path.c_str(), error.message().c_str(), path.c_str());
    return false;
  }
  const bool ok = reply == "ok" || reply.starts_with("ok ");
  fprintf(ok ? stdout : stderr, "%s\n", reply.c_str());
  if (fflush(stdout) != 0) {
    perror("brenvellis-simulator: the reply could not be written");
    return false;
  }
  return ok;
}
