// SPDX-License-Identifier: Apache-2.0
#include "tests/monitor/monitor_run.h"

#include <fstream>
#include <functional>
#include <thread>

namespace {

std::vector<int> list_jobs(const PrivateScheduler& scheduler, int which) {
  http_t* connection = httpConnect2(scheduler.server().c_str(), 0, nullptr, AF_UNSPEC,
                                    HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
  cups_job_t* jobs = nullptr;
  const int count = cupsGetJobs2(connection, &jobs, nullptr, 0, which);
  httpClose(connection);
  if (count < 0) {
    throw std::runtime_error("the private scheduler does not list its jobs");
  }
  std::vector<int> numbers;
  for (int i = 0; i < count; ++i) {
    numbers.push_back(jobs[i].id);
  }
  cupsFreeJobs(count, jobs);
  return numbers;
}

}  // namespace

nlohmann::json read_json(const std::filesystem::path& file) {
  std::ifstream stream(file);
  if (!stream) {
    return nlohmann::json(nlohmann::json::value_t::discarded);
  }
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_EQ(schema_error(text), "");
  return nlohmann::json::parse(text);
}

std::vector<int> active_jobs(const PrivateScheduler& scheduler) {
  return list_jobs(scheduler, CUPS_WHICHJOBS_ACTIVE);
}

std::vector<int> all_jobs(const PrivateScheduler& scheduler) {
  return list_jobs(scheduler, CUPS_WHICHJOBS_ALL);
}

bool wait_until(const std::function<bool()>& condition, std::chrono::seconds limit) {
  for (const auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;) {
    if (condition()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

bool wait_for_active_jobs(const PrivateScheduler& scheduler, std::size_t count) {
  return wait_until([&] { return active_jobs(scheduler).size() == count; }, std::chrono::seconds(60));
}

bool wait_for_processing(const PrivateScheduler& scheduler, int job) {
  return wait_until([&] { return scheduler.job_state(job) == IPP_JSTATE_PROCESSING; },
                    std::chrono::seconds(60));
}
