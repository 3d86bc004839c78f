// SPDX-License-Identifier: Apache-2.0
// Tests many queues at the same time: load [QUEUES [ROUNDS]]. Each round changes each printer's condition,
// sends a ReportLevels job to all queues at the same time and compares what a client sees. Exits with 1 if a
// report was lost or crossed.

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "tests/bench/fleet.h"

int main(int argc, char** argv) {
  const auto queues = static_cast<std::size_t>(argc > 1 ? std::atoi(argv[1]) : 100);
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 20;
  Fleet fleet(queues);
  std::size_t right = 0;
  printf("| round | jobs completed | right | crossed | lost | seconds |\n|---|---|---|---|---|---|\n");
  for (int round = 1; round <= rounds; ++round) {
    fleet.change_conditions();
    const auto start = std::chrono::steady_clock::now();
    const std::size_t completed = fleet.report_all();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const auto tally = fleet.compare();
    right += tally.right;
    printf("| %d | %zu | %zu | %zu | %zu | %.1f |\n", round, completed, tally.right, tally.crossed,
           tally.lost, taken.count());
    fflush(stdout);
  }
  const std::size_t all = queues * static_cast<std::size_t>(rounds);
  printf("\n%zu of %zu reports right\n", right, all);
  return all > 0 && right == all ? 0 : 1;
}
