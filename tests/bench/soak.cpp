// Many jobs one after another: soak [JOBS [QUEUES]]. Shows what the scheduler holds at the start and at the
// end. Exit status 1 if a report was wrong, or a process or a descriptor is left over.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "tests/bench/fleet.h"

namespace {

void print(const char* when, std::size_t jobs, const ProcessSize& size) {
  printf("| %s | %zu | %ld | %zu | %zu | %zu |\n", when, jobs, size.resident_kib, size.descriptors,
         size.children, size.zombies);
  fflush(stdout);
}

/// The scheduler's size once its children and connections of the last round are gone.
ProcessSize settled_size(pid_t scheduler, std::size_t descriptors) {
  ProcessSize size = size_of(scheduler);
  for (int i = 0; i < 100 && (size.children > 0 || size.descriptors > descriptors); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    size = size_of(scheduler);
  }
  return size;
}

}  // namespace

int main(int argc, char** argv) {
  const auto jobs = static_cast<std::size_t>(argc > 1 ? std::atoi(argv[1]) : 10000);
  const auto queues = static_cast<std::size_t>(argc > 2 ? std::atoi(argv[2]) : 10);
  Fleet fleet(queues);
  // The first reports make the scheduler load what it keeps.
  fleet.change_conditions();
  fleet.report_all();
  const ProcessSize before = settled_size(fleet.scheduler.pid(), 0);
  printf(
      "| when | jobs | scheduler's memory, KiB | descriptors | children | zombies "
      "|\n|---|---|---|---|---|---|\n");
  print("start", 0, before);
  std::size_t sent = 0;
  std::size_t right = 0;
  for (std::size_t round = 1; sent < jobs; ++round) {
    fleet.change_conditions();
    fleet.report_all();
    sent += queues;
    right += fleet.compare().right;
    if (round % std::max<std::size_t>(1, jobs / queues / 5) == 0 && sent < jobs) {
      print("on the way", sent, size_of(fleet.scheduler.pid()));
    }
  }
  const ProcessSize after = settled_size(fleet.scheduler.pid(), before.descriptors);
  print("end", sent, after);
  printf("\n%zu of %zu reports right; filters left over: %zu\n", right, sent,
         fleet.scheduler.running_filters().size());
  const bool clean = after.children == 0 && after.zombies == 0 && after.descriptors <= before.descriptors &&
                     fleet.scheduler.running_filters().empty();
  return sent > 0 && right == sent && clean ? 0 : 1;
}
