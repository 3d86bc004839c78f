// SPDX-License-Identifier: Apache-2.0
#include "simulator/simulated_printer.h"

#include <utility>

#include "simulator/request_parser.h"

namespace {

constexpr std::size_t REQUESTS_KEPT = 1000;

}  // namespace

std::vector<Piece> answer_request(SimulatedPrinter& printer, Bytes packet) {
  const auto kind = identify_request(packet);
  Traffic& traffic = printer.traffic;
  traffic.requests.push_back(std::move(packet));
  if (traffic.requests.size() > REQUESTS_KEPT) {
    traffic.requests.pop_front();
  }
  if (!kind) {
    return {};
  }
  ++(*kind == RequestKind::Status ? traffic.status_requests : traffic.levels_requests);
  return plan_delivery(printer.settings.fault, *kind, make_reply(*kind, printer.settings.condition));
}
