// SPDX-License-Identifier: Apache-2.0
// The state of the simulated printer.
#pragma once

#include <cstddef>
#include <deque>

#include "simulator/fault.h"
#include "simulator/printer_condition.h"

/// PrinterSettings holds the settings of the options and control commands.
struct PrinterSettings {
  PrinterCondition condition;
  Fault fault;
};

/// Traffic counts the requests since the start or the last "forget".
struct Traffic {
  std::size_t connections = 0;
  std::size_t status_requests = 0;
  std::size_t levels_requests = 0;
  std::size_t other_bytes = 0;  ///< bytes of no request packet, such as print data
  std::deque<Bytes> requests;   ///< the last 1000 request packets, oldest first
};

/// SimulatedPrinter is the printer's state, shared by the network side and the control side.
struct SimulatedPrinter {
  PrinterSettings settings;
  Traffic traffic;
  std::size_t open_connections = 0;
};

/// Records a request packet and answers it with the current settings.
///
/// @return the pieces to send, in this order; empty for a packet that is not answered.
std::vector<Piece> answer_request(SimulatedPrinter& printer, Bytes packet);
