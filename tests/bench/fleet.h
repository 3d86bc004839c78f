// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"
#include "tests/unit/known_codes.h"

/// Condition is the setting of a printer, which its queue must show.
struct Condition {
  std::string reason;  ///< empty if the printer is well
  std::string level;
  std::string message;
  std::string setting;  ///< the simulator's control line
};

/// Fleet is a private scheduler with queues "q0", "q1", ..., each with a simulated printer.
class Fleet {
 public:
  explicit Fleet(std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      printers_.push_back(std::make_unique<NetworkPrinter>());
      scheduler.add_queue(queue(i), printers_[i]->device_uri());
    }
    conditions_.resize(size);
    for (const auto& [code, keyword] : known_keywords()) {
      codes_.emplace_back(code, keyword);
    }
  }

  [[nodiscard]] std::size_t size() const { return printers_.size(); }
  [[nodiscard]] const NetworkPrinter& printer(std::size_t i) const { return *printers_[i]; }
  static std::string queue(std::size_t i) { return std::string("q").append(std::to_string(i)); }

  /// Changes the condition of each printer.
  void change_conditions() {
    for (std::size_t i = 0; i < size(); ++i) {
      const auto total = 1 + random_() % 65534;
      const auto remaining = random_() % (total + 1);
      const bool well = random_() % 4 == 0;
      const auto& [code, keyword] = codes_[random_() % codes_.size()];
      conditions_[i] = {well ? "" : keyword, std::to_string(remaining * 100ULL / total),
                        "Ink Ribbon = " + std::to_string(remaining) + " / " + std::to_string(total),
                        "total " + std::to_string(total) + "; remaining " + std::to_string(remaining) +
                            "; code " + std::to_string(well ? 0 : code)};
      printers_[i]->tell(conditions_[i].setting);
    }
  }

  /// Sends a command job to all queues at the same time and waits for all jobs.
  /// @return the number of completed jobs.
  std::size_t report_all() {
    std::vector<int> jobs;
    for (std::size_t i = 0; i < size(); ++i) {
      jobs.push_back(scheduler.send_commands(queue(i), "ReportLevels\n"));
    }
    std::size_t completed = 0;
    for (const int job : jobs) {
      completed += scheduler.wait_for_job(job, std::chrono::seconds(120)) == IPP_JSTATE_COMPLETED;
    }
    return completed;
  }

  /// Result says whether a queue shows its own printer's condition, that of another printer, or neither.
  struct Tally {
    std::size_t right = 0;
    std::size_t crossed = 0;
    std::size_t lost = 0;
  };

  [[nodiscard]] Tally compare() const {
    Tally tally;
    for (std::size_t i = 0; i < size(); ++i) {
      const auto view = scheduler.view(queue(i));
      if (shows(view, conditions_[i])) {
        ++tally.right;
      } else if (std::ranges::any_of(conditions_, [&](const auto& other) { return shows(view, other); })) {
        ++tally.crossed;
      } else {
        ++tally.lost;
      }
    }
    return tally;
  }

  PrivateScheduler scheduler;

 private:
  static bool shows(const QueueView& view, const Condition& condition) {
    // The backend reports its connection while another job is running, for example one of a monitor.
    std::set<std::string> errors;
    std::ranges::copy_if(view.reasons, std::inserter(errors, errors.end()),
                         [](const auto& reason) { return reason.starts_with("com.brenvellis-"); });
    const std::set<std::string> expected =
        condition.reason.empty() ? std::set<std::string>() : std::set{condition.reason};
    return errors == expected && view.marker.contains("marker-levels") &&
           view.marker.at("marker-levels") == condition.level &&
           view.marker.at("marker-message") == condition.message;
  }

  // The same conditions in every run.
  std::mt19937 random_;
  std::vector<std::unique_ptr<NetworkPrinter>> printers_;
  std::vector<Condition> conditions_;
  std::vector<std::pair<unsigned, std::string>> codes_;
};

/// ProcessSize has the resources of a running program; all 0 if it has exited.
struct ProcessSize {
  long resident_kib = 0;
  long peak_kib = 0;
  std::size_t descriptors = 0;
  std::size_t children = 0;
  std::size_t zombies = 0;  ///< among the children
};

inline ProcessSize size_of(pid_t pid) {
  ProcessSize size;
  const std::filesystem::path process = "/proc/" + std::to_string(pid);
  std::ifstream status(process / "status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") {
      status >> size.resident_kib;
    } else if (word == "VmHWM:") {
      status >> size.peak_kib;
    }
  }
  std::error_code gone;
  const std::filesystem::directory_iterator end;
  for (std::filesystem::directory_iterator entry(process / "fd", gone); entry != end; entry.increment(gone)) {
    ++size.descriptors;
  }
  std::ifstream children(process / "task" / std::to_string(pid) / "children");
  for (pid_t child = 0; children >> child;) {
    ++size.children;
    std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
    std::string text;
    std::getline(stat, text);
    const auto name_end = text.rfind(')');
    size.zombies += name_end != std::string::npos && text.substr(name_end + 2, 1) == "Z";
  }
  return size;
}
