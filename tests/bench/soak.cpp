// SPDX-License-Identifier: Apache-2.0
// Sends many jobs one after another while a monitor runs: soak [JOBS [QUEUES]]. Prints the resources of the
// scheduler, a filter and the monitor from start to end. Exits with 1 if a report was wrong or a process or
// descriptor is left over.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/bench/fleet.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

namespace {

using std::chrono::milliseconds;

/// Returns the scheduler's size after its children and connections of the last round are gone.
ProcessSize settled_size(pid_t scheduler, std::size_t descriptors) {
  ProcessSize size = size_of(scheduler);
  for (int i = 0; i < 100 && (size.children > 0 || size.descriptors > descriptors); ++i) {
    std::this_thread::sleep_for(milliseconds(100));
    size = size_of(scheduler);
  }
  return size;
}

/// Measures a filter's peak memory. The printer is slow, so that the filter runs long enough, and is queried
/// twice, so that the measurement includes a report.
long peak_of_filter(const Fleet& fleet) {
  fleet.printer(0).tell("fault slow 300");
  const int job = fleet.scheduler.send_commands(Fleet::queue(0), "ReportLevels\nReportLevels\n");
  long peak = 0;
  while (fleet.scheduler.job_state(job) < IPP_JSTATE_CANCELED) {
    for (const pid_t filter : fleet.scheduler.running_filters()) {
      peak = std::max(peak, size_of(filter).peak_kib);
    }
    std::this_thread::sleep_for(milliseconds(20));
  }
  fleet.printer(0).tell("fault none");
  return peak;
}

/// A monitor that refreshes all queues every second.
class Watch {
 public:
  explicit Watch(const PrivateScheduler& scheduler) {
    const int views = open(views_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    monitor_ = std::make_unique<ChildProcess>(ChildProcess::Options{
        {MONITOR_PROGRAM, "--server", scheduler.server(), "--watch", "1", "--idle", "1", "--json"},
        {{1, views}},
        {}});
    close(views);
    while (views_written() == 0) {
      if (monitor_->wait(milliseconds(20))) {
        throw std::runtime_error("the monitor ended");
      }
    }
  }

  [[nodiscard]] ProcessSize size() const { return size_of(monitor_->pid()); }

  [[nodiscard]] long views_written() const {
    std::ifstream views(views_);
    return std::count(std::istreambuf_iterator<char>(views), {}, '\n');
  }

  /// @return whether it was still running.
  bool end() {
    const bool ran = !monitor_->wait(milliseconds(0));
    monitor_->signal(SIGTERM);
    return ran && monitor_->wait(std::chrono::seconds(60)).has_value();
  }

 private:
  TemporaryFolder folder_;
  std::string views_ = folder_.path() / "views";
  std::unique_ptr<ChildProcess> monitor_;
};

struct Sizes {
  ProcessSize scheduler;
  long filter_peak = 0;
  ProcessSize monitor;
  long views = 0;
};

void print(const char* when, std::size_t jobs, const Sizes& sizes) {
  printf("| %s | %zu | %ld | %zu | %zu | %zu | %ld | %ld | %zu | %ld |\n", when, jobs,
         sizes.scheduler.resident_kib, sizes.scheduler.descriptors, sizes.scheduler.children,
         sizes.scheduler.zombies, sizes.filter_peak, sizes.monitor.resident_kib, sizes.monitor.descriptors,
         sizes.views);
  fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const auto jobs = static_cast<std::size_t>(argc > 1 ? std::atoi(argv[1]) : 10000);
  const auto queues = static_cast<std::size_t>(argc > 2 ? std::atoi(argv[2]) : 10);
  Fleet fleet(queues);
  const pid_t scheduler = fleet.scheduler.pid();
  // The first reports make the scheduler allocate memory that it keeps.
  fleet.change_conditions();
  fleet.report_all();
  const long first_filter = peak_of_filter(fleet);
  const ProcessSize before = settled_size(scheduler, 0);
  Watch watch(fleet.scheduler);
  printf(
      "| when | jobs | scheduler's memory, KiB | its descriptors | children | zombies | a filter's peak, KiB "
      "| "
      "monitor's memory, KiB | its descriptors | its views |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n");
  print("start", 0, {before, first_filter, watch.size(), watch.views_written()});
  std::size_t sent = 0;
  std::size_t right = 0;
  for (std::size_t round = 1; sent < jobs; ++round) {
    fleet.change_conditions();
    fleet.report_all();
    sent += queues;
    right += fleet.compare().right;
    if (round % std::max<std::size_t>(1, jobs / queues / 5) == 0 && sent < jobs) {
      print("on the way", sent,
            {size_of(scheduler), peak_of_filter(fleet), watch.size(), watch.views_written()});
    }
  }
  Sizes last = {{}, peak_of_filter(fleet), watch.size(), watch.views_written()};
  const bool watched = watch.end();
  last.scheduler = settled_size(scheduler, before.descriptors);
  print("end", sent, last);
  const std::size_t filters = fleet.scheduler.running_filters().size();
  printf("\n%zu of %zu reports right; filters left over: %zu; the monitor %s\n", right, sent, filters,
         watched ? "ran to the end" : "ended early or did not end");
  const bool clean = last.scheduler.children == 0 && last.scheduler.zombies == 0 &&
                     last.scheduler.descriptors <= before.descriptors && filters == 0;
  return sent > 0 && right == sent && clean && watched ? 0 : 1;
}
