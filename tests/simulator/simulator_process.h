// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/expected_log.h"
#include "tests/support/network_printer.h"

/// The timeout of all waits.
constexpr int PATIENCE_MS = 30000;

/// The replies of a printer with this code and default values.
std::string simulated_status_reply(std::uint16_t code = 0);
std::string simulated_levels_reply(std::uint16_t code = 0);

/// Runs the program to its end.
ProgramResult run_simulator(std::vector<std::string> arguments);

/// Connection is a client's end of a stream socket. Errors on it fail the test.
class Connection {
 public:
  static Connection to_port(std::uint16_t port);
  static Connection to_path(const std::string& path);
  Connection(Connection&& other) noexcept;
  Connection& operator=(Connection&& other) noexcept;
  ~Connection();

  void send(std::string_view bytes) const;
  void end_sending() const;
  /// @return exactly so many bytes; fewer at the end of the stream.
  [[nodiscard]] std::string receive(std::size_t size) const;
  /// @return the next data; empty at the end of the stream.
  [[nodiscard]] std::string receive_piece() const;
  [[nodiscard]] std::string receive_to_end() const;
  /// @return the available data, without waiting.
  [[nodiscard]] std::string receive_now() const;
  [[nodiscard]] std::string receive_line() const;
  /// Sends until the peer stops reading or `most` bytes are sent.
  [[nodiscard]] std::size_t send_until_stuck(std::string_view bytes, std::size_t most) const;
  /// Closes with a reset in place of an orderly end.
  void reset();

 private:
  explicit Connection(int descriptor) : descriptor_(descriptor) {}
  int descriptor_;
};

/// @return 0 if a connection could be made, else errno.
int try_to_connect(std::uint16_t port);

/// PortHolder reserves a free port of 127.0.0.1. Only a program that is given its number can listen on it.
class PortHolder {
 public:
  /// @param port 0 for a free one.
  explicit PortHolder(std::uint16_t port = 0);
  ~PortHolder();
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;
  [[nodiscard]] std::uint16_t port() const { return port_; }
  void listen() const;

 private:
  int descriptor_;
  std::uint16_t port_ = 0;
};

/// SimulatorProcess is a running simulator. Errors on it fail the test.
class SimulatorProcess : public NetworkPrinter {
 public:
  using NetworkPrinter::NetworkPrinter;
  SimulatorProcess() = default;
  SimulatorProcess(const SimulatorProcess&) = delete;
  SimulatorProcess& operator=(const SimulatorProcess&) = delete;
  ~SimulatorProcess();

  [[nodiscard]] Connection connect() const { return Connection::to_port(port()); }

  /// Returns the whole reply to a control line.
  [[nodiscard]] std::string reply_to(std::string_view line) const;
  /// Sends a control line and expects "ok".
  void set(std::string_view line) const;
  /// Waits until the reply to "show" contains the text.
  void await_shown(std::string_view text) const;
  [[nodiscard]] std::size_t open_descriptors() const;
  /// Limits the number of its open descriptors.
  void limit_descriptors(unsigned most) const;
};
