// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

inline const std::string STATUS_REQUEST("\x1bGD0\0\0\1\x16", 8);
inline const std::string LEVELS_REQUEST("\x1bGD0\0\0\3\x1e\x16\x2a", 10);

/// `size` bytes of a status reply with this code; what the filter does not decode is filled with `fill`.
std::string status_reply(unsigned code, std::size_t size = 15, char fill = '\xa5');
/// `size` bytes of a levels reply; what the filter does not decode is filled with `fill`.
std::string levels_reply(unsigned remaining, unsigned total, unsigned sheet, std::size_t size = 26,
                         char fill = '\xa5');

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
