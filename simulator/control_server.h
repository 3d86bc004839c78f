// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <asio.hpp>
#include <functional>
#include <optional>
#include <string>

#include "files/place.h"
#include "simulator/accept_loop.h"

/// ControlServer is the Unix socket over which a running simulator is told and asked. It must outlive the run
/// of its io_context.
class ControlServer {
 public:
  /// @param execute carries out one line (none: it was too long) and returns the reply without a line end.
  ControlServer(asio::io_context& io, std::function<std::string(const std::optional<std::string>&)> execute);
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Removes the socket file that open() made.
  ~ControlServer();

  /// Makes the socket file, for its owner alone, and listens on it. A file that a killed simulator of the
  /// same user left there is replaced. A symbolic link of another user on the way to it is refused.
  ///
  /// @return nothing on success; otherwise what is wrong and what to do.
  std::optional<std::string> open(const std::string& path);

 private:
  using Local = asio::local::stream_protocol;

  /// Removes the socket file of a simulator that has ended.
  ///
  /// @return why it stays; empty if it was removed.
  std::string remove_stale(const Local::endpoint& endpoint);

  asio::io_context& io_;
  std::function<std::string(const std::optional<std::string>&)> execute_;
  AcceptLoop<Local> accept_loop_;
  std::optional<Place> place_;
  std::optional<ino_t> file_;  ///< the socket that this server made
};
