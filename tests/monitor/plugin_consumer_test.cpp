// SPDX-License-Identifier: Apache-2.0
// --plugin as monitoring systems run it: NRPE and Nagios, each with a configuration of its own.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/free_port.h"
#include "tests/support/network_printer.h"

namespace {

using testing::HasSubstr;

/// NRPE does not run as root: it runs as the user of the private scheduler then.
std::string user_name() {
  return getuid() == 0 ? "lp" : getpwuid(getuid())->pw_name;
}
std::string group_name() {
  return getuid() == 0 ? "lp" : getgrgid(getgid())->gr_name;
}

class PluginConsumer : public testing::Test {
 protected:
  PluginConsumer() {
    scheduler.add_queue("booth", printer.device_uri());
    // Where every user of this test may run it.
    std::filesystem::copy_file(MONITOR_PROGRAM, program);
    std::filesystem::permissions(program, std::filesystem::perms(0755));
  }

  [[nodiscard]] std::string command() const {
    return "/usr/bin/env LC_ALL=C.UTF-8 CUPS_SERVER=" + scheduler.server() + " " + program.string() +
           " --plugin --low 40 --critical 20";
  }

  /// Calls `read` until what it returns contains `text`, for a minute at the longest.
  static std::string wait_for(const std::string& text, const std::function<std::string()>& read) {
    std::string seen;
    for (int i = 0; i < 300 && seen.find(text) == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      seen = read();
    }
    return seen;
  }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler;
  std::filesystem::path program = scheduler.path() / "brenvellis-monitor";
  TemporaryFolder folder;
};

TEST_F(PluginConsumer, NrpeHandsOverTheLineAndTheStatus) {
  const std::string port = std::to_string(free_port());
  const auto configuration = scheduler.path() / "nrpe.cfg";
  std::ofstream(configuration) << "server_address=127.0.0.1\nserver_port=" << port
                               << "\nallowed_hosts=127.0.0.1\ncommand_timeout=60\nnrpe_user=" << user_name()
                               << "\nnrpe_group=" << group_name()
                               << "\npid_file=" << (scheduler.path() / "nrpe.pid").string()
                               << "\nlog_file=" << (scheduler.path() / "nrpe.log").string()
                               << "\ncommand[check_printers]=" << command() << "\n";
  std::filesystem::permissions(configuration, std::filesystem::perms(0644));
  const ChildProcess daemon({{NRPE_PROGRAM, "-n", "-f", "-c", configuration.string()}, {}, {}});

  const auto check = [&] {
    return run_program(
        {CHECK_NRPE_PROGRAM, "-H", "127.0.0.1", "-p", port, "-n", "-t", "60", "-c", "check_printers"});
  };
  EXPECT_EQ(wait_for("OK", [&] { return check().output; }),
            "BRENVELLIS OK - booth: 200 of 400 prints left (50 %) | 'booth_prints'=200;41:;21:;0;400\n");
  EXPECT_EQ(check().exit_status, 0);
  printer.tell("remaining 40");
  EXPECT_EQ(check().exit_status, 1);
  printer.tell("remaining 20");
  EXPECT_EQ(check().exit_status, 2);
  printer.tell("remaining 200");
  EXPECT_EQ(check().exit_status, 0);
  scheduler.pause("booth", "gone home");
  const auto paused = check();
  EXPECT_EQ(paused.exit_status, 3);
  EXPECT_THAT(paused.output, HasSubstr("UNKNOWN - booth: paused: gone home"));
}

TEST_F(PluginConsumer, NagiosShowsTheStateTheTextAndThePerformanceData) {
  printer.tell("remaining 100; code 0x2660");
  const auto file = [&](const char* name) { return (folder.path() / name).string(); };
  std::filesystem::create_directory(file("results"));
  std::ofstream(file("nagios.cfg"))
      << "cfg_file=" << file("objects.cfg") << "\nlog_file=" << file("nagios.log")
      << "\nstatus_file=" << file("status.dat") << "\nobject_cache_file=" << file("objects.cache")
      << "\nprecached_object_file=" << file("objects.precache") << "\ntemp_file=" << file("nagios.tmp")
      << "\ntemp_path=" << folder.path().string() << "\ncheck_result_path=" << file("results")
      << "\nstate_retention_file=" << file("retention.dat") << "\nlock_file=" << file("nagios.lock")
      << "\ncommand_file=" << file("nagios.cmd") << "\nquery_socket=" << file("nagios.qh")
      << "\nnagios_user=" << getpwuid(getuid())->pw_name << "\nnagios_group=" << getgrgid(getgid())->gr_name
      << "\nstatus_update_interval=1\ninterval_length=1\nuse_syslog=0"
         "\nservice_inter_check_delay_method=n\nmax_service_check_spread=1"
         "\ncheck_for_updates=0\nenable_notifications=0"
         "\nservice_check_timeout=60\n";
  std::ofstream(file("objects.cfg"))
      << "define timeperiod {\n timeperiod_name always\n alias always\n}\n"
         "define command {\n command_name check_printers\n command_line "
      << command()
      << "\n}\n"
         "define contact {\n contact_name operator\n"
         " host_notification_period always\n service_notification_period always\n"
         " host_notification_commands check_printers\n"
         " service_notification_commands check_printers\n}\n"
         "define host {\n host_name hall\n address 127.0.0.1\n contacts operator\n"
         " max_check_attempts 1\n}\n"
         "define service {\n host_name hall\n service_description printers\n"
         " check_command check_printers\n contacts operator\n check_interval 1\n"
         " retry_interval 1\n max_check_attempts 1\n}\n";
  ChildProcess nagios({{NAGIOS_PROGRAM, file("nagios.cfg")}, {}, {}});
  const auto status_after = [&](const std::string& text) {
    return wait_for(text, [&] {
      std::ifstream stream(file("status.dat"));
      return std::string{std::istreambuf_iterator<char>(stream), {}};
    });
  };

  const auto critical = status_after("plugin_output=BRENVELLIS CRITICAL");
  EXPECT_THAT(critical, HasSubstr("\tcurrent_state=2\n"));
  EXPECT_THAT(critical, HasSubstr("\tplugin_output=BRENVELLIS CRITICAL - booth: error 0008, code 2660\n"));
  EXPECT_THAT(critical, HasSubstr("\tperformance_data='booth_prints'=100;41:;21:;0;400\n"));
  printer.tell("code 0; remaining 40");
  EXPECT_THAT(status_after("plugin_output=BRENVELLIS WARNING"), HasSubstr("\tcurrent_state=1\n"));
  printer.tell("remaining 400");
  EXPECT_THAT(status_after("plugin_output=BRENVELLIS OK"),
              HasSubstr("\tperformance_data='booth_prints'=400;41:;21:;0;400\n"));

  nagios.signal(SIGTERM);  // it ends its workers, too
  EXPECT_EQ(nagios.exit_status(std::chrono::seconds(30)), 0);
}

}  // namespace
