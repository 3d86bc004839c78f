// SPDX-License-Identifier: Apache-2.0
#include "tests/support/expected_log.h"

#include <array>
#include <cstdio>
#include <set>

#include "tests/unit/known_codes.h"

std::string status_reply(unsigned code, std::size_t size, char fill) {
  std::string reply(size, fill);
  reply.at(4) = static_cast<char>(code >> 8);
  reply.at(5) = static_cast<char>(code & 0xff);
  return reply;
}

std::string levels_reply(unsigned remaining, unsigned total, unsigned sheet, std::size_t size, char fill) {
  std::string reply(size, fill);
  reply.at(17) = static_cast<char>(sheet);
  reply.at(20) = static_cast<char>(total >> 8);
  reply.at(21) = static_cast<char>(total & 0xff);
  reply.at(22) = static_cast<char>(remaining >> 8);
  reply.at(23) = static_cast<char>(remaining & 0xff);
  return reply;
}

std::string command_line(const std::string& word, int linenum) {
  return "DEBUG: ====> command=[" + word + "] linenum=" + std::to_string(linenum) + "\n";
}

std::string no_bidirectional_line(const std::string& name, int number) {
  return "DEBUG: Unable to retrieve supply status from printer - nobidirectional I/O available! " + name +
         "(" + std::to_string(number) + ")\n";
}

std::string trace_lines(const std::string& label, const std::string& bytes) {
  const std::string start = "DEBUG: " + label + " ";
  std::string lines = start + "size=" + std::to_string(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::array<char, 16> text{};
    if (i % 16 == 0) {
      snprintf(text.data(), text.size(), "%04x:", static_cast<unsigned>(i));
      lines += "\n" + start + text.data();
    }
    snprintf(text.data(), text.size(), " %02x", static_cast<unsigned char>(bytes[i]));
    lines += text.data();
  }
  return lines + "\n";
}

std::string drain_line(const std::string& name, int number) {
  return "DEBUG: CUPS_SC_CMD_DRAIN_OUTPUT=" + name + "(" + std::to_string(number) + ")\n";
}

std::string read_failure_line(int result) {
  return "DEBUG: cupsBackChannelRead() failed. ret=" + std::to_string(result) + "\n";
}

std::string request_lines(const std::string& request) {
  return trace_lines("[CMD]", request) + drain_line("CUPS_SC_STATUS_OK", 1);
}

std::string exchange_lines(const std::string& request, const std::string& label, const std::string& reply) {
  return request_lines(request) + trace_lines(label, reply);
}

std::string state_lines(const std::string& raised, const std::string& state_text) {
  const std::string fallback = "com.brenvellis-error0004";
  const bool mismatch = raised.empty() && state_text != "GOOD";
  const std::string keyword = mismatch ? fallback : raised;
  std::string lines;
  if (!keyword.empty()) {
    lines = "STATE: +" + keyword + "\nDEBUG: " + keyword + " " + state_text + "\n";
  }
  if (mismatch) {
    lines += "DEBUG: error_number part mismatch processing \n";
  }
  std::set<std::string> cleared;
  for (const auto& [code, known] : known_keywords()) {
    cleared.insert(known);
  }
  cleared.erase(keyword);
  for (const auto& known : cleared) {
    lines += "STATE: -" + known + "\n";
  }
  return lines;
}

std::string marker_lines(const std::string& text, int level, const std::string& message,
                         const std::string& name) {
  return "DEBUG: [ReportLevels] " + text +
         "\nATTR: marker-colors=#00FF00\nATTR: marker-levels=" + std::to_string(level) +
         "\nATTR: marker-message=\"" + message + "\"\nATTR: marker-names=\"" + name +
         "\"\nATTR: marker-types=ink-ribbon\n";
}
