#pragma once

#include <cups/sidechannel.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// An answer of the backend on the side channel.
struct SideAnswer {
  int status = CUPS_SC_STATUS_OK;
  std::string data = {};
};

/// What the backend and the printer behind it do with one request of the filter.
struct PrinterReply {
  std::optional<SideAnswer> drain = SideAnswer{};  ///< nothing: the drain is never answered
  std::vector<std::string> pieces = {};            ///< each is sent when the filter has read the one before
  bool hang_up = false;                            ///< closes the back channel after the pieces
};

enum class Output { Pipe, Full, Closed };

/// FilterRun is one run of the built filter with this program as its backend: it holds the other ends of the
/// filter's standard streams, of the back channel (descriptor 3) and of the side channel (descriptor 4), both
/// non-blocking as the scheduler hands them over.
struct FilterRun {
  std::optional<SideAnswer> probe = SideAnswer{CUPS_SC_STATUS_OK, "\x01"};  ///< nothing: never answered
  std::deque<PrinterReply> replies;  ///< one a request; none left: the request is drained, the printer silent
  std::string input;                 ///< the filter's standard input
  Output output = Output::Pipe;

  // What came of it:
  int exit_status = -1;
  std::string log;                  ///< standard error
  std::vector<std::string> writes;  ///< standard error, each write by itself
  std::string requests;             ///< standard output
  int side_requests = 0;            ///< of the side channel, the probe included

  /// Runs the filter with these arguments after the program's name.
  void run(const std::vector<std::string>& arguments);
  /// Runs it on a command file with this text.
  void run_file(const std::string& commands);
};

inline const std::string STATUS_REQUEST("\x1bGD0\0\0\1\x16", 8);
inline const std::string LEVELS_REQUEST("\x1bGD0\0\0\3\x1e\x16\x2a", 10);

/// `size` bytes of a status reply with this code; what the filter does not decode is filled with 0xa5.
std::string status_reply(unsigned code, std::size_t size = 15);
/// `size` bytes of a levels reply; what the filter does not decode is filled with 0xa5.
std::string levels_reply(unsigned remaining, unsigned total, unsigned sheet, std::size_t size = 26);

/// The log lines that the filter writes, whole and in order.
std::string command_line(const std::string& word, int linenum);
std::string no_bidirectional_line(const std::string& name, int number);
std::string trace_lines(const std::string& label, const std::string& bytes);
std::string drain_line(const std::string& name, int number);
std::string read_failure_line(int result);
/// A whole successful exchange.
std::string exchange_lines(const std::string& request, const std::string& label, const std::string& reply);
/// The request and its drain, as every exchange begins.
std::string request_lines(const std::string& request);
/// The reconciliation: `raised` with its state text, or the fallback if `raised` is empty and the text is not
/// "GOOD"; then the clearing lines.
std::string state_lines(const std::string& raised, const std::string& state_text);
std::string marker_lines(const std::string& text, int level, const std::string& message,
                         const std::string& name);
