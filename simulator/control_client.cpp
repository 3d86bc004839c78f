#include "simulator/control_client.h"

#include <sys/un.h>

#include <asio.hpp>
#include <chrono>
#include <cstdio>
#include <string_view>
#include <system_error>

namespace {

using Local = asio::local::stream_protocol;

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
  if (!error) {
    asio::write(socket, asio::buffer(line + "\n"), error);
  }
  if (!error) {
    asio::async_read_until(socket, asio::dynamic_buffer(reply), '\n', [&](auto failed, auto count) {
      error = failed;
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
  const std::string reply = ask(path, line, error);
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
