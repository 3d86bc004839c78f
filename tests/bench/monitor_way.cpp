// SPDX-License-Identifier: Apache-2.0
// Measures how much the monitor delays prints and changes the job history, with the distribution's scheduler
// configuration: monitor_way [quick|full [history|dead|delays|unplugged|writes]]. Prints a table.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"
#include "tests/support/temporary_folder.h"
#ifdef HAS_USB_PRINTER
#include "tests/usb/usb_printer.h"
#endif

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr const char* REFUSED = "socket://127.0.0.1:9";

class Stopwatch {
 public:
  [[nodiscard]] double seconds() const {
    return std::chrono::duration<double>(steady_clock::now() - start_).count();
  }

 private:
  steady_clock::time_point start_ = steady_clock::now();
};

PrivateScheduler::Options usual() {
  return {.configuration = PrivateScheduler::Configuration::DEFAULT};
}

std::string booth(int number) {
  return "booth" + std::to_string(number);
}

std::unique_ptr<ChildProcess> start_monitor(const PrivateScheduler& scheduler,
                                            std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), MONITOR_PROGRAM);
  static const TemporaryFolder folder;
  arguments.push_back("--json=" + (folder.path() / "report.json").string());
  return std::make_unique<ChildProcess>(
      ChildProcess::Options{arguments, {}, {{"CUPS_SERVER", scheduler.server()}}});
}

void end(ChildProcess& monitor) {
  monitor.signal(SIGTERM);
  if (!monitor.wait(seconds(30))) {
    throw std::runtime_error("the monitor did not end");
  }
}

std::vector<cups_job_t> jobs_of(const PrivateScheduler& scheduler, int which) {
  http_t* connection = httpConnect2(scheduler.server().c_str(), 0, nullptr, AF_UNSPEC,
                                    HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
  cups_job_t* jobs = nullptr;
  const int count = cupsGetJobs2(connection, &jobs, nullptr, 0, which);
  httpClose(connection);
  std::vector<cups_job_t> result(jobs, jobs + std::max(0, count));
  cupsFreeJobs(count, jobs);
  return result;
}

void wait_until(const std::function<bool()>& condition) {
  for (const Stopwatch watch; !condition();) {
    if (watch.seconds() > 120) {
      throw std::runtime_error("what was waited for did not happen");
    }
    std::this_thread::sleep_for(milliseconds(5));
  }
}

/// Counts the jobs in the history before and after a number of refreshes.
void measure_history(int refreshes) {
  constexpr int queues = 20;
  PrivateScheduler scheduler(usual());
  std::vector<std::unique_ptr<NetworkPrinter>> printers;
  for (int i = 0; i < queues; ++i) {
    printers.push_back(std::make_unique<NetworkPrinter>());
    scheduler.add_queue(booth(i), printers.back()->device_uri());
  }
  constexpr int prints = 180;
  for (int i = 0; i < prints; ++i) {
    static_cast<void>(scheduler.wait_for_job(scheduler.send_raw(booth(i % queues), "a photo")));
  }
  const auto before = jobs_of(scheduler, CUPS_WHICHJOBS_ALL).size();
  for (int i = 0; i < refreshes / queues; ++i) {
    const auto result = run_program({MONITOR_PROGRAM, "--json", "--timeout", "60"}, {},
                                    {{"CUPS_SERVER", scheduler.server()}});
    if (result.exit_status != 0) {
      throw std::runtime_error("a refresh failed: " + result.output + result.errors);
    }
  }
  const auto after = jobs_of(scheduler, CUPS_WHICHJOBS_ALL).size();
  printf("| jobs in the history before and after %d refreshes | %zu, %zu |\n", refreshes, before, after);
}

/// Measures the longest time of a print to a healthy queue while all other queues refuse connections.
void measure_dead_queues(int dead) {
  PrivateScheduler scheduler(usual());
  const NetworkPrinter printer;
  scheduler.add_queue("healthy", printer.device_uri());
  for (int i = 0; i < dead; ++i) {
    scheduler.add_queue(booth(i), REFUSED);
  }
  auto monitor = start_monitor(scheduler, {"--watch", "10"});
  std::size_t most = 0;
  double longest = 0;
  for (const Stopwatch watch; watch.seconds() < 30;) {
    most = std::max(most, jobs_of(scheduler, CUPS_WHICHJOBS_ACTIVE).size());
    const Stopwatch print;
    const auto state = scheduler.wait_for_job(scheduler.send_raw("healthy", "a photo"));
    if (state != IPP_JSTATE_COMPLETED) {
      throw std::runtime_error("a print did not end");
    }
    longest = std::max(longest, print.seconds());
    std::this_thread::sleep_for(milliseconds(500));
  }
  end(*monitor);
  printf("| %d refused queues: command jobs at a time | %zu |\n", dead, most);
  printf("| %d refused queues: longest print to a healthy one | %.2f s |\n", dead, longest);
}

/// Measures the delay of a print that arrives during a command job.
double print_delay(const PrivateScheduler& scheduler) {
  auto monitor = start_monitor(scheduler, {"--watch", "60", "--timeout", "60"});
  const auto active = [&] { return jobs_of(scheduler, CUPS_WHICHJOBS_ACTIVE); };
  wait_until([&] {
    const auto jobs = active();
    return !jobs.empty() && jobs[0].state == IPP_JSTATE_PROCESSING;
  });
  std::this_thread::sleep_for(milliseconds(100));
  const Stopwatch watch;
  const int print = scheduler.send_raw("booth", "a photo");
  wait_until([&] { return scheduler.job_state(print) >= IPP_JSTATE_PROCESSING; });
  const double delay = watch.seconds();
  end(*monitor);
  scheduler.purge_job(print);
  return delay;
}

void print_delays(const char* name, const std::function<double()>& measure, int rounds) {
  double longest = 0;
  for (int i = 0; i < rounds; ++i) {
    longest = std::max(longest, measure());
  }
  printf("| longest of %d prints behind a refresh: %s | %.2f s |\n", rounds, name, longest);
}

void measure_delays(int rounds) {
  for (const auto& [name, fault] : {std::pair("silent", "fault silent"),
                                    {"dripping", "fault drip 60000"},
                                    {"very slow", "fault slow 60000"},
                                    {"refusing", "fault refuse"}}) {
    PrivateScheduler scheduler(usual());
    const NetworkPrinter printer;
    printer.tell(fault);
    scheduler.add_queue("booth", printer.device_uri());
    print_delays(
        name, [&] { return print_delay(scheduler); }, rounds);
  }
#ifdef HAS_USB_PRINTER
  PrivateScheduler scheduler(usual());
  const UsbPrinter printer(scheduler);
  scheduler.add_queue("booth", UsbPrinter::device_uri());
  print_delays(
      "USB, idle reads without an answer", [&] { return print_delay(scheduler); }, rounds);
#endif
}

/// Measures the refresh of forty queues while one printer is unplugged.
void measure_one_dead() {
  constexpr int queues = 39;
  PrivateScheduler scheduler(usual());
  std::vector<std::unique_ptr<NetworkPrinter>> printers;
  for (int i = 0; i < queues; ++i) {
    printers.push_back(std::make_unique<NetworkPrinter>());
    scheduler.add_queue(booth(i), printers.back()->device_uri());
  }
  scheduler.add_queue("dead", REFUSED);
  const Stopwatch watch;
  auto monitor = start_monitor(scheduler, {"--watch", "60", "--timeout", "60"});
  for (const auto& printer : printers) {
    wait_until([&] { return !printer->requests().empty(); });
  }
  printf("| one of 40 unplugged: until the other 39 were asked | %.2f s |\n", watch.seconds());
  end(*monitor);
}

double written_kib(pid_t pid) {
  std::ifstream io("/proc/" + std::to_string(pid) + "/io");
  for (std::string name, value; io >> name >> value;) {
    if (name == "write_bytes:") {
      return std::stod(value) / 1024;
    }
  }
  throw std::runtime_error("what a process writes cannot be counted");
}

/// Measures the bytes that the scheduler writes for each refresh when its history is full, and the monitor
/// for each report with all three files.
void measure_writes(int prints, int refreshes) {
  PrivateScheduler scheduler({.configuration = PrivateScheduler::Configuration::DEFAULT, .log = false});
  const NetworkPrinter printer;
  scheduler.add_queue("booth", printer.device_uri());
  for (int i = 0; i < prints; ++i) {
    static_cast<void>(scheduler.wait_for_job(scheduler.send_raw("booth", "a photo")));
  }
  // The scheduler writes its lists at most every 30 seconds (DirtyCleanInterval).
  constexpr seconds until_written(35);
  std::this_thread::sleep_for(until_written);
  const double before = written_kib(scheduler.pid());
  for (int i = 0; i < refreshes; ++i) {
    const auto result = run_program({MONITOR_PROGRAM, "--json", "--timeout", "60"}, {},
                                    {{"CUPS_SERVER", scheduler.server()}});
    if (result.exit_status != 0) {
      throw std::runtime_error("a refresh failed: " + result.output + result.errors);
    }
    std::this_thread::sleep_for(until_written);
  }
  printf("| KiB that the scheduler writes for a refresh, with %zu jobs in its history | %.0f |\n",
         jobs_of(scheduler, CUPS_WHICHJOBS_ALL).size(), (written_kib(scheduler.pid()) - before) / refreshes);

  const TemporaryFolder folder;
  auto monitor = start_monitor(scheduler, {"--watch", "1", "--html=" + (folder.path() / "page").string(),
                                           "--prometheus=" + (folder.path() / "metrics").string()});
  wait_until([&] { return written_kib(monitor->pid()) > 0; });
  const double start = written_kib(monitor->pid());
  constexpr int seconds_long = 20;
  std::this_thread::sleep_for(seconds(seconds_long));
  printf("| KiB that the monitor writes for a report of one queue: JSON, metrics and page | %.0f |\n",
         (written_kib(monitor->pid()) - start) / seconds_long);
  end(*monitor);
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = argc > 1 && std::string(argv[1]) == "quick";
  try {
    printf("| | |\n|---|--:|\n");
    const std::string only = argc > 2 ? argv[2] : "";
    const auto row = [&](const std::string& name, const std::function<void()>& measure) {
      if (only.empty() || only == name) {
        measure();
        fflush(stdout);
      }
    };
    row("history", [&] { measure_history(quick ? 60 : 1500); });
    row("dead", [&] { measure_dead_queues(quick ? 60 : 600); });
    row("delays", [&] { measure_delays(quick ? 1 : 5); });
    row("unplugged", measure_one_dead);
    row("writes", [&] { measure_writes(quick ? 50 : 500, quick ? 1 : 4); });
  } catch (const std::exception& error) {
    fprintf(stderr, "monitor_way: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
