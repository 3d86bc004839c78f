// SPDX-License-Identifier: Apache-2.0
// A listening socket that can refuse connections for a while.
#pragma once

#include <asio.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

/// AcceptLoop reserves an address and, while it listens, passes on each connection to it. It must outlive the
/// run of its io_context.
template <typename Protocol>
class AcceptLoop {
 public:
  using Socket = typename Protocol::socket;
  using Endpoint = typename Protocol::endpoint;

  AcceptLoop(asio::io_context& io, std::function<void(Socket)> on_connection)
      : io_(io), pause_(io), on_connection_(std::move(on_connection)) {}

  /// Reserves the address. Connections are refused until listen().
  std::error_code bind(const Endpoint& endpoint) {
    endpoint_ = endpoint;
    // Use a new acceptor each time, so that connections from the old one can be recognised and dropped.
    acceptor_ = std::make_shared<Acceptor>(io_);
    std::error_code error;
    acceptor_->open(endpoint.protocol(), error);
    if (!error) {
      acceptor_->set_option(asio::socket_base::reuse_address(true), error);
    }
    if (!error) {
      acceptor_->bind(endpoint, error);
    }
    std::error_code ignored;
    if (error) {
      acceptor_->close(ignored);
    } else {
      endpoint_ = acceptor_->local_endpoint(ignored);
    }
    return error;
  }

  /// Listens on the address that bind() took.
  std::error_code listen() {
    std::error_code error = acceptor_->is_open() ? std::error_code() : bind(endpoint_);
    if (!error) {
      acceptor_->listen(asio::socket_base::max_listen_connections, error);
    }
    if (!error) {
      listening_ = true;
      accept();
    }
    return error;
  }

  /// Refuses connections until listen(), but keeps the address reserved if possible.
  void stop_listening() {
    std::error_code ignored;
    acceptor_->close(ignored);
    listening_ = false;
    bind(endpoint_);
  }

  [[nodiscard]] bool listening() const { return listening_; }

  /// @return the address that bind() reserved, with the real port instead of 0.
  [[nodiscard]] const Endpoint& endpoint() const { return endpoint_; }

 private:
  using Acceptor = typename Protocol::acceptor;

  void accept() {
    acceptor_->async_accept([this, acceptor = acceptor_](std::error_code error, Socket socket) {
      if (acceptor != acceptor_ || error == asio::error::operation_aborted) {
        return;
      }
      if (!error) {
        on_connection_(std::move(socket));
        accept();
        return;
      }
      // Probably out of descriptors; wait until others are closed.
      pause_.expires_after(std::chrono::milliseconds(100));
      pause_.async_wait([this, acceptor](std::error_code aborted) {
        if (!aborted && acceptor == acceptor_) {
          accept();
        }
      });
    });
  }

  asio::io_context& io_;
  std::shared_ptr<Acceptor> acceptor_;
  Endpoint endpoint_;
  asio::steady_timer pause_;
  std::function<void(Socket)> on_connection_;
  bool listening_ = false;
};
