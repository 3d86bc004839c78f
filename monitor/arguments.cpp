// SPDX-License-Identifier: Apache-2.0
#include "monitor/arguments.h"

#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include "command_line/command_line.h"
#include "monitor/views/plugin_view.h"

namespace {

constexpr std::int64_t DAY = 86400;

OptionValue seconds_in(std::chrono::seconds& target, std::int64_t first = 1) {
  return number_from(first, DAY, [&target](auto number) { target = std::chrono::seconds(number); });
}

OptionValue limit_in(Limit& target) {
  return text_that(
      [&target](const std::string& text) {
        const auto limit = parse_limit(text);
        target = limit.value_or(target);
        return limit.has_value();
      },
      "prints, or percent with a %");
}

/// An output of a view, "-" if it has no file.
Option output_option(const char* name, View view, const char* help, std::vector<Output>& outputs) {
  const auto store = [view, &outputs](const std::string& path) {
    outputs.push_back({view, path});
    return !path.empty();
  };
  return {.name = name,
          .placeholder = "FILE",
          .help = help,
          .value = text_that(store, "a file name"),
          .implied = STANDARD_OUTPUT,
          .repeatable = true};
}

std::string or_default(const char* help, const std::string& usual) {
  return std::string(help) + " (default " + usual + ")";
}

std::string or_default(const char* help, std::chrono::seconds usual) {
  return or_default(help, std::to_string(usual.count()));
}

/// The file that a path means, whether or not it exists.
std::filesystem::path file_of(const std::string& path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(path, error);
  const auto file = std::filesystem::weakly_canonical(absolute, error);
  return error ? absolute.lexically_normal() : file;
}

/// @return what is wrong with the outputs; empty if nothing is.
std::string wrong_outputs(const std::vector<Output>& outputs) {
  if (std::ranges::count(outputs, STANDARD_OUTPUT, &Output::path) > 1) {
    return "only one of --json, --prometheus, --html, --plugin and --ready can go to standard output";
  }
  std::set<std::filesystem::path> files;
  for (const auto& one : outputs) {
    if (one.path != STANDARD_OUTPUT && !files.insert(file_of(one.path)).second) {
      return "two outputs cannot go to the same file \"" + one.path + "\"";
    }
  }
  return {};
}

}  // namespace

bool has_view(const Arguments& arguments, View view) {
  return std::ranges::find(arguments.outputs, view, &Output::view) != arguments.outputs.end();
}

std::variant<Arguments, int> read_arguments(int argc, char** argv) {
  Arguments arguments;
  WatchRules& rules = arguments.rules;
  std::chrono::seconds max_age{};
  std::string encryption = "if-requested";
  bool no_refresh = false;
  bool plugin = false;
  bool ready = false;
  arguments.color = "auto";

  const auto add_server = [&arguments](const std::string& text) {
    const auto name = parse_server(text);
    if (name && std::ranges::find(arguments.servers, *name, &NamedServer::name) == arguments.servers.end()) {
      arguments.servers.push_back({text, *name});
    }
    return name.has_value();
  };
  CommandLine line(
      {.name = "brenvellis-monitor",
       .version = BRENVELLIS_VERSION,
       .summary = "Shows the ribbon levels and errors of Brenvellis photo printers. Without a QUEUE, shows "
                  "all Brenvellis queues.",
       .arguments = "[QUEUE...]",
       .notes = "Exit status:\n"
                "  0    no problems; with --ready: each QUEUE can print now\n"
                "  1    a ribbon is low; with --ready: a QUEUE cannot print\n"
                "  2    a printer reports an error\n"
                "  3    unknown (2 takes precedence over 3, and 3 over 1)\n"
                "  64   usage error; with --plugin: 3\n"
                "  74   an output could not be written; with --plugin: 3\n"
                "  130  terminated by Ctrl-C\n"
                "  143  terminated by SIGTERM\n"
                "See brenvellis-monitor(1).\n",
       .usage_error = WRONG_USAGE,
       .output_error = EX_IOERR},
      {{.name = "server",
        .placeholder = "HOST[:PORT]",
        .help = "Print server or socket path; may be repeated",
        .value = text_that(add_server, "HOST, HOST:PORT or the absolute path of a socket"),
        .repeatable = true},
       {.name = "encryption",
        .placeholder = "WHEN",
        .help = "Use encryption always, if-requested, never or required (default if-requested)",
        .value = one_of({"always", "if-requested", "never", "required"}, encryption)},
       {.name = "no-refresh",
        .help = "Show the scheduler's values without querying the printers",
        .value = flag(no_refresh)},
       {.name = "timeout",
        .placeholder = "SECONDS",
        .help = or_default("Remove command jobs that have not ended after SECONDS", rules.timeout),
        .value = seconds_in(rules.timeout)},
       {.name = "wait",
        .help = "Wait for queues that are printing, paused or rejecting jobs",
        .value = flag(rules.wait),
        .excludes = {"no-refresh"}},
       {.name = "watch",
        .placeholder = "SECONDS",
        .help = "Run until Ctrl-C; query a printer again after SECONDS at the earliest",
        .value = seconds_in(rules.shortest)},
       {.name = "idle",
        .placeholder = "SECONDS",
        .help = or_default("With --watch: query a printer again after SECONDS at the latest", rules.longest),
        .value = seconds_in(rules.longest),
        .needs = "watch"},
       {.name = "on-change",
        .placeholder = "COMMAND",
        .help = "With --watch: run COMMAND when the condition of a queue has changed",
        .value = text_in(arguments.on_change, "a command"),
        .needs = "watch"},
       {.name = "on-change-at-start",
        .help = "Also run COMMAND for the first condition of each queue",
        .value = flag(arguments.on_change_at_start),
        .needs = "on-change"},
       {.name = "max-age",
        .placeholder = "SECONDS",
        .help = "Do not query printers whose values are not older",
        .value = seconds_in(max_age, 0),
        .excludes = {"no-refresh"}},
       {.name = "stuck",
        .placeholder = "SECONDS",
        .help = or_default("Report a print without a new sheet for SECONDS as an error", rules.stuck),
        .value = seconds_in(rules.stuck)},
       {.name = "low",
        .placeholder = "N[%]",
        .help = or_default("Report a ribbon with N prints or percent left, or fewer, as low",
                           to_text(rules.limits.low)),
        .value = limit_in(rules.limits.low)},
       {.name = "critical",
        .placeholder = "N[%]",
        .help = or_default("Report a ribbon with N prints or percent left, or fewer, as an error",
                           to_text(rules.limits.critical)),
        .value = limit_in(rules.limits.critical)},
       {.name = "color",
        .placeholder = "WHEN",
        .help = "Use colors always, auto or never (default auto)",
        .value = one_of({"always", "auto", "never"}, arguments.color)},
       {.name = "plugin",
        .help = "Write the line of a monitoring plug-in",
        .value = flag(plugin),
        .excludes = {"watch"}},
       {.name = "ready",
        .help = "Exit with 0 if each QUEUE can print now, otherwise print why not and exit with 1",
        .value = flag(ready),
        .excludes = {"watch"}},
       output_option("json", View::Json, "Write JSON to standard output, or to FILE", arguments.outputs),
       output_option("prometheus", View::Prometheus, "Write metrics to standard output, or to FILE",
                     arguments.outputs),
       output_option("html", View::Html, "Write a web page to standard output, or to FILE",
                     arguments.outputs),
       {.name = "page-interval",
        .placeholder = "SECONDS",
        .help = or_default("Without --watch: the interval of the timer that writes the page",
                           std::to_string(arguments.page_interval)),
        .value =
            number_from(1, DAY, [&](auto number) { arguments.page_interval = static_cast<int>(number); }),
        .needs = "html",
        .excludes = {"watch"}}});

  // A monitoring system shows the line of standard output, and knows only the exit statuses of plug-ins.
  const auto refuse = [&](int status, const std::string& why) {
    if (status == WRONG_USAGE &&
        std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--plugin"; })) {
      printf("%s%s\n", plugin_heading(Verdict::Unknown).c_str(), why.c_str());
      return static_cast<int>(Verdict::Unknown);
    }
    return status;
  };
  if (const auto status = line.read(argc, argv)) {
    return refuse(*status, line.refusal());
  }
  arguments.queues = line.arguments();
  for (const auto& [is_wanted, view] : {std::pair(plugin, View::Plugin), {ready, View::Ready}}) {
    if (is_wanted) {
      arguments.outputs.push_back({view, STANDARD_OUTPUT});
    }
  }
  if (arguments.outputs.empty()) {
    arguments.outputs.push_back({View::Text, STANDARD_OUTPUT});
  }
  const bool has_nameless = std::ranges::find(arguments.queues, std::string()) != arguments.queues.end();
  const std::string why = ready && arguments.queues.empty() ? "--ready: missing QUEUE"
                          : has_nameless ? "invalid QUEUE '' (expected the name of a queue)"
                                         : wrong_outputs(arguments.outputs);
  if (!why.empty()) {
    return refuse(line.refuse(why), why);
  }

  if (arguments.servers.empty()) {
    const std::string own = cupsServer();
    arguments.servers.push_back({own.starts_with('/') ? "localhost" : own, {own, ippPort()}});
  }
  arguments.encryption = encryption == "always"     ? HTTP_ENCRYPTION_ALWAYS
                         : encryption == "never"    ? HTTP_ENCRYPTION_NEVER
                         : encryption == "required" ? HTTP_ENCRYPTION_REQUIRED
                                                    : HTTP_ENCRYPTION_IF_REQUESTED;
  rules.ask = !no_refresh;
  rules.again = line.is_given("watch");
  rules.longest = std::max(rules.shortest, rules.longest);
  if (line.is_given("max-age")) {
    rules.max_age = max_age;
  }
  return arguments;
}
