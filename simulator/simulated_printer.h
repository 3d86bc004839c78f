// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <deque>

#include "simulator/fault.h"
#include "simulator/printer_condition.h"

/// PrinterSettings is what the options and the control commands set.
struct PrinterSettings {
  PrinterCondition condition;
  Fault fault;
};

/// Traffic is what was asked of the printer since its start or the last "forget".
struct Traffic {
  std::size_t connections = 0;
  std::size_t status_requests = 0;
  std::size_t levels_requests = 0;
  std::size_t other_bytes = 0;  ///< bytes of no request packet, such as print data
  std::deque<Bytes> requests;   ///< the last 1000 request packets, oldest first
};

/// SimulatedPrinter is the printer without its wires: the network side and the control side share one.
struct SimulatedPrinter {
  PrinterSettings settings;
  Traffic traffic;
  std::size_t open_connections = 0;
};

/// Records a whole request packet and answers it by the printer's settings of this moment.
///
/// @return what is to be sent, in this order; nothing for a packet that is not answered.
std::vector<Piece> answer_request(SimulatedPrinter& printer, Bytes packet);
