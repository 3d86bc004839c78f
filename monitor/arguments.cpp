// SPDX-License-Identifier: Apache-2.0
#include "monitor/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <set>
#include <string_view>
#include <utility>

#include "monitor/views/plugin_view.h"

bool has_view(const Arguments& arguments, View view) {
  return std::ranges::find(arguments.outputs, view, &Output::view) != arguments.outputs.end();
}

std::variant<Arguments, int> read_arguments(int argc, char** argv) {
  CLI::App app("Shows the ribbon levels and errors of Brenvellis photo printers.", "brenvellis-monitor");
  // Newer releases of CLI11 wrap lines of 80 columns and more.
  app.footer(
      "Exit status: 0 no problems; 1 a ribbon is low; 2 a printer reports an error;\n"
      "3 unknown (2 takes precedence over 3, and 3 over 1); with --ready 0 or 1;\n"
      "64 usage error; 74 an output could not be written;\n"
      "130, 143 terminated by Ctrl-C or SIGTERM.\n"
      "See brenvellis-monitor(1).");
  app.set_version_flag("--version", "brenvellis-monitor " BRENVELLIS_VERSION);

  Arguments arguments;
  std::vector<std::string> servers;
  bool no_refresh = false;
  const WatchRules usual;
  auto timeout = static_cast<int>(usual.timeout.count());
  auto watch = static_cast<int>(usual.shortest.count());
  auto idle = static_cast<int>(usual.longest.count());
  auto stuck = static_cast<int>(usual.stuck.count());
  int max_age = 0;
  std::string low = to_text(usual.limits.low);
  std::string critical = to_text(usual.limits.critical);
  std::string encryption = "if-requested";
  bool plugin = false;
  bool ready = false;
  std::vector<std::string> json;
  std::vector<std::string> prometheus;
  std::vector<std::string> html;
  arguments.color = "auto";

  const auto is_limit = [](const std::string& text) {
    return parse_limit(text) ? std::string()
                             : "invalid limit \"" + text + "\" (expected prints, or percent with a %)";
  };

  app.add_option("QUEUE", arguments.queues, "Queues (default: all Brenvellis queues)");
  app.add_option("--server", servers, "Print server or socket path; may be repeated")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false);
  app.add_option("--encryption", encryption, "Use encryption always, if-requested, never or required")
      ->check(CLI::IsMember({"always", "if-requested", "never", "required"}))
      ->type_name("WHEN");
  auto* no_refresh_flag =
      app.add_flag("--no-refresh", no_refresh, "Show the scheduler's values without querying the printers");
  app.add_option("--timeout", timeout, "Remove command jobs that have not ended after SECONDS")
      ->check(CLI::Range(1, 86400))
      ->type_name("SECONDS")
      ->capture_default_str();
  app.add_flag("--wait", arguments.rules.wait, "Wait for queues that are printing, paused or rejecting jobs")
      ->excludes(no_refresh_flag);
  constexpr int day = 86400;
  auto* watch_option = app.add_option("--watch", watch,
                                      "Run until Ctrl-C; query a printer again after SECONDS at the earliest")
                           ->check(CLI::Range(1, day))
                           ->type_name("SECONDS");
  app.add_option("--idle", idle, "With --watch: query a printer again after SECONDS at the latest")
      ->check(CLI::Range(1, day))
      ->type_name("SECONDS")
      ->needs(watch_option)
      ->capture_default_str();
  auto* on_change_option =
      app.add_option("--on-change", arguments.on_change,
                     "With --watch: run COMMAND when the condition of a queue has changed")
          ->type_name("COMMAND")
          ->needs(watch_option);
  app.add_flag("--on-change-at-start", arguments.on_change_at_start,
               "Also run COMMAND for the first condition of each queue")
      ->needs(on_change_option);
  auto* max_age_option =
      app.add_option("--max-age", max_age, "Do not query printers whose values are not older")
          ->check(CLI::Range(0, day))
          ->type_name("SECONDS")
          ->excludes(no_refresh_flag);
  app.add_option("--stuck", stuck, "Report a print without a new sheet for SECONDS as an error")
      ->check(CLI::Range(1, day))
      ->type_name("SECONDS")
      ->capture_default_str();
  app.add_option("--low", low, "Report a ribbon with N prints or percent left, or fewer, as low")
      ->check(is_limit)
      ->type_name("N[%]")
      ->capture_default_str();
  app.add_option("--critical", critical,
                 "Report a ribbon with N prints or percent left, or fewer, as an error")
      ->check(is_limit)
      ->type_name("N[%]")
      ->capture_default_str();
  app.add_option("--color", arguments.color, "Use colors always, auto or never")
      ->check(CLI::IsMember({"always", "auto", "never"}))
      ->type_name("WHEN");
  app.add_flag("--plugin", plugin, "Write the line of a monitoring plug-in")->excludes(watch_option);
  app.add_flag("--ready", ready,
               "Exit with 0 if each QUEUE can print now, otherwise print why not and exit with 1")
      ->excludes(watch_option);
  app.add_flag("--json{-}", json, "Write JSON, to FILE with --json=FILE");
  app.add_flag("--prometheus{-}", prometheus, "Write metrics, to FILE with --prometheus=FILE");
  app.add_flag("--html{-}", html, "Write a web page, to FILE with --html=FILE");

  app.add_option("--page-interval", arguments.page_interval,
                 "Without --watch: the interval of the timer that writes the page")
      ->check(CLI::Range(1, day))
      ->type_name("SECONDS")
      ->excludes(watch_option)
      ->capture_default_str();

  // A monitoring system shows the line of standard output, and knows the statuses of plug-ins only.
  const bool is_plugin =
      std::any_of(argv, argv + argc, [](const char* word) { return std::string_view(word) == "--plugin"; });
  const auto refuse = [&](const std::string& why) {
    if (is_plugin) {
      printf("%s%s\n", plugin_heading(Verdict::Unknown).c_str(), why.c_str());
    }
    fprintf(stderr, "brenvellis-monitor: %s\nRun with --help for more information.\n", why.c_str());
    return is_plugin ? static_cast<int>(Verdict::Unknown) : WRONG_USAGE;
  };
  // An option without its value would take the next word for it.
  for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
    const std::string_view word = argv[i];
    for (const std::string_view option : {"--json", "--prometheus", "--html"}) {
      if (word.starts_with(option) && word.substr(option.size()) == "=") {
        return refuse(std::string(option) + "=: missing file name");
      }
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      return app.exit(error);
    }
    return refuse(error.what());
  }

  if (on_change_option->count() > 0 && arguments.on_change.empty()) {
    return refuse("--on-change: missing command");
  }
  if (ready && arguments.queues.empty()) {
    return refuse("--ready: missing QUEUE");
  }
  for (const auto& [paths, view] :
       {std::pair(json, View::Json), {prometheus, View::Prometheus}, {html, View::Html}}) {
    for (const auto& path : paths) {
      arguments.outputs.push_back({view, path});
    }
  }
  for (const auto& [is_wanted, view] : {std::pair(plugin, View::Plugin), {ready, View::Ready}}) {
    if (is_wanted) {
      arguments.outputs.push_back({view, STANDARD_OUTPUT});
    }
  }
  if (arguments.outputs.empty()) {
    arguments.outputs.push_back({View::Text, STANDARD_OUTPUT});
  }
  const auto to_standard_output = [](const Output& one) { return one.path == STANDARD_OUTPUT; };
  const auto unnamed = std::ranges::count_if(arguments.outputs, to_standard_output);
  if (unnamed > 1) {
    return refuse("only one of --json, --prometheus, --html, --plugin and --ready can go to standard output");
  }

  std::set<std::string> files;
  for (const auto& one : arguments.outputs) {
    if (!files.insert(one.path).second) {
      return refuse("two outputs cannot go to the same file \"" + one.path + "\"");
    }
  }

  for (const auto& text : servers) {
    const auto name = parse_server(text);
    if (!name) {
      return refuse("invalid server \"" + text + "\" (expected HOST[:PORT] or a socket path)");
    }
    arguments.servers.push_back({text, *name});
  }
  if (servers.empty()) {
    const std::string own = cupsServer();
    arguments.servers.push_back({own.starts_with('/') ? "localhost" : own, {own, ippPort()}});
  }
  arguments.encryption = encryption == "always"     ? HTTP_ENCRYPTION_ALWAYS
                         : encryption == "never"    ? HTTP_ENCRYPTION_NEVER
                         : encryption == "required" ? HTTP_ENCRYPTION_REQUIRED
                                                    : HTTP_ENCRYPTION_IF_REQUESTED;
  auto& rules = arguments.rules;
  rules.ask = !no_refresh;
  rules.again = watch_option->count() > 0;
  rules.timeout = std::chrono::seconds(timeout);
  rules.shortest = std::chrono::seconds(watch);
  rules.longest = std::chrono::seconds(std::max(watch, idle));
  rules.limits = {parse_limit(low).value_or(usual.limits.low),
                  parse_limit(critical).value_or(usual.limits.critical)};
  rules.stuck = std::chrono::seconds(stuck);
  if (max_age_option->count() > 0) {
    rules.max_age = std::chrono::seconds(max_age);
  }
  return arguments;
}
