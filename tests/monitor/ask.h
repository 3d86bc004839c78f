// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>

#include <stdexcept>

#include "monitor/scheduler.h"

/// Waits, as long as it takes, for the answer to the request under way.
inline SchedulerAnswer wait_for_answer(Scheduler& scheduler) {
  for (;;) {
    if (auto answer = scheduler.take_answer()) {
      return *answer;
    }
    pollfd wait{scheduler.descriptor(), POLLIN, 0};
    if (wait.fd < 0 || poll(&wait, 1, -1) != 1) {
      throw std::runtime_error("no answer is to come");
    }
  }
}

inline SchedulerAnswer ask(Scheduler& scheduler, const SchedulerRequest& request) {
  scheduler.ask(request);
  return wait_for_answer(scheduler);
}

/// The error that an answer is; throws if it is none.
inline SchedulerError error_of(const SchedulerAnswer& answer) {
  return std::get<SchedulerError>(answer);
}
