// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/sidechannel.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/expected_log.h"

/// An answer of the backend on the side channel.
struct SideAnswer {
  int status = CUPS_SC_STATUS_OK;
  std::string data = {};
};

/// PrinterReply is how the backend and the printer handle one request of the filter.
struct PrinterReply {
  std::optional<SideAnswer> drain = SideAnswer{};  ///< none: the drain is not answered
  std::vector<std::string> pieces = {};  ///< each is sent after the filter has read the previous one
  bool hang_up = false;                  ///< closes the back channel after the pieces
};

enum class Output { Pipe, Full, Closed };

/// FilterRun is one run of the built filter with this program as its backend: it holds the other ends of the
/// filter's standard streams, of the back channel (descriptor 3) and of the side channel (descriptor 4). The
/// channels are non-blocking, as in the scheduler.
struct FilterRun {
  std::optional<SideAnswer> probe = SideAnswer{CUPS_SC_STATUS_OK, "\x01"};  ///< none: not answered
  std::deque<PrinterReply>
      replies;        ///< one per request; if none is left, the drain succeeds and the printer is silent
  std::string input;  ///< the filter's standard input
  bool input_closed = false;  ///< the filter starts without a standard input
  std::string program = FILTER_PROGRAM;
  Output output = Output::Pipe;

  // Results:
  int exit_status = -1;
  std::string log;                  ///< standard error
  std::vector<std::string> writes;  ///< standard error, one element per write
  std::string requests;             ///< standard output
  int side_requests = 0;            ///< on the side channel, including the probe

  /// Runs the filter with these arguments after the program's name.
  void run(const std::vector<std::string>& arguments);
  /// Runs it on a command file with this text.
  void run_file(const std::string& commands);
};
