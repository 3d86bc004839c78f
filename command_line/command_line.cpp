// SPDX-License-Identifier: Apache-2.0
#include "command_line/command_line.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <utility>

namespace {

constexpr std::size_t WIDTH = 80;
constexpr std::size_t HELP_COLUMN = 24;

std::string join(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

std::string invalid_value(const std::string& value, const std::string& expected) {
  return "invalid value '" + value + "' (expected " + expected + ")";
}

/// Appends a text to `out` in lines of at most WIDTH columns, indented by `column` blanks after the first.
void wrap(std::string& out, const std::string& text, std::size_t column) {
  std::size_t at = column;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (at != column) {
      if (at + 1 + word.size() > WIDTH) {
        out += "\n" + std::string(column, ' ');
        at = column;
      } else {
        out += " ";
        ++at;
      }
    }
    out += word;
    at += word.size();
  }
  out += "\n";
}

std::string usage_of(const Option& option) {
  std::string name = "--" + option.name;
  if (option.placeholder.empty()) {
    return name;
  }
  return option.implied ? name + "[=" + option.placeholder + "]" : name + " " + option.placeholder;
}

/// @return the exit status.
int print(const Program& program, const std::string& text) {
  if (fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0) {
    return 0;
  }
  fprintf(stderr, "%s: cannot write to standard output: %s\n", program.name.c_str(), std::strerror(errno));
  return program.output_error;
}

}  // namespace

OptionValue number_from(std::int64_t first, std::int64_t last,
                        const std::function<void(std::int64_t)>& store) {
  return {[=](const std::string& text) -> std::string {
            std::int64_t number = 0;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
            if (error != std::errc() || end != text.data() + text.size() || number < first || number > last) {
              return invalid_value(text, std::to_string(first) + "-" + std::to_string(last));
            }
            store(number);
            return {};
          },
          {}};
}

OptionValue one_of(const std::vector<std::string>& choices, std::string& target) {
  return {[choices, &target](const std::string& text) -> std::string {
            if (std::ranges::find(choices, text) == choices.end()) {
              return invalid_value(text, join(choices, ", "));
            }
            target = text;
            return {};
          },
          choices};
}

OptionValue text_that(std::function<bool(const std::string&)> accept, std::string expected) {
  return {[accept = std::move(accept), expected = std::move(expected)](const std::string& text) {
            return accept(text) ? std::string() : invalid_value(text, expected);
          },
          {}};
}

OptionValue text_in(std::string& target, std::string expected) {
  return text_that(
      [&target](const std::string& text) {
        target = text;
        return !text.empty();
      },
      std::move(expected));
}

OptionValue flag(bool& target) {
  return {[&target](const std::string&) {
            target = true;
            return std::string();
          },
          {}};
}

CommandLine::CommandLine(Program program, std::vector<Option> options)
    : program_(std::move(program)), options_(std::move(options)) {
  options_.push_back({.name = "completion",
                      .placeholder = "SHELL",
                      .help = "Print the completion script of bash, zsh or fish",
                      .value = one_of({"bash", "zsh", "fish"}, shell_)});
  const auto nothing = [](const std::string&) { return std::string(); };
  options_.push_back({.name = "help", .help = "Print this summary", .value = {nothing, {}}});
  options_.push_back({.name = "version", .help = "Print the version", .value = {nothing, {}}});
}

const Option* CommandLine::find(std::string_view name) const {
  const auto found = std::ranges::find(options_, name, &Option::name);
  return found == options_.end() ? nullptr : &*found;
}

bool CommandLine::is_given(std::string_view option) const {
  return std::ranges::find(given_, option) != given_.end();
}

bool CommandLine::is_given_besides(std::string_view option) const {
  return std::ranges::any_of(given_, [option](const std::string& name) { return name != option; });
}

std::string CommandLine::take(const Option& option, const char* value) {
  if (is_given(option.name) && !option.repeatable && !option.placeholder.empty()) {
    return "--" + option.name + " is given twice";
  }
  given_.push_back(option.name);
  const std::string why = option.value.store(value == nullptr ? option.implied.value_or("") : value);
  return why.empty() ? why : "--" + option.name + ": " + why;
}

std::string CommandLine::contradiction() const {
  for (const std::string& name : given_) {
    const Option& option = *find(name);
    if (!option.needs.empty() && !is_given(option.needs)) {
      return std::string("--").append(name).append(" requires --").append(option.needs);
    }
    for (const std::string& other : option.excludes) {
      if (is_given(other)) {
        return std::string("--").append(name).append(" excludes --").append(other);
      }
    }
  }
  return {};
}

std::optional<int> CommandLine::read(int argc, char** argv, std::size_t most_arguments) {
  std::vector<option> known;
  for (const Option& one : options_) {
    known.push_back({one.name.c_str(),
                     one.placeholder.empty() ? no_argument
                     : one.implied           ? optional_argument
                                             : required_argument,
                     nullptr, 0});
  }
  known.push_back({});
  // getopt_long starts its messages with argv[0]. An index of 0 makes it start anew.
  argv[0] = program_.name.data();
  optind = 0;
  int index = 0;
  for (int letter = 0; (letter = getopt_long(argc, argv, "h", known.data(), &index)) != -1;) {
    if (letter == '?') {
      return refuse({});
    }
    // The constructor adds "help" as the last but one.
    const Option& one =
        letter == 'h' ? options_.at(options_.size() - 2) : options_.at(static_cast<std::size_t>(index));
    if (const std::string why = take(one, optarg); !why.empty()) {
      return refuse(why);
    }
    if (one.name == "help") {
      return print(program_, help());
    }
    if (one.name == "version") {
      return print(program_, program_.name + " " + program_.version + "\n");
    }
  }
  arguments_.assign(argv + optind, argv + argc);
  if (!shell_.empty()) {
    return print(program_, completion_script(*this, shell_));
  }
  if (arguments_.size() > most_arguments) {
    return refuse("unexpected argument '" + arguments_[most_arguments] + "'");
  }
  if (const std::string why = contradiction(); !why.empty()) {
    return refuse(why);
  }
  return std::nullopt;
}

int CommandLine::refuse(const std::string& why) {
  // getopt_long() has already written its own.
  refusal_ = why.empty() ? "invalid command line" : why;
  if (!why.empty()) {
    fprintf(stderr, "%s: %s\n", program_.name.c_str(), why.c_str());
  }
  fputs("Run with --help for more information.\n", stderr);
  return program_.usage_error;
}

std::string CommandLine::help() const {
  std::string text = "Usage: " + program_.name + " [OPTION...]" + (program_.arguments.empty() ? "" : " ") +
                     program_.arguments + "\n";
  wrap(text, program_.summary, 0);
  text += "\nOptions:\n";
  for (const Option& option : options_) {
    std::string line = "  " + usage_of(option);
    // At least two blanks before the help.
    if (line.size() + 2 > HELP_COLUMN) {
      text += line + "\n";
      line.clear();
    }
    line.resize(HELP_COLUMN, ' ');
    text += line;
    wrap(text, option.help, HELP_COLUMN);
  }
  if (!program_.notes.empty()) {
    text += "\n" + program_.notes;
  }
  return text;
}
