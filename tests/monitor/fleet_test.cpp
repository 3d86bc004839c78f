// SPDX-License-Identifier: Apache-2.0
// The view of an administrator of many printers: metrics, alerts and the dashboard, with a real Prometheus,
// node exporter and Alertmanager.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/free_port.h"
#include "tests/support/network_printer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

std::string text_of(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string local_address() {
  return "127.0.0.1:" + std::to_string(free_port());
}

TEST(Metrics, AreValid) {
  const NetworkPrinter printer({"--code", "0x2660"});
  const PrivateScheduler scheduler;
  scheduler.add_queue("booth", printer.device_uri());
  const auto metrics = run_monitor(scheduler.server(), {"--prometheus"}).output;
  ASSERT_THAT(metrics, HasSubstr("brenvellis_printer_error"));
  const auto check = run_program({PROMTOOL_PROGRAM, "check", "metrics"}, metrics);
  EXPECT_EQ(check.exit_status, 0);
  EXPECT_EQ(check.output + check.errors, "");
}

TEST(AlertRules, AreValid) {
  const auto result = run_program({PROMTOOL_PROGRAM, "check", "rules", FLEET_FOLDER "/alerts.yml"});
  EXPECT_EQ(result.exit_status, 0) << result.output << result.errors;
}

TEST(AlertRules, FireAsTheirTestsExpect) {
  const auto result = run_program({PROMTOOL_PROGRAM, "test", "rules", FLEET_FOLDER "/alerts_test.yml"});
  EXPECT_EQ(result.exit_status, 0) << result.output << result.errors;
}

/// A node exporter, a Prometheus with the alert rules, an Alertmanager and a receiver of its notifications.
/// The rules' waiting times ("for" and the interval of a group) are 1 s; their expressions are as shipped.
class Monitoring {
 public:
  Monitoring() {
    std::filesystem::create_directory(folder_.path() / "textfiles");
    std::filesystem::create_symlink(metrics(), folder_.path() / "textfiles/brenvellis.prom");
    exporter_ = start({NODE_EXPORTER_PROGRAM, "--collector.disable-defaults", "--collector.textfile",
                       "--collector.textfile.directory=" + (folder_.path() / "textfiles").string(),
                       "--web.listen-address=" + exporter_address_, "--log.level=error"});

    const auto receiver_port = std::to_string(free_port());
    receiver_ = start({PYTHON_PROGRAM, WEBHOOK_RECEIVER, receiver_port, notifications().string()});
    const auto alertmanager_file = folder_.path() / "alertmanager.yml";
    std::ofstream(alertmanager_file) << "route: {receiver: test, group_by: ['...'], group_wait: 0s, "
                                        "group_interval: 1s, repeat_interval: 1h}\n"
                                     << "receivers: [{name: test, webhook_configs: [{url: 'http://127.0.0.1:"
                                     << receiver_port << "/'}]}]\n";
    alertmanager_ = start({ALERTMANAGER_PROGRAM, "--config.file=" + alertmanager_file.string(),
                           "--storage.path=" + (folder_.path() / "alertmanager").string(),
                           "--web.listen-address=" + alertmanager_address_,
                           "--cluster.listen-address=", "--log.level=error"});

    const std::regex waiting_time("(for|interval): [0-9]+m\n");
    std::ofstream(folder_.path() / "alerts.yml")
        << std::regex_replace(text_of(FLEET_FOLDER "/alerts.yml"), waiting_time, "$1: 1s\n");
    const auto configuration = folder_.path() / "prometheus.yml";
    std::ofstream(configuration) << "global: {scrape_interval: 1s, evaluation_interval: 1s}\n"
                                 << "rule_files: ['alerts.yml']\n"
                                 << "alerting: {alertmanagers: [{static_configs: [{targets: ['"
                                 << alertmanager_address_ << "']}]}]}\n"
                                 << "scrape_configs: [{job_name: node, static_configs: [{targets: ['"
                                 << exporter_address_ << "']}]}]\n";
    prometheus_ = start({PROMETHEUS_PROGRAM, "--config.file=" + configuration.string(),
                         "--storage.tsdb.path=" + (folder_.path() / "data").string(),
                         "--web.listen-address=" + address_, "--log.level=error"});
  }

  /// The file that the node exporter shows.
  [[nodiscard]] std::filesystem::path metrics() const { return folder_.path() / "brenvellis.prom"; }

  /// Whether a query has a result.
  [[nodiscard]] bool has_data(const std::string& query) const {
    const auto result = run_program({PROMTOOL_PROGRAM, "query", "instant", "http://" + address_, query});
    return result.exit_status == 0 && result.output.find("=>") != std::string::npos;
  }

  /// Every alert that was notified so far, oldest first.
  [[nodiscard]] std::vector<nlohmann::json> notified() const {
    std::vector<nlohmann::json> alerts;
    std::ifstream file(notifications());
    for (std::string line; std::getline(file, line) && !file.eof();) {
      alerts.push_back(nlohmann::json::parse(line));
    }
    return alerts;
  }

  /// The names and queues (or servers) of the alerts whose last notification has this status.
  [[nodiscard]] std::set<std::string> alerts(const std::string& status) const {
    std::map<std::string, std::string> last;
    for (const auto& alert : notified()) {
      const auto& labels = alert["labels"];
      const auto server = labels.value("server", "");
      last[labels["alertname"].get<std::string>() + " " + labels.value("queue", server)] = alert["status"];
    }
    std::set<std::string> names;
    for (const auto& [name, its_status] : last) {
      if (its_status == status) {
        names.insert(name);
      }
    }
    return names;
  }

 private:
  static std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments) {
    return std::make_unique<ChildProcess>(ChildProcess::Options{arguments, {}, {}});
  }
  [[nodiscard]] std::filesystem::path notifications() const { return folder_.path() / "notifications"; }

  TemporaryFolder folder_;
  const std::string exporter_address_ = local_address();
  const std::string alertmanager_address_ = local_address();
  const std::string address_ = local_address();
  std::unique_ptr<ChildProcess> exporter_;
  std::unique_ptr<ChildProcess> receiver_;
  std::unique_ptr<ChildProcess> alertmanager_;
  std::unique_ptr<ChildProcess> prometheus_;
};

/// The dashboard's queries for all servers and queues, with what its variables list.
std::vector<std::string> dashboard_queries() {
  const auto dashboard = nlohmann::json::parse(text_of(FLEET_FOLDER "/grafana-dashboard.json"));
  std::vector<std::string> queries;
  for (const auto& panel : dashboard["panels"]) {
    for (const auto& target : panel["targets"]) {
      queries.push_back(target["expr"]);
    }
  }
  const std::regex values(R"(label_values\((.*), (\w+)\))");
  for (const auto& variable : dashboard["templating"]["list"]) {
    if (std::smatch parts; variable["query"].is_object()) {
      const auto query = variable["query"]["query"].get<std::string>();
      EXPECT_TRUE(std::regex_match(query, parts, values)) << query;
      queries.push_back("count by (" + parts[2].str() + ") (" + parts[1].str() + ")");
    }
  }
  for (auto& query : queries) {
    query = std::regex_replace(query, std::regex(R"(\$(server|queue))"), ".*");
    // It would be an answer without data.
    query = std::regex_replace(query, std::regex(R"( or vector\(0\))"), "");
    EXPECT_THAT(query, Not(HasSubstr("$")));
  }
  return queries;
}

/// A backend that fails, or reports a jam, as long as a file says so, and is the socket backend otherwise.
void write_faulty_backend(const std::filesystem::path& program, const std::filesystem::path& faults) {
  std::ofstream(program)
      << "#!/bin/sh\n"
         "[ $# = 0 ] && exit 0\n"
         "case $PRINTER in\n"
         "down) [ ! -e '"
      << faults.string()
      << "' ] || exit 4 ;;\n"
         "jam) [ -e '"
      << faults.string()
      << "' ] && sign=+ || sign=-\n"
         "  echo \"STATE: ${sign}media-jam-error\" >&2 ;;\n"
         "esac\n"
         "DEVICE_URI=socket${DEVICE_URI#faulty} exec \"$CUPS_SERVERBIN/backend/socket\" \"$@\"\n";
  std::filesystem::permissions(program, std::filesystem::perms(0755));
}

/// Moves the time at which the metrics were written back.
void make_older(const std::filesystem::path& metrics, int age) {
  std::istringstream old(text_of(metrics));
  std::ostringstream aged;
  for (std::string line; std::getline(old, line);) {
    if (line.starts_with("brenvellis_written_timestamp_seconds{")) {
      const auto value = line.rfind(' ') + 1;
      line = line.substr(0, value) + std::to_string(std::stol(line.substr(value)) - age);
    }
    aged << line << "\n";
  }
  std::ofstream(metrics) << aged.str();
}

TEST(Prometheus, AlertsFireAndResolveAndTheDashboardHasData) {
  const TemporaryFolder folder;
  // The backend runs as the scheduler's user, who sees the file of faults only in an open folder.
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  const auto faults = folder.path() / "faults";
  write_faulty_backend(folder.path() / "faulty", faults);
  const PrivateScheduler scheduler({.configuration = PrivateScheduler::Configuration::DEFAULT,
                                    .backends = {{"faulty", (folder.path() / "faulty").string()}}});
  const PrivateScheduler annex({.configuration = PrivateScheduler::Configuration::DEFAULT});
  std::map<std::string, std::unique_ptr<NetworkPrinter>> printers;
  for (const char* name : {"away", "closed", "down", "empty", "error", "jam", "last", "low", "odd", "paused",
                           "quick", "stuck"}) {
    const auto& printer = *(printers[name] = std::make_unique<NetworkPrinter>(
                                std::vector<std::string>{"--remaining", "400", "--total", "400"}));
    const bool is_faulty = std::string_view(name) == "down" || std::string_view(name) == "jam";
    scheduler.add_queue(name, (is_faulty ? "faulty" + printer.device_uri().substr(6) : printer.device_uri()));
  }
  annex.add_queue("office", printers["low"]->device_uri());
  ASSERT_EQ(
      run_program({LPADMIN_PROGRAM, "-p", "error", "-L", "Hall"}, {}, {{"CUPS_SERVER", scheduler.server()}})
          .exit_status,
      0);

  // A monitor that stopped more than an hour ago.
  const Monitoring monitoring;
  const std::vector<std::string> options = {"--server",
                                            scheduler.server(),
                                            "--server",
                                            annex.server(),
                                            "--timeout",
                                            "3",
                                            "--stuck",
                                            "5",
                                            "--low",
                                            "64",
                                            "--critical",
                                            "2%",
                                            "--prometheus=" + monitoring.metrics().string()};
  ASSERT_EQ(run_monitor(scheduler.server(), options).exit_status, 0);
  make_older(monitoring.metrics(), 4000);
  ASSERT_TRUE(wait_until([&] {
    return std::ranges::includes(
        monitoring.alerts("firing"),
        std::set<std::string>{"BrenvellisMonitorStopped ", "BrenvellisReadingsOld low"});
  })) << testing::PrintToString(monitoring.alerts("firing"));

  // It runs again, and all is well.
  auto watching = options;
  watching.insert(watching.end(), {"--watch", "1", "--idle", "1"});
  const auto monitor = start_monitor(scheduler.server(), watching);
  ASSERT_TRUE(wait_until([&] { return monitoring.alerts("firing").empty(); }))
      << testing::PrintToString(monitoring.alerts("firing"));
  // Prints are counted by whole minutes, so wait until a sample of the full ribbon is at one.
  ASSERT_TRUE(wait_until([&] {
    return monitoring.has_data(
        "last_over_time(brenvellis_ribbon_prints_remaining{queue=\"quick\"}[1m:1m]) == 400");
  }));

  // Everything goes wrong, once on each queue.
  std::ofstream(faults) << "\n";
  static_cast<void>(scheduler.send_raw("down", "a photo"));
  printers["away"]->tell("fault refuse");
  printers["stuck"]->tell("fault refuse");
  static_cast<void>(scheduler.send_raw("stuck", "a photo"));
  scheduler.pause("paused");
  scheduler.reject("closed");
  printers["empty"]->tell("remaining 0; total 410");
  printers["error"]->tell("code 0x2660");
  printers["last"]->tell("remaining 7; total 410");
  printers["low"]->tell("remaining 60; total 410");
  printers["odd"]->tell("remaining 65534; total 1");
  printers["quick"]->tell("remaining 250");
  ::kill(annex.pid(), SIGSTOP);
  const std::set<std::string> expected = {"BrenvellisPrinterError error",
                                          "BrenvellisQueueDown away",
                                          "BrenvellisQueueDown down",
                                          "BrenvellisQueueError jam",
                                          "BrenvellisQueuePaused paused",
                                          "BrenvellisQueueRejecting closed",
                                          "BrenvellisQueueStuck stuck",
                                          "BrenvellisRibbonEmpty empty",
                                          "BrenvellisRibbonLow low",
                                          "BrenvellisRibbonCritical last",
                                          "BrenvellisRibbonSoonEmpty quick",
                                          "BrenvellisRibbonUnknown odd",
                                          "BrenvellisServerDown " + annex.server()};
  EXPECT_TRUE(wait_until([&] { return monitoring.alerts("firing") == expected; }));
  EXPECT_EQ(monitoring.alerts("firing"), expected);
  for (const auto& alert : monitoring.notified()) {
    const auto summary = alert["annotations"].value("summary", "");
    const auto description = alert["annotations"].value("description", "");
    for (const auto& text : {summary, description}) {
      EXPECT_THAT(text, testing::AllOf(Not(IsEmpty()), Not(HasSubstr("{{")), Not(HasSubstr("no value")),
                                       Not(HasSubstr("error expanding"))))
          << alert;
    }
    if (alert["labels"]["alertname"] == "BrenvellisPrinterError") {
      EXPECT_EQ(summary, "error (Hall): printer error 0008, code 2660");
    }
  }
  for (const auto& query : dashboard_queries()) {
    EXPECT_TRUE(monitoring.has_data(query)) << query;
  }

  // Everything is repaired.
  std::filesystem::remove(faults);
  ::kill(annex.pid(), SIGCONT);
  scheduler.resume("down");
  scheduler.resume("paused");
  scheduler.accept("closed");
  for (const auto& [name, printer] : printers) {
    printer->tell("fault none; code 0; total 400; remaining 400");
  }
  EXPECT_TRUE(wait_until([&] { return monitoring.alerts("firing").empty(); }));
  EXPECT_THAT(monitoring.alerts("firing"), IsEmpty());
  EXPECT_THAT(monitoring.alerts("resolved"), IsSupersetOf(expected));
}

TEST(KilledMonitor, HasItsJobCancelledByTheScheduler) {
  const NetworkPrinter printer({"--fault", "refuse"});
  const PrivateScheduler scheduler;
  scheduler.add_queue("booth", printer.device_uri());
  const auto monitor = start_monitor(scheduler.server(), {"--timeout", "1", "--json=/dev/null/nowhere"});
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  monitor->signal(SIGKILL);
  EXPECT_TRUE(wait_for_active_jobs(scheduler, 0));
  EXPECT_EQ(scheduler.job_state(1), IPP_JSTATE_CANCELED);
}

}  // namespace
