// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/cups.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// HostileServer listens on a port of 127.0.0.1 and answers every HTTP request as the test says.
class HostileServer {
 public:
  /// A request that waits for its answer, which ends when the client or the server goes away.
  class Exchange {
   public:
    Exchange(int socket, ipp_op_t operation) : operation_(operation), socket_(socket) {}
    [[nodiscard]] ipp_op_t operation() const { return operation_; }
    /// Sends the bytes. Returns false when the client has closed the connection.
    bool send(const std::string& bytes);
    /// Waits. Returns false when the client has closed the connection.
    bool wait(std::chrono::milliseconds length);

   private:
    ipp_op_t operation_;
    int socket_;
  };
  using Answer = std::function<void(Exchange&)>;

  explicit HostileServer(Answer answer);
  ~HostileServer();
  HostileServer(const HostileServer&) = delete;
  HostileServer& operator=(const HostileServer&) = delete;

  [[nodiscard]] int port() const { return port_; }
  void answer_with(Answer answer);
  /// How many connections were made to it.
  [[nodiscard]] std::size_t connections() const;

 private:
  void listen();
  void serve(int socket);

  mutable std::mutex mutex_;
  Answer answer_;
  std::vector<int> sockets_;  ///< of all connections; closed at the end
  std::vector<std::jthread> threads_;
  bool ending_ = false;
  int listener_ = -1;
  int port_ = 0;
  std::jthread listening_;
};

/// A whole HTTP response with the body.
std::string http_response(const std::string& status, const std::string& body = {},
                          const std::string& more_headers = {});

/// The bytes of an IPP message, which is deleted.
std::string ipp_bytes(ipp_t* message);

/// An IPP answer without attributes of printers or jobs.
ipp_t* ipp_answer(ipp_status_t status = IPP_STATUS_OK, const char* text = nullptr);

/// The same as a whole HTTP response.
std::string ipp_response(ipp_status_t status = IPP_STATUS_OK, const char* text = nullptr);

/// The start of an IPP answer whose first printer's attributes follow.
std::string ipp_start();

/// One value of an IPP message as bytes; without a name, one more of the attribute before.
std::string ipp_value(ipp_tag_t tag, const std::string& name, const std::string& value);

/// The attributes of a healthy queue of this driver, as bytes.
std::string queue_attributes(const std::string& name);
