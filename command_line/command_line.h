// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// OptionValue takes the value of an option from the command line.
struct OptionValue {
  /// Stores the text. Returns what is wrong with it; empty if nothing is.
  std::function<std::string(const std::string&)> store;
  std::vector<std::string> choices;  ///< all values, for completions; empty: any text
};

/// A number in decimal, from first to last.
OptionValue number_from(std::int64_t first, std::int64_t last, std::function<void(std::int64_t)> store);
/// One of these words.
OptionValue one_of(std::vector<std::string> choices, std::string& target);
/// A text that `accept` returns true for; `expected` describes it.
OptionValue text_that(std::function<bool(const std::string&)> accept, std::string expected);
/// Any text but an empty one.
OptionValue text_in(std::string& target);

/// Option describes an option of a program.
struct Option {
  std::string name;              ///< without the two hyphens
  std::string placeholder = {};  ///< the name of its value in the help; empty: it takes none
  std::string help = {};
  OptionValue value = {};  ///< for an option without a value, store gets an empty text
  std::optional<std::string> implied =
      {};  ///< set: the value is optional, needs "=", and this is stored without it
  bool repeatable = false;
  std::string needs = {};                  ///< the name of an option that must be given too
  std::vector<std::string> excludes = {};  ///< the names of options that must not be given too
};

/// An option without a value, which sets `target`.
OptionValue flag(bool& target);

/// Program describes a program for its help.
struct Program {
  std::string name;
  std::string version;
  std::string summary;
  std::string arguments;  ///< what follows the options in the usage line, for example "[FILE]"
  std::string notes;      ///< stands below the options
  int usage_error;        ///< the exit status for a wrong command line
  int output_error;       ///< the exit status if standard output cannot be written
};

/// CommandLine reads the command line of a program. The help and the completions of shells come from the same
/// options.
class CommandLine {
 public:
  /// Adds the options help, version and completion after all others.
  CommandLine(Program program, std::vector<Option> options);

  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// Reads the command line by the rules of getopt_long(3), whose messages it leaves as they are. Words that
  /// are no options, and all after "--", are in arguments() then.
  ///
  /// @param most_arguments  how many arguments the program takes.
  /// @return the exit status if the program has nothing to do: 0 after --help, --version and --completion,
  /// otherwise
  ///         that of an error, which is written to standard error; nothing if the command line is good.
  [[nodiscard]] std::optional<int> read(int argc, char** argv, std::size_t most_arguments = SIZE_MAX);

  [[nodiscard]] const std::vector<std::string>& arguments() const { return arguments_; }
  [[nodiscard]] bool is_given(std::string_view option) const;
  /// Whether any option but this one is given.
  [[nodiscard]] bool is_given_besides(std::string_view option) const;

  /// Writes "PROGRAM: why", unless `why` is empty, and a hint at --help to standard error, and returns the
  /// exit status for a usage error.
  [[nodiscard]] int refuse(const std::string& why) const;

  [[nodiscard]] std::string help() const;
  [[nodiscard]] const Program& program() const { return program_; }
  [[nodiscard]] const std::vector<Option>& options() const { return options_; }

 private:
  [[nodiscard]] const Option* find(std::string_view name) const;
  std::string take(const Option& option, const char* value);
  [[nodiscard]] std::string contradiction() const;

  Program program_;
  std::vector<Option> options_;
  std::vector<std::string> given_;
  std::vector<std::string> arguments_;
  std::string shell_;
};

/// The completion script of a command line for bash, zsh or fish.
std::string completion_script(const CommandLine& line, const std::string& shell);
