// SPDX-License-Identifier: Apache-2.0
// The control socket of a running simulator.
#pragma once

#include <sys/types.h>

#include <asio.hpp>
#include <functional>
#include <optional>
#include <string>

#include "files/place.h"
#include "simulator/accept_loop.h"

/// ControlServer is the control socket of a running simulator. It must outlive the run of its io_context.
class ControlServer {
 public:
  /// @param execute  executes a line (nothing if it was too long) and returns the reply without a line end.
  ControlServer(asio::io_context& io, std::function<std::string(const std::optional<std::string>&)> execute);
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Removes the socket file that open() created.
  ~ControlServer();

  /// Creates the socket file, accessible only to its owner, and listens on it. Replaces the file of a killed
  /// simulator of the same user. Does not follow symbolic links of other users.
  ///
  /// @return nothing on success, otherwise an error message.
  std::optional<std::string> open(const std::string& path);

 private:
  using Local = asio::local::stream_protocol;

  /// Removes the socket file of a simulator that has exited.
  ///
  /// @return an error message; empty if the file was removed.
  std::string remove_stale(const Local::endpoint& endpoint);

  asio::io_context& io_;
  std::function<std::string(const std::optional<std::string>&)> execute_;
  AcceptLoop<Local> accept_loop_;
  std::optional<Place> place_;
  std::optional<ino_t> file_;  ///< the socket that this server created
};
