// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <thread>

#include "tests/support/private_scheduler.h"

/// Returns the state of the job when it has stopped processing, or after 90 s. Returns "completed" also for
/// a job whose backend crashed while closing the printer. This happens occasionally if the printer does not
/// answer idle reads; the scheduler then holds the job although all data was sent.
inline std::string end_of(const PrivateScheduler& scheduler, int job) {
  auto state = scheduler.job_state(job);
  for (int i = 0; i < 4500 && (state == IPP_JSTATE_PENDING || state == IPP_JSTATE_PROCESSING); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    state = scheduler.job_state(job);
  }
  if (state == IPP_JSTATE_HELD) {
    bool closing = false;
    for (const auto& line : scheduler.job_log(job)) {
      closing = closing || line.find("aborting the pending read") != std::string::npos;
      if (closing && line.find("crashed on signal 6") != std::string::npos) {
        return "completed";
      }
    }
  }
  return ippEnumString("job-state", state);
}

/// Waits until a line of the job's log holds the text. @return false if none does after 60 s.
inline bool logs(const PrivateScheduler& scheduler, int job, const std::string& text) {
  for (int i = 0; i < 3000; ++i) {
    for (const auto& line : scheduler.job_log(job)) {
      if (line.find(text) != std::string::npos) {
        return true;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}
