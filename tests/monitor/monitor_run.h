// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/cups.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/json_schema.h"
#include "tests/support/private_scheduler.h"

/// The arguments and environment of a monitor that has `server` as its print server and UTF-8.
inline std::map<std::string, std::string> monitor_environment(const std::string& server) {
  return {{"CUPS_SERVER", server}, {"LC_ALL", "C.UTF-8"}, {"TZ", "UTC"}, {"TERM", "xterm"}, {"NO_COLOR", ""}};
}

inline ProgramResult run_monitor(const std::string& server, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), MONITOR_PROGRAM);
  return run_program(arguments, {}, monitor_environment(server));
}

/// The text view without its first line, which has the time.
inline std::string without_summary(const std::string& text) {
  return text.substr(text.find('\n') + 1);
}

/// A monitor that runs beside the test, silently.
inline std::unique_ptr<ChildProcess> start_monitor(const std::string& server,
                                                   std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), MONITOR_PROGRAM);
  return std::make_unique<ChildProcess>(ChildProcess::Options{arguments, {}, monitor_environment(server)});
}

/// The output of --json, and the exit status.
struct JsonRun {
  int exit_status;
  nlohmann::json object;

  [[nodiscard]] const nlohmann::json& queue(const std::string& name) const {
    static const nlohmann::json none;
    for (const auto& server : object["servers"]) {
      for (const auto& queue : server["queues"]) {
        if (queue["queue"] == name) {
          return queue;
        }
      }
    }
    return none;
  }
  [[nodiscard]] std::string outcome(const std::string& name) const {
    return queue(name).is_null() ? "missing" : queue(name)["refresh"]["outcome"].get<std::string>();
  }
};

inline JsonRun run_json(const std::string& server, std::vector<std::string> arguments = {}) {
  arguments.push_back("--json");
  const auto result = run_monitor(server, std::move(arguments));
  EXPECT_EQ(schema_error(result.output), "");
  return {result.exit_status, nlohmann::json::parse(result.output)};
}

/// The JSON that a monitor wrote to the file last, checked by the schema; discarded if the file does not
/// exist yet.
[[nodiscard]] nlohmann::json read_json(const std::filesystem::path& file);

/// The jobs that have not ended, of all queues.
std::vector<int> active_jobs(const PrivateScheduler& scheduler);

/// All jobs, the history too.
std::vector<int> all_jobs(const PrivateScheduler& scheduler);

/// Waits until the condition holds; false if it does not within the limit.
bool wait_until(const std::function<bool()>& condition,
                std::chrono::seconds limit = std::chrono::seconds(120));

/// Waits until so many jobs are active; false if that does not happen within a minute.
bool wait_for_active_jobs(const PrivateScheduler& scheduler, std::size_t count);

/// Waits until the job is being processed; false if that does not happen within a minute.
bool wait_for_processing(const PrivateScheduler& scheduler, int job);
