// SPDX-License-Identifier: Apache-2.0
// The network side of the simulated printer.
#pragma once

#include <asio.hpp>
#include <cstdint>
#include <memory>
#include <set>
#include <system_error>

#include "simulator/accept_loop.h"
#include "simulator/simulated_printer.h"

class PrinterConnection;

/// PrinterServer accepts raw TCP connections to a port of 127.0.0.1. It must outlive the run of its
/// io_context.
class PrinterServer {
 public:
  PrinterServer(asio::io_context& io, SimulatedPrinter& printer);

  /// Reserves the port (0 selects a free one) and listens on it, unless the fault is to refuse connections.
  std::error_code open(std::uint16_t port);

  /// Listens or refuses connections according to the fault. Refusing also closes open connections. Must be
  /// called after the fault was changed. Fails if another program has taken the port in the meantime.
  std::error_code follow_fault();

  [[nodiscard]] std::uint16_t port() const { return accept_loop_.endpoint().port(); }

 private:
  friend class PrinterConnection;
  using Tcp = asio::ip::tcp;

  void add(Tcp::socket socket);
  void remove(const std::shared_ptr<PrinterConnection>& connection);

  SimulatedPrinter& printer_;
  std::set<std::shared_ptr<PrinterConnection>> connections_;
  AcceptLoop<Tcp> accept_loop_;
};
