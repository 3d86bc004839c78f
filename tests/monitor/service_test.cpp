// SPDX-License-Identifier: Apache-2.0
// The unit brenvellis-monitor.service: what it starts, and what it may do.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::string text_of(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The values of a setting of the unit, in order.
std::vector<std::string> values_of(const std::string& setting) {
  std::vector<std::string> values;
  std::ifstream unit(SERVICE_UNIT);
  for (std::string line; std::getline(unit, line);) {
    if (line.starts_with(setting + "=")) {
      values.push_back(line.substr(setting.size() + 1));
    }
  }
  return values;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

/// Runs what the unit runs, with the built program: /bin/sh, its script and its arguments.
ProgramResult run_service(const std::string& server, const std::map<std::string, std::string>& settings,
                          const std::vector<std::string>& before = {}) {
  std::smatch parts;
  const auto start = values_of("ExecStart").at(0);
  if (!std::regex_match(start, parts, std::regex("(/bin/sh) -c '([^']*)' (brenvellis-monitor) \\$OPTIONS"))) {
    throw std::runtime_error("ExecStart is not what this test expects: " + start);
  }
  const auto script =
      replaced(replaced(parts[2].str(), "/usr/bin/brenvellis-monitor", MONITOR_PROGRAM), "$$", "$");
  auto arguments = before;
  arguments.insert(arguments.end(), {parts[1].str(), "-c", script, parts[3].str()});
  std::istringstream options(settings.at("OPTIONS"));
  for (std::string word; options >> word;) {
    arguments.push_back(word);
  }
  auto environment = monitor_environment(server);
  environment.insert(settings.begin(), settings.end());
  return run_program(arguments, {}, environment);
}

/// The names that "systemd-analyze syscall-filter" lists for a set, and for the sets in it.
std::set<std::string> calls_in(const std::string& set) {
  std::set<std::string> calls;
  const auto result = run_program({SYSTEMD_ANALYZE, "syscall-filter", set});
  EXPECT_EQ(result.exit_status, 0) << result.errors;
  std::istringstream words(std::regex_replace(result.output, std::regex("#.*"), ""));
  for (std::string word; words >> word;) {
    if (word != set && word.starts_with('@')) {
      calls.merge(calls_in(word));
    } else {
      calls.insert(word);
    }
  }
  return calls;
}

std::set<std::string> allowed_calls() {
  auto allowed = calls_in("@default");
  for (const auto& value : values_of("SystemCallFilter")) {
    const bool denied = value.starts_with('~');
    std::istringstream sets(denied ? value.substr(1) : value);
    for (std::string set; sets >> set;) {
      for (const auto& call : calls_in(set)) {
        denied ? static_cast<void>(allowed.erase(call)) : static_cast<void>(allowed.insert(call));
      }
    }
  }
  return allowed;
}

class Service : public testing::Test {
 protected:
  Service() { scheduler.add_queue("booth", printer.device_uri()); }

  [[nodiscard]] std::string file(const std::string& name) const { return (folder.path() / name).string(); }

  NetworkPrinter printer{{"--remaining", "12"}};
  PrivateScheduler scheduler{{.port = true}};  // with the default configuration
  TemporaryFolder folder;
};

TEST(ServiceUnit, IsRatedUnderTwo) {
  const auto result = run_program(
      {SYSTEMD_ANALYZE, "security", "--offline=true", "--threshold=19", "--no-pager", SERVICE_UNIT});
  EXPECT_EQ(result.exit_status, 0) << result.output << result.errors;
  EXPECT_THAT(result.output, HasSubstr("Overall exposure level for brenvellis-monitor.service: 1."));
}

TEST(ServiceUnit, IsAcceptedBySystemd) {
  const TemporaryFolder folder;
  const auto copy = folder.path() / "brenvellis-monitor.service";
  std::ofstream(copy) << replaced(text_of(SERVICE_UNIT), "/usr/bin/brenvellis-monitor", MONITOR_PROGRAM);
  const auto result = run_program({SYSTEMD_ANALYZE, "verify", "--man=no", copy.string()});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output + result.errors, "");
}

TEST(ServiceUnit, FailsForAnUnwrittenOutputButNotForAPrinter) {
  EXPECT_THAT(values_of("SuccessExitStatus"), testing::ElementsAre("1 2 3"));
}

TEST_F(Service, WritesMetricsAndPage) {
  const auto result = run_service(scheduler.server(),
                                  {{"METRICS", file("m.prom")}, {"PAGE", file("p.html")}, {"OPTIONS", ""}});
  EXPECT_EQ(result.exit_status, 1) << result.errors;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(text_of(file("m.prom")), HasSubstr("brenvellis_ribbon_prints_remaining"));
  EXPECT_THAT(text_of(file("p.html")), HasSubstr("<!DOCTYPE html>"));
}

TEST_F(Service, SkipsEmptyOutputsAndPassesTheOptions) {
  auto result = run_service(scheduler.server(),
                            {{"METRICS", ""}, {"PAGE", file("p q.html")}, {"OPTIONS", "--low 2% booth"}});
  EXPECT_EQ(result.exit_status, 0) << result.errors;
  EXPECT_TRUE(std::filesystem::exists(file("p q.html")));
  result = run_service(scheduler.server(), {{"METRICS", file("m.prom")}, {"PAGE", ""}, {"OPTIONS", ""}});
  EXPECT_EQ(result.exit_status, 1) << result.errors;
  EXPECT_TRUE(std::filesystem::exists(file("m.prom")));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
}

TEST_F(Service, FailsIfAnOutputCannotBeWritten) {
  const auto result =
      run_service(scheduler.server(), {{"METRICS", "/nonexistent/m"}, {"PAGE", file("p")}, {"OPTIONS", ""}});
  EXPECT_EQ(result.exit_status, 74);
  EXPECT_EQ(result.errors, "brenvellis-monitor: /nonexistent/m: No such file or directory\n");
  EXPECT_TRUE(std::filesystem::exists(file("p")));
}

TEST_F(Service, NeedsOnlyAllowedSystemCalls) {
  const auto trace = file("calls");
  const std::map<std::string, std::string> settings = {
      {"METRICS", file("m.prom")}, {"PAGE", file("p.html")}, {"OPTIONS", "--server " + scheduler.address()}};
  const std::vector<std::string> strace = {STRACE, "-f", "-q", "-o", trace};
  // Twice: the second time there are files to replace.
  std::set<std::string> made;
  for (int i = 0; i < 2; ++i) {
    const auto result = run_service(scheduler.server(), settings, strace);
    EXPECT_EQ(result.exit_status, 1) << result.errors;
    std::ifstream calls(trace);
    const std::regex call("[0-9]+ +(<... )?([a-z0-9_]+)( resumed>|\\().*");
    std::smatch parts;
    for (std::string line; std::getline(calls, line);) {
      if (std::regex_match(line, parts, call)) {
        made.insert(parts[2]);
      }
    }
  }
  EXPECT_TRUE(made.contains("renameat")) << made.size();
  EXPECT_TRUE(made.contains("connect")) << made.size();
  const auto allowed = allowed_calls();
  EXPECT_TRUE(allowed.contains("connect") && !allowed.contains("mount") && !allowed.contains("chown"));
  for (const auto& call : made) {
    EXPECT_TRUE(allowed.contains(call)) << call;
  }
}

}  // namespace
