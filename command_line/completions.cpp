// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <string_view>

#include "command_line/command_line.h"

namespace {

std::string join(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) {
    text += part;
  }
  return text;
}

/// Returns whether the value is a file name.
bool is_file(const Option& option) {
  constexpr std::array<std::string_view, 3> files = {"FILE", "PATH", "TEMPLATE"};
  return std::ranges::find(files, option.placeholder) != files.end();
}

/// Returns whether the program's arguments are queues; otherwise, they are files.
bool takes_queues(const CommandLine& line) {
  return line.program().arguments.find("QUEUE") != std::string::npos;
}

std::string words_of(const Option& option) {
  std::string words;
  for (const std::string& choice : option.value.choices) {
    words += (words.empty() ? "" : " ") + choice;
  }
  return words;
}

/// Quotes a text for single quotes.
std::string quoted(const std::string& text) {
  std::string result;
  for (const char character : text) {
    result += character == '\'' ? std::string("’") : std::string(1, character);
  }
  return result;
}

/// Quotes a text for single quotes and escapes characters that are special in zsh.
std::string escaped(const std::string& text, std::string_view special) {
  std::string result;
  for (const char character : quoted(text)) {
    if (special.find(character) != std::string_view::npos) {
      result += '\\';
    }
    result += character;
  }
  return result;
}

/// Completes queues. A queue's name may contain any character that the shell would expand, so it is only
/// compared and quoted.
constexpr const char* QUEUES_FOR_BASH =
    "local queue\n"
    "    COMPREPLY=()\n"
    "    while IFS= read -r queue; do\n"
    "      [[ $queue != \"$word\"* ]] || COMPREPLY+=(\"$(printf %q \"$queue\")\")\n"
    "    done < <(lpstat -e 2>/dev/null)";

std::string for_bash(const CommandLine& line) {
  const std::string& program = line.program().name;
  std::string function = "_" + program;
  std::ranges::replace(function, '-', '_');
  std::string names;
  std::string cases;
  const auto complete = [](auto... how) {
    return join({"mapfile -t COMPREPLY < <(compgen ", how..., " -- \"$word\")"});
  };
  for (const Option& option : line.options()) {
    names += (names.empty() ? "--" : " --") + option.name;
    if (option.placeholder.empty()) {
      continue;
    }
    cases += join({"    ", option.implied ? "" : "--" + option.name + " | ", "--", option.name, "=) "});
    if (!option.value.choices.empty()) {
      cases += complete("-W '", words_of(option), "'") + "; ";
    } else if (is_file(option)) {
      cases += complete("-f") + "; ";
    }
    cases += "return ;;\n";
  }
  return "# bash completion for " + program + "\n" + function +
         "() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]}\n"
         "  # The shell splits \"--option=value\" into three words.\n"
         "  if [[ $word == = ]]; then\n"
         "    word='' option+==\n"
         "  elif [[ $option == = && COMP_CWORD -ge 2 ]]; then\n"
         "    option=${COMP_WORDS[COMP_CWORD - 2]}=\n"
         "  fi\n"
         "  case $option in\n" +
         cases +
         "  esac\n"
         "  if [[ $word == -* ]]; then\n"
         "    " +
         complete("-W '", names, "'") +
         "\n"
         "  else\n"
         "    " +
         (takes_queues(line) ? QUEUES_FOR_BASH : complete("-f")) +
         "\n"
         "  fi\n"
         "}\n"
         "complete -F " +
         function + " " + program + "\n";
}

std::string for_zsh(const CommandLine& line) {
  std::string text = "#compdef " + line.program().name + "\n_arguments \\\n";
  for (const Option& option : line.options()) {
    text += join({"  '", option.repeatable ? "*" : "", "--", option.name, option.implied ? "=-" : "", "[",
                  escaped(option.help, ":[]"), "]"});
    if (option.implied) {
      text += "::file:_files";
    } else if (!option.value.choices.empty()) {
      text += join({":", option.placeholder, ":(", words_of(option), ")"});
    } else if (is_file(option)) {
      text += ":" + option.placeholder + ":_files";
    } else if (!option.placeholder.empty()) {
      text += join({":", escaped(option.placeholder, ":"), ": "});
    }
    text += "' \\\n";
  }
  return text + (takes_queues(line) ? "  '*:queue:($(lpstat -e 2>/dev/null))'\n" : "  '*:file:_files'\n");
}

std::string for_fish(const CommandLine& line) {
  const std::string command = "complete -c " + line.program().name;
  std::string text;
  if (takes_queues(line)) {
    text += command + " -f -a '(lpstat -e 2>/dev/null)' -d 'Queue'\n";
  }
  for (const Option& option : line.options()) {
    text += join({command, " -l ", option.name, " -d '", quoted(option.help), "'"});
    if (option.implied || option.placeholder.empty()) {
      text += "\n";
    } else if (!option.value.choices.empty()) {
      text += join({" -x -a '", words_of(option), "'\n"});
    } else {
      text += is_file(option) ? " -r -F\n" : " -x\n";
    }
  }
  return text;
}

}  // namespace

std::string completion_script(const CommandLine& line, const std::string& shell) {
  return shell == "bash" ? for_bash(line) : shell == "zsh" ? for_zsh(line) : for_fish(line);
}
