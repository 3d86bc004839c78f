// SPDX-License-Identifier: Apache-2.0
// The command lines of the programs: options, help, usage errors and completions.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// OptionValue receives the value of an option.
struct OptionValue {
  /// Stores the text. Returns an error message; empty on success.
  std::function<std::string(const std::string&)> store;
  std::vector<std::string> choices;  ///< all values, for completions; empty for any text
};

/// Returns a value that is a decimal number from first to last.
OptionValue number_from(std::int64_t first, std::int64_t last,
                        const std::function<void(std::int64_t)>& store);
/// Returns a value that is one of these words.
OptionValue one_of(const std::vector<std::string>& choices, std::string& target);
/// Returns a value that is a text for which `accept` returns true; `expected` describes it.
OptionValue text_that(std::function<bool(const std::string&)> accept, std::string expected);
/// Returns a value that is any non-empty text; `expected` describes it.
OptionValue text_in(std::string& target, std::string expected);

/// Option describes an option of a program.
struct Option {
  std::string name;              ///< without the two hyphens
  std::string placeholder = {};  ///< the name of its value in the help; empty if it has no value
  std::string help = {};
  OptionValue value = {};  ///< for an option without a value, store receives an empty text
  std::optional<std::string> implied =
      {};  ///< if set, the value is optional and requires "="; this is the default
  bool repeatable = false;
  std::string needs = {};                  ///< an option that must also be given
  std::vector<std::string> excludes = {};  ///< options that must not be given
};

/// Returns the value of an option that has no value and sets `target`.
OptionValue flag(bool& target);

/// Program describes a program for its help.
struct Program {
  std::string name;
  std::string version;
  std::string summary;
  std::string arguments;  ///< the arguments in the usage line, for example "[FILE]"
  std::string notes;      ///< text below the options
  int usage_error;        ///< the exit status of a usage error
  int output_error;       ///< the exit status if standard output cannot be written
};

/// CommandLine parses the command line of a program, and generates the help and the completions for shells.
class CommandLine {
 public:
  /// Adds the options help, version and completion after all others.
  CommandLine(Program program, std::vector<Option> options);

  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// Parses the command line with getopt_long(3), which also prints its own messages. Other words, and all
  /// words after "--", become arguments().
  ///
  /// @param most_arguments  the maximum number of arguments.
  /// @return the exit status if the program should exit: 0 after --help, --version and --completion, or that
  ///         of an error. Nothing if the command line is valid.
  [[nodiscard]] std::optional<int> read(int argc, char** argv, std::size_t most_arguments = SIZE_MAX);

  [[nodiscard]] const std::vector<std::string>& arguments() const { return arguments_; }
  [[nodiscard]] bool is_given(std::string_view option) const;
  /// Returns whether any option except this one is given.
  [[nodiscard]] bool is_given_besides(std::string_view option) const;

  /// Writes "PROGRAM: why" (unless `why` is empty) and a hint at --help to standard error. Returns the exit
  /// status of a usage error.
  [[nodiscard]] int refuse(const std::string& why);
  /// Returns the last error in short.
  [[nodiscard]] const std::string& refusal() const { return refusal_; }

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
  std::string refusal_;
};

/// Returns the completion script for bash, zsh or fish.
std::string completion_script(const CommandLine& line, const std::string& shell);
