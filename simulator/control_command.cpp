// SPDX-License-Identifier: Apache-2.0
#include "simulator/control_command.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "simulator/command_words.h"

namespace {

struct NumberSetting {
  std::string_view name;
  unsigned largest;
  void (*set)(PrinterCondition& condition, unsigned value);
};

constexpr std::array<NumberSetting, 4> NUMBER_SETTINGS = {{
    {"code", 0xffff, [](PrinterCondition& c, unsigned value) { c.code = static_cast<std::uint16_t>(value); }},
    {"total", 0xffff,
     [](PrinterCondition& c, unsigned value) { c.total = static_cast<std::uint16_t>(value); }},
    {"remaining", 0xffff,
     [](PrinterCondition& c, unsigned value) { c.remaining = static_cast<std::uint16_t>(value); }},
    {"sheet", 0xff, [](PrinterCondition& c, unsigned value) { c.sheet = static_cast<std::uint8_t>(value); }},
}};

std::string show(SimulatedPrinter& printer) {
  const auto& [condition, fault] = printer.settings;
  const Traffic& traffic = printer.traffic;
  std::array<char, 512> text{};
  // The fault's words are joined by commas, because blanks separate the fields.
  snprintf(text.data(), text.size(),
           "ok code=0x%04x total=%u remaining=%u sheet=0x%02x fault=%s connections=%zu open=%zu "
           "status-requests=%zu levels-requests=%zu other-bytes=%zu",
           unsigned{condition.code}, unsigned{condition.total}, unsigned{condition.remaining},
           unsigned{condition.sheet}, to_string(fault, ',').c_str(), traffic.connections,
           printer.open_connections, traffic.status_requests, traffic.levels_requests, traffic.other_bytes);
  return text.data();
}

std::string show_requests(SimulatedPrinter& printer) {
  constexpr std::string_view DIGITS = "0123456789abcdef";
  std::string text = "ok";
  for (const Bytes& packet : printer.traffic.requests) {
    text += ' ';
    for (const unsigned byte : packet) {
      text += DIGITS[byte >> 4U];
      text += DIGITS[byte & 0xfU];
    }
  }
  return text;
}

std::string forget(SimulatedPrinter& printer) {
  printer.traffic = {};
  return "ok";
}

std::string help(SimulatedPrinter& /*printer*/);

struct Question {
  std::string_view name;
  std::string (*answer)(SimulatedPrinter& printer);
};

constexpr std::array<Question, 4> QUESTIONS = {
    {{"show", show}, {"requests", show_requests}, {"forget", forget}, {"help", help}}};

std::string help(SimulatedPrinter& /*printer*/) {
  std::string text = "ok";
  for (const NumberSetting& setting : NUMBER_SETTINGS) {
    text.append(" ").append(setting.name).append(" N;");
  }
  for (const std::string_view form : fault_forms()) {
    text.append(" fault ").append(form).append(";");
  }
  for (const Question& question : QUESTIONS) {
    text.append(" ").append(question.name).append(";");
  }
  text.pop_back();
  return text;
}

bool is_printable(char character) {
  return character >= ' ' && character <= '~';
}

std::string quote(std::string_view text) {
  return std::string("'").append(text).append("'");
}

std::optional<std::string> apply_settings(std::string_view line, PrinterSettings& settings) {
  PrinterSettings changed = settings;
  for (std::size_t start = 0; start <= line.size();) {
    const std::size_t end = std::min(line.find(';', start), line.size());
    if (auto error = apply_setting(split_words(line.substr(start, end - start)), changed)) {
      return error;
    }
    start = end + 1;
  }
  settings = changed;
  return std::nullopt;
}

}  // namespace

std::vector<std::optional<std::string>> ControlLineReader::feed(std::string_view chunk) {
  std::vector<std::optional<std::string>> lines;
  for (const char character : chunk) {
    if (character == '\n') {
      const bool too_long = begun_.size() > LONGEST_CONTROL_LINE;
      lines.push_back(too_long ? std::nullopt : std::optional(begun_));
      begun_.clear();
    } else if (begun_.size() <= LONGEST_CONTROL_LINE) {
      begun_ += character;
    }
  }
  return lines;
}

std::optional<std::string> apply_setting(std::span<const std::string_view> words, PrinterSettings& settings) {
  if (words.empty()) {
    return "empty command ('help' lists the commands)";
  }
  const std::string_view name = words.front();
  if (name == "fault") {
    std::string error;
    const auto fault = parse_fault(words.subspan(1), error);
    if (!fault) {
      return error;
    }
    settings.fault = *fault;
    return std::nullopt;
  }
  const auto* number = std::ranges::find(NUMBER_SETTINGS, name, &NumberSetting::name);
  if (number == NUMBER_SETTINGS.end()) {
    const bool question = std::ranges::find(QUESTIONS, name, &Question::name) != QUESTIONS.end();
    return question ? quote(name) + " takes no arguments and must be alone on its line"
                    : "unknown command " + quote(name) + " ('help' lists the commands)";
  }
  const auto value = words.size() == 2 ? parse_number(words.back(), number->largest) : std::nullopt;
  if (!value) {
    return quote(name) + " requires a number from 0 to " + std::to_string(number->largest) +
           ", decimal or hexadecimal with 0x";
  }
  number->set(settings.condition, *value);
  return std::nullopt;
}

std::string execute_control_line(const std::optional<std::string>& line, SimulatedPrinter& printer) {
  if (!line) {
    return "error: the line is longer than " + std::to_string(LONGEST_CONTROL_LINE) +
           " characters (send shorter lines)";
  }
  if (!std::ranges::all_of(*line, is_printable)) {
    return "error: the line contains a control or non-ASCII character (send plain text)";
  }
  const auto words = split_words(*line);
  if (words.size() == 1) {
    const auto* question = std::ranges::find(QUESTIONS, words.front(), &Question::name);
    if (question != QUESTIONS.end()) {
      return question->answer(printer);
    }
  }
  const auto error = apply_settings(*line, printer.settings);
  return error ? std::string("error: ").append(*error) : "ok";
}
