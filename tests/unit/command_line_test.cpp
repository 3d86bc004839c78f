// SPDX-License-Identifier: Apache-2.0
#include "command_line/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Example is a command line with one option of each kind.
struct Example {
  bool quiet = false;
  std::int64_t rows = 0;
  std::string color;
  std::string json;
  std::vector<std::string> servers;
  CommandLine line{
      {.name = "example",
       .version = "1.2",
       .summary = "Shows things.",
       .arguments = "[QUEUE...]",
       .notes = "Exit status:\n  0  done\n",
       .usage_error = 64,
       .output_error = 74},
      {{.name = "quiet", .help = "Show nothing", .value = flag(quiet), .excludes = {"json"}},
       {.name = "rows",
        .placeholder = "N",
        .help =
            "How many rows, of which each is shown in one line as long as the text needs, whatever it holds",
        .value = number_from(1, 9, [this](auto number) { rows = number; }),
        .needs = "color"},
       {.name = "color",
        .placeholder = "WHEN",
        .help = "Use colours: 'it'",
        .value = one_of({"always", "never"}, color)},
       {.name = "json",
        .placeholder = "FILE",
        .help = "Write [JSON]",
        .value = text_in(json, "a file name"),
        .implied = "-"},
       {.name = "server",
        .placeholder = "HOST[:PORT]",
        .help = "A server",
        .value = text_that(
            [this](const std::string& text) {
              servers.push_back(text);
              return text != "x";
            },
            "HOST[:PORT]"),
        .repeatable = true}}};

  std::string output;
  std::string errors;

  std::optional<int> read(std::vector<std::string> words, std::size_t most_arguments = 9) {
    words.insert(words.begin(), "example");
    std::vector<char*> argv;
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto status = line.read(static_cast<int>(argv.size()), argv.data(), most_arguments);
    output = testing::internal::GetCapturedStdout();
    errors = testing::internal::GetCapturedStderr();
    return status;
  }
};

TEST(CommandLine, OptionsAndArgumentsAreRead) {
  Example example;
  EXPECT_EQ(example.read({"a", "--color", "never", "--rows=9", "--json", "b", "--server", "one",
                          "--server=two", "-", "--", "--quiet"}),
            std::nullopt);
  EXPECT_EQ(example.errors + example.output, "");
  EXPECT_THAT(example.line.arguments(), ElementsAre("a", "b", "-", "--quiet"));
  EXPECT_THAT(example.servers, ElementsAre("one", "two"));
  EXPECT_EQ(example.color, "never");
  EXPECT_EQ(example.rows, 9);
  EXPECT_EQ(example.json, "-");
  EXPECT_FALSE(example.quiet);
  EXPECT_TRUE(example.line.is_given("json"));
  EXPECT_FALSE(example.line.is_given("quiet"));
  EXPECT_TRUE(example.line.is_given_besides("json"));
}

TEST(CommandLine, AnOptionMayBeShortened) {
  Example example;
  EXPECT_EQ(example.read({"--col", "never"}), std::nullopt);
  EXPECT_EQ(example.color, "never");
}

TEST(CommandLine, AnOptionalValueNeedsAnEqualsSign) {
  Example example;
  EXPECT_EQ(example.read({"--json=file"}), std::nullopt);
  EXPECT_EQ(example.json, "file");
  EXPECT_FALSE(example.line.is_given_besides("json"));
}

TEST(CommandLine, AnErrorIsReportedWithTheProgramsExitStatus) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--colour"}, "unrecognized option '--colour'"},
      {{"-q"}, "invalid option -- 'q'"},
      {{"--quiet=yes"}, "option '--quiet' doesn't allow an argument"},
      {{"--quiet", "--json"}, "--quiet excludes --json"},
      {{"--rows", "1"}, "--rows requires --color"},
      {{"--rows"}, "option '--rows' requires an argument"},
      {{"--rows=", "1"}, "--rows: invalid value '' (expected 1-9)"},
      {{"--json="}, "--json: invalid value '' (expected a file name)"},
      {{"--rows", ""}, "--rows: invalid value '' (expected 1-9)"},
      {{"--rows", "0"}, "--rows: invalid value '0' (expected 1-9)"},
      {{"--rows", "10"}, "--rows: invalid value '10' (expected 1-9)"},
      {{"--rows", "1x"}, "--rows: invalid value '1x' (expected 1-9)"},
      {{"--rows", "+1"}, "--rows: invalid value '+1' (expected 1-9)"},
      {{"--color", "red"}, "--color: invalid value 'red' (expected always, never)"},
      {{"--color", "always", "--color", "never"}, "--color is given twice"},
      {{"--server", "x"}, "--server: invalid value 'x' (expected HOST[:PORT])"},
      {{"--completion", "sh"}, "--completion: invalid value 'sh' (expected bash, zsh, fish)"},
      {{"a", "b", "c"}, "unexpected argument 'c'"},
  };
  for (const auto& [words, message] : cases) {
    Example example;
    EXPECT_EQ(example.read(words, 2), 64) << message;
    EXPECT_EQ(example.errors, "example: " + message + "\nRun with --help for more information.\n");
    EXPECT_EQ(example.output, "");
  }
}

TEST(CommandLine, HelpDescribesEveryOptionInEightyColumns) {
  for (const char* word : {"--help", "-h"}) {
    Example example;
    EXPECT_EQ(example.read({word, "--nonsense"}), 0);
    EXPECT_EQ(example.output,
              "Usage: example [OPTION...] [QUEUE...]\n"
              "Shows things.\n"
              "\n"
              "Options:\n"
              "  --quiet               Show nothing\n"
              "  --rows N              How many rows, of which each is shown in one line as\n"
              "                        long as the text needs, whatever it holds\n"
              "  --color WHEN          Use colours: 'it'\n"
              "  --json[=FILE]         Write [JSON]\n"
              "  --server HOST[:PORT]  A server\n"
              "  --completion SHELL    Print the completion script of bash, zsh or fish\n"
              "  --help                Print this summary\n"
              "  --version             Print the version\n"
              "\n"
              "Exit status:\n"
              "  0  done\n");
  }
}

TEST(CommandLine, VersionNamesTheProgram) {
  Example example;
  EXPECT_EQ(example.read({"--version"}), 0);
  EXPECT_EQ(example.output, "example 1.2\n");
}

TEST(CommandLine, BashCompletesOptionsAndTheirValues) {
  Example example;
  EXPECT_EQ(example.read({"--completion", "bash"}), 0);
  for (const char* part :
       {"complete -F _example example\n",
        "compgen -W '--quiet --rows --color --json --server --completion --help --version'",
        "--rows | --rows=) return ;;",
        "--color | --color=) mapfile -t COMPREPLY < <(compgen -W 'always never' -- \"$word\"); return ;;",
        "    --json=) mapfile -t COMPREPLY < <(compgen -f -- \"$word\"); return ;;", "lpstat -e"}) {
    EXPECT_THAT(example.output, HasSubstr(part));
  }
  EXPECT_THAT(example.output, testing::Not(HasSubstr("--json)")));
}

TEST(CommandLine, BashNeverExpandsTheNameOfAQueue) {
  Example example;
  EXPECT_EQ(example.read({"--completion", "bash"}), 0);
  const std::string script =
      example.output +
      "lpstat() { printf '%s\\n' 'x$(echo${IFS}expanded>&2)' 'xy`echo${IFS}expanded>&2`' other; }\n" +
      "COMP_WORDS=(example x) COMP_CWORD=1\n_example\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
  const std::string path = testing::TempDir() + "brenvellis-completion." + std::to_string(getpid());
  std::ofstream(path) << script;
  FILE* bash = popen(("bash " + path + " 2>&1").c_str(), "r");
  ASSERT_NE(bash, nullptr);
  std::string seen;
  for (int byte = 0; (byte = fgetc(bash)) != EOF;) {
    seen += static_cast<char>(byte);
  }
  EXPECT_EQ(pclose(bash), 0);
  std::remove(path.c_str());
  EXPECT_EQ(seen, R"(x\$\(echo\$\{IFS\}expanded\>\&2\)
xy\`echo\$\{IFS\}expanded\>\&2\`
)");
}

TEST(CommandLine, ZshCompletesOptionsAndTheirValues) {
  Example example;
  EXPECT_EQ(example.read({"--completion", "zsh"}), 0);
  for (const char* part :
       {"#compdef example\n", "'--quiet[Show nothing]'", "'--json=-[Write \\[JSON\\]]::file:_files'",
        "'--color[Use colours\\: ’it’]:WHEN:(always never)'", "'*--server[A server]:HOST[\\:PORT]: '",
        "lpstat -e"}) {
    EXPECT_THAT(example.output, HasSubstr(part));
  }
}

TEST(CommandLine, FishCompletesOptionsAndTheirValues) {
  Example example;
  EXPECT_EQ(example.read({"--completion", "fish"}), 0);
  for (const char* part : {"complete -c example -l quiet -d 'Show nothing'\n",
                           "complete -c example -l color -d 'Use colours: ’it’' -x -a 'always never'\n",
                           "complete -c example -l rows -d 'How many", "' -x\n", "lpstat -e"}) {
    EXPECT_THAT(example.output, HasSubstr(part));
  }
}

}  // namespace
