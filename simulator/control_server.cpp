// SPDX-License-Identifier: Apache-2.0
#include "simulator/control_server.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "simulator/control_command.h"

namespace {

using Local = asio::local::stream_protocol;
using Execute = std::function<std::string(const std::optional<std::string>&)>;

/// ControlSession reads lines and answers each before it executes the next, so that replies do not accumulate
/// if a client does not read them. Its pending operation keeps it alive.
class ControlSession : public std::enable_shared_from_this<ControlSession> {
 public:
  ControlSession(Local::socket socket, const Execute& execute)
      : socket_(std::move(socket)), execute_(execute) {}

  void serve() {
    if (lines_.empty()) {
      read();
      return;
    }
    reply_ = execute_(lines_.front()) + "\n";
    lines_.pop_front();
    asio::async_write(socket_, asio::buffer(reply_), [self = shared_from_this()](auto error, auto) {
      if (!error) {
        self->serve();
      }
    });
  }

 private:
  void read() {
    socket_.async_read_some(asio::buffer(chunk_), [self = shared_from_this()](auto error, auto count) {
      if (error) {
        return;
      }
      for (auto& line : self->reader_.feed(std::string_view(self->chunk_.data(), count))) {
        self->lines_.push_back(std::move(line));
      }
      self->serve();
    });
  }

  Local::socket socket_;
  const Execute& execute_;
  ControlLineReader reader_;
  std::array<char, 1024> chunk_{};
  std::deque<std::optional<std::string>> lines_;
  std::string reply_;
};

struct SocketFile {
  ino_t number;
  uid_t owner;
};

/// @return nothing if it is not a socket.
std::optional<SocketFile> socket_file(const Place& place) {
  struct stat status {};
  const bool found = fstatat(place.folder.number(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                     S_ISSOCK(status.st_mode);
  return found ? std::optional(SocketFile{status.st_ino, status.st_uid}) : std::nullopt;
}

/// Returns the address of a socket file in an open folder, which other users cannot replace.
Local::endpoint endpoint_in(const Place& place) {
  return "/proc/self/fd/" + std::to_string(place.folder.number()) + "/" + place.name;
}

/// Creates the socket file with mode 0600.
std::error_code bind_for_owner(AcceptLoop<Local>& accept_loop, const Local::endpoint& endpoint) {
  const mode_t before = umask(0177);
  const std::error_code error = accept_loop.bind(endpoint);
  umask(before);
  return error;
}

}  // namespace

ControlServer::ControlServer(asio::io_context& io, Execute execute)
    : io_(io), execute_(std::move(execute)), accept_loop_(io, [this](Local::socket socket) {
        std::make_shared<ControlSession>(std::move(socket), execute_)->serve();
      }) {}

ControlServer::~ControlServer() {
  // Another simulator may have taken the path in the meantime.
  const auto file = place_ ? socket_file(*place_) : std::nullopt;
  if (file && file_ == file->number) {
    unlinkat(place_->folder.number(), place_->name.c_str(), 0);
  }
}

std::optional<std::string> ControlServer::open(const std::string& path) {
  const std::string name = "control socket '" + path + "'";
  if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
    return name + ": the path must have 1 to " + std::to_string(sizeof(sockaddr_un::sun_path) - 1) +
           " characters; choose another";
  }
  try {
    place_ = find_place(path, false);
    const Local::endpoint endpoint = endpoint_in(*place_);
    std::error_code error = bind_for_owner(accept_loop_, endpoint);
    if (error == asio::error::address_in_use) {
      if (const std::string why = remove_stale(endpoint); !why.empty()) {
        return name + ": " + why;
      }
      error = bind_for_owner(accept_loop_, endpoint);
    }
    if (!error) {
      if (const auto file = socket_file(*place_)) {
        file_ = file->number;
      }
      error = accept_loop_.listen();
    }
    if (error) {
      return name + ": " + error.message() + "; choose another path";
    }
  } catch (const std::exception& error) {
    return name + ": " + error.what() + "; choose another path";
  }
  return std::nullopt;
}

std::string ControlServer::remove_stale(const Local::endpoint& endpoint) {
  const auto file = socket_file(*place_);
  if (!file) {
    return "it exists and is not a socket; choose another path";
  }
  if (file->owner != geteuid()) {
    return "it belongs to another user; choose another path";
  }
  std::error_code error;
  Local::socket simulator(io_);
  simulator.connect(endpoint, error);
  if (!error) {
    return "another simulator is using it; stop it or choose another path";
  }
  if (error != asio::error::connection_refused) {
    return "it cannot be checked: " + error.message() + "; choose another path";
  }
  unlinkat(place_->folder.number(), place_->name.c_str(), 0);
  return {};
}
