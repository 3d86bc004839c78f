// SPDX-License-Identifier: Apache-2.0
// Measures command jobs and the monitor with a private scheduler and many queues.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/bench/measure.h"
#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"

namespace {

std::string queue_name(int number) {
  return "booth" + std::to_string(number);
}

/// A scheduler with queues, each with a printer of its own.
struct Fleet {
  explicit Fleet(int count, const std::string& ppd = PPD_FILE) {
    for (int i = 0; i < count; ++i) {
      printers.push_back(std::make_unique<NetworkPrinter>());
      scheduler.add_queue(queue_name(i), printers.back()->device_uri(), ppd);
    }
  }

  PrivateScheduler scheduler;
  std::vector<std::unique_ptr<NetworkPrinter>> printers;
};

/// The CPU time that the scheduler itself has used so far, in seconds.
double cpu_of(const PrivateScheduler& scheduler) {
  std::ifstream statistics("/proc/" + std::to_string(scheduler.pid()) + "/schedstat");
  double nanoseconds = 0;
  statistics >> nanoseconds;
  return nanoseconds * 1e-9;
}

/// Waits until the scheduler has logged the end of `count` more jobs. Querying the scheduler would add to its
/// load.
class EndOfJobs {
 public:
  explicit EndOfJobs(const PrivateScheduler& scheduler) : log_(scheduler.path() / "error_log") {
    wait_for(0);
  }

  void wait_for(int jobs) {
    const double limit = now() + 120;
    for (int ended = 0;;) {
      for (std::string line; std::getline(log_, line);) {
        ended += line.ends_with("] Job completed.") ? 1 : 0;
      }
      if (ended >= jobs) {
        return;
      }
      if (now() > limit) {
        give_up("the jobs did not end");
      }
      log_.clear();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  std::ifstream log_;
};

/// @return the CUPS filter's PPD: ours with another filter.
std::string ppd_of_commandtops(const TemporaryFolder& folder) {
  std::string text = read_file(PPD_FILE);
  const std::string ours = "commandtobrenvellis";
  for (auto place = text.find(ours); place != std::string::npos; place = text.find(ours, place)) {
    text.replace(place, ours.size(), "commandtops");
  }
  std::string path = folder.path() / "commandtops.ppd";
  write_file(path, text);
  return path;
}

struct Column {
  const char* name;
  bool reports;
  std::unique_ptr<Fleet> fleet;
  std::vector<double> wall = {};
  std::vector<double> cpu = {};
};

void job_table(const std::vector<int>& counts, int rounds) {
  const TemporaryFolder folder;
  std::printf(
      "| queues | filter | from sending the jobs to the last attributes, ms: median (quartiles) | per job, "
      "ms "
      "| "
      "scheduler CPU per job, ms |\n|--:|---|--:|--:|--:|\n");
  for (const int count : counts) {
    std::vector<Column> columns;
    columns.push_back({"commandtobrenvellis", true, std::make_unique<Fleet>(count)});
    columns.push_back({"commandtops", false, std::make_unique<Fleet>(count, ppd_of_commandtops(folder))});
    for (int round = 0; round < rounds; ++round) {
      for (Column& column : columns) {
        const PrivateScheduler& scheduler = column.fleet->scheduler;
        EndOfJobs end(scheduler);
        const double cpu = cpu_of(scheduler);
        const double start = now();
        for (int i = 0; i < count; ++i) {
          static_cast<void>(scheduler.send_commands(queue_name(i), "ReportLevels\n"));
        }
        end.wait_for(count);
        const QueueView view = scheduler.view(queue_name(count - 1));
        if (view.marker.contains("marker-levels") != column.reports) {
          give_up("the attributes are not as expected");
        }
        column.wall.push_back((now() - start) * 1e3);
        column.cpu.push_back((cpu_of(scheduler) - cpu) * 1e3 / count);
      }
    }
    for (const Column& column : columns) {
      const Spread wall = spread(column.wall);
      std::printf("| %d | %s | %.0f (%.0f to %.0f) | %.1f | %.2f |\n", count, column.name, wall.median,
                  wall.low, wall.high, wall.median / count, spread(column.cpu).median);
    }
  }
  std::printf("\n%d rounds.\n", rounds);
}

void monitor_table(const std::vector<int>& counts, const std::vector<int>& delays, int rounds) {
  std::printf(
      "| queues | each printer answers after, ms | monitor, s: median (quartiles) | more than two such "
      "answers "
      "| "
      "CPU of the monitor, ms | peak memory, KiB | rounds in which a queue was not read "
      "|\n|--:|--:|--:|--:|--:|--:|--:|\n");
  for (const int count : counts) {
    const Fleet fleet(count);
    setenv("CUPS_SERVER", fleet.scheduler.server().c_str(), 1);
    for (const int delay : delays) {
      for (const auto& printer : fleet.printers) {
        printer->tell(delay == 0 ? "fault none" : "fault slow " + std::to_string(delay));
      }
      std::vector<double> wall;
      std::vector<double> cpu;
      Cost last;
      int not_read = 0;
      for (int round = 0; round < rounds; ++round) {
        std::string text;
        int exit_status = 0;
        last = run_for_output({MONITOR_PROGRAM, "--json"}, text, exit_status);
        if (text.find("\"refreshed\"") == std::string::npos) {
          give_up("the monitor refreshed no queue");
        }
        // On a busy machine, a printer's reply may arrive after the filter's timeout; the table counts such
        // rounds.
        not_read += exit_status == 0 ? 0 : 1;
        wall.push_back(last.wall);
        cpu.push_back(last.cpu * 1e3);
      }
      const Spread seconds = spread(wall);
      std::printf("| %d | %d | %.2f (%.2f to %.2f) | %+.2f s | %.0f | %ld | %d |\n", count, delay,
                  seconds.median, seconds.low, seconds.high, seconds.median - 2e-3 * delay,
                  spread(cpu).median, last.peak, not_read);
      std::fflush(stdout);
    }
  }
  std::printf("\n%d rounds.\n", rounds);
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string what = argc > 1 ? argv[1] : "";
  const bool quick = argc > 2 && std::string(argv[2]) == "quick";
  if (what == "job") {
    job_table(quick ? std::vector{1, 3} : std::vector{1, 10, 100}, quick ? 1 : 7);
  } else if (what == "monitor") {
    monitor_table(quick ? std::vector{1, 3} : std::vector{1, 10, 50, 100},
                  quick ? std::vector{0} : std::vector{0, 100, 500}, quick ? 1 : 5);
  } else {
    give_up("usage: scheduler_bench job|monitor quick|full");
  }
}
