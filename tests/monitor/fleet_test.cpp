// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/free_port.h"
#include "tests/support/network_printer.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

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

TEST(AlertRules, PassTheirTests) {
  const auto result = run_program({PROMTOOL_PROGRAM, "test", "rules", FLEET_FOLDER "/alerts_test.yml"});
  EXPECT_EQ(result.exit_status, 0) << result.output << result.errors;
}

TEST(Prometheus, AnswersWithWhatThePrinterIsSetTo) {
  const NetworkPrinter printer({"--remaining", "123", "--total", "400", "--code", "0x2660"});
  const PrivateScheduler scheduler;
  scheduler.add_queue("booth", printer.device_uri());

  const TemporaryFolder folder;
  const auto textfiles = folder.path() / "textfiles";
  const auto metrics = folder.path() / "brenvellis.prom";
  std::filesystem::create_directory(textfiles);
  std::filesystem::create_symlink(metrics, textfiles / "brenvellis.prom");
  EXPECT_EQ(run_monitor(scheduler.server(), {"--prometheus=" + metrics.string()}).exit_status, 2);

  const std::string exporter_address = "127.0.0.1:" + std::to_string(free_port());
  const ChildProcess exporter({{NODE_EXPORTER_PROGRAM, "--collector.disable-defaults", "--collector.textfile",
                                "--collector.textfile.directory=" + textfiles.string(),
                                "--web.listen-address=" + exporter_address, "--log.level=error"},
                               {},
                               {}});
  const auto configuration = folder.path() / "prometheus.yml";
  std::ofstream(configuration) << "global: {scrape_interval: 1s, evaluation_interval: 1s}\n"
                               << "rule_files: ['" FLEET_FOLDER "/alerts.yml']\n"
                               << "scrape_configs: [{job_name: booth, static_configs: [{targets: ['"
                               << exporter_address << "']}]}]\n";
  const std::string address = "127.0.0.1:" + std::to_string(free_port());
  const ChildProcess prometheus({{PROMETHEUS_PROGRAM, "--config.file=" + configuration.string(),
                                  "--storage.tsdb.path=" + (folder.path() / "data").string(),
                                  "--web.listen-address=" + address, "--log.level=error"},
                                 {},
                                 {}});

  const auto answer_to = [&](const std::string& query) {
    std::string answer;
    for (int i = 0; i < 300 && answer.find("=>") == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      answer = run_program({PROMTOOL_PROGRAM, "query", "instant", "http://" + address, query}).output;
    }
    return answer;
  };
  EXPECT_THAT(answer_to("brenvellis_ribbon_prints_remaining"), HasSubstr("queue=\"booth\""));
  EXPECT_THAT(answer_to("sum(brenvellis_ribbon_prints_remaining)"), HasSubstr("{} => 123 @"));
  EXPECT_THAT(answer_to("ALERTS{alertname=\"BrenvellisPrinterError\"}"), HasSubstr("code=\"2660\""));
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
