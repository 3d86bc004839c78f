// SPDX-License-Identifier: Apache-2.0
// Measures the load of a monitor on a fleet's print server in an hour: fleet_bench BEFORE quick|full. BEFORE
// is an older monitor that queried each queue in each round.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/bench/measure.h"
#include "tests/support/child_process.h"
#include "tests/support/free_port.h"
#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"
#include "tests/support/temporary_folder.h"

namespace {

/// The size of the fleet, and the acceleration of its time.
struct Scale {
  int queues;
  int factor;
  int warm_up_minutes;
  int minutes;
  int errors;  ///< how many are waited for

  [[nodiscard]] double seconds(int life_minutes) const { return life_minutes * 60.0 / factor; }
};

/// An interval that a print comes to each queue, in minutes of life.
constexpr int PRINT_EVERY = 5;

enum class Kind : std::uint8_t { Idle, Printing, Dead };
enum class Way : std::uint8_t { None, Before, Now };

/// Returns how a row is measured. Costs that are the same in every minute are measured for a few minutes, at
/// a pace that a busy machine can follow.
Scale scale_of(Kind kind, Way way, bool quick) {
  if (quick) {
    return {3, 60, 2, 6, 1};
  }
  if (kind == Kind::Printing) {
    return {100, 4, 5, 10, 7};
  }
  // After 16 minutes an idle queue has reached its longest interval, and the monitor queries it once in 15
  // minutes.
  return way == Way::Now ? Scale{100, 10, 16, 15, 0} : Scale{100, 2, 1, 4, 0};
}

/// The resources used so far.
struct Used {
  double scheduler = 0;  ///< CPU, in seconds
  double children = 0;   ///< CPU of its filters and backends that have exited, in seconds
  double monitor = 0;    ///< CPU of the monitor and its processes, in seconds
  double kib = 0;        ///< KiB that the scheduler wrote to the disk
  long jobs = 0;
};

struct ProcessTime {
  double own = 0;
  double children = 0;
};

/// Returns the CPU time of a process and of its children that have exited, in seconds.
ProcessTime time_of(pid_t pid) {
  const std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string skipped;
  constexpr int before_times = 11;
  for (int i = 0; i < before_times; ++i) {
    fields >> skipped;
  }
  std::array<double, 4> ticks{};
  for (auto& one : ticks) {
    fields >> one;
  }
  const auto per_second = static_cast<double>(sysconf(_SC_CLK_TCK));
  return {(ticks[0] + ticks[1]) / per_second, (ticks[2] + ticks[3]) / per_second};
}

double written_kib(pid_t pid) {
  std::ifstream io("/proc/" + std::to_string(pid) + "/io");
  for (std::string name, value; io >> name >> value;) {
    if (name == "write_bytes:") {
      return std::stod(value) / 1024;
    }
  }
  give_up("the scheduler's output cannot be counted");
}

/// A print server with a fleet and, in most cases, a monitor that watches it.
class WatchedFleet {
 public:
  WatchedFleet(Kind kind, Way way, const std::string& before, const Scale& scale)
      : kind_(kind), scale_(scale) {
    // The scheduler saves its lists this long after a change, by default 30 seconds.
    std::ofstream(scheduler_.path() / "etc/cupsd.conf", std::ios::app)
        << "DirtyCleanInterval " << 30 / scale.factor << "\n";
    scheduler_.restart(SIGTERM);
    scheduler_.add_queue("probe", probe_.device_uri(), "");
    const std::string nowhere = "socket://127.0.0.1:" + std::to_string(free_port());
    for (int i = 0; i < scale.queues; ++i) {
      if (kind != Kind::Dead) {
        printers_.push_back(std::make_unique<NetworkPrinter>());
      }
      scheduler_.add_queue(queue(i), kind == Kind::Dead ? nowhere : printers_.back()->device_uri());
    }
    const auto scaled = [&](int seconds) { return std::to_string(std::max(1, seconds / scale.factor)); };
    std::vector<std::string> words = {way == Way::Before ? before : MONITOR_PROGRAM,
                                      "--server",
                                      scheduler_.server(),
                                      "--watch",
                                      scaled(60),
                                      "--json=" + json_.string()};
    if (way == Way::Before) {
      words.insert(words.end(), {"--timeout", scaled(30)});
    } else {
      words.insert(words.end(), {"--idle", scaled(900), "--timeout", scaled(10)});
    }
    if (way != Way::None) {
      monitor_.emplace(ChildProcess::Options{words, {}, {}});
    }
  }

  /// Lets the time pass and sends the prints that are due.
  void pass(int life_minutes) {
    const double start = now();
    const double pause = scale_.seconds(PRINT_EVERY) / scale_.queues;
    double next_print = start;
    while (now() < start + scale_.seconds(life_minutes)) {
      if (kind_ == Kind::Printing && now() >= next_print) {
        static_cast<void>(scheduler_.send_raw(queue(prints_++ % scale_.queues), "a print"));
        next_print += pause;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  [[nodiscard]] Used used() {
    Used used;
    used.jobs = scheduler_.send_raw("probe", "x") - ++probes_ - prints_;
    const auto server = time_of(scheduler_.pid());
    used.scheduler = server.own;
    used.children = server.children;
    used.kib = written_kib(scheduler_.pid());
    if (monitor_) {
      const auto monitor = time_of(monitor_->pid());
      used.monitor = monitor.own + monitor.children;
      const std::string pid = std::to_string(monitor_->pid());
      std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
      for (pid_t child = 0; children >> child;) {
        used.monitor += time_of(child).own;
      }
    }
    return used;
  }

  /// How long after the end of a print the monitor shows the error that came with it, in seconds of the
  /// watch.
  [[nodiscard]] double error_delay(int number) {
    printers_.at(static_cast<std::size_t>(number))->tell("code 0x2660");
    ++prints_;
    const int job = scheduler_.send_raw(queue(number), "a print");
    if (scheduler_.wait_for_job(job) != IPP_JSTATE_COMPLETED) {
      give_up("a print did not end");
    }
    const double start = now();
    while (!shows_error(queue(number))) {
      if (now() > start + scale_.seconds(PRINT_EVERY * 12)) {
        give_up("the monitor shows no error");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return now() - start;
  }

 private:
  static std::string queue(int number) { return "booth" + std::to_string(number); }

  [[nodiscard]] bool shows_error(const std::string& name) const {
    std::ifstream file(json_);
    const auto report = nlohmann::json::parse(file, nullptr, false);
    if (report.is_discarded()) {
      return false;
    }
    for (const auto& one : report["servers"].at(0)["queues"]) {
      if (one["queue"] == name) {
        return !one["errors"].empty();
      }
    }
    return false;
  }

  Kind kind_;
  Scale scale_;
  TemporaryFolder folder_;
  std::filesystem::path json_ = folder_.path() / "report";
  PrivateScheduler scheduler_{{.configuration = PrivateScheduler::Configuration::DEFAULT, .log = false}};
  NetworkPrinter probe_;
  std::vector<std::unique_ptr<NetworkPrinter>> printers_;
  std::optional<ChildProcess> monitor_;
  int prints_ = 0;
  int probes_ = 0;
};

void print_row(Kind kind, Way way, const std::string& before, const Scale& scale) {
  constexpr double hour = 60;
  const double times = hour / scale.minutes;
  WatchedFleet fleet(kind, way, before, scale);
  fleet.pass(scale.warm_up_minutes);
  const Used start = fleet.used();
  fleet.pass(scale.minutes);
  const Used end = fleet.used();

  std::string delay = "";
  if (kind == Kind::Printing && way != Way::None) {
    std::vector<double> delays;
    for (int i = 0; i < scale.errors; ++i) {
      delays.push_back(fleet.error_delay(i) * scale.factor);
    }
    std::array<char, 64> text{};
    const Spread spread_of = spread(delays);
    std::snprintf(text.data(), text.size(), "%.0f (%.0f to %.0f)", spread_of.median, spread_of.low,
                  spread_of.high);
    delay = text.data();
  }
  constexpr std::array kinds = {"idle", "a print every 5 minutes", "dead"};
  constexpr std::array ways = {"no monitor", "every minute", "now"};
  std::printf("| %s | %s | %.0f | %.1f | %.1f | %.1f | %.1f | %s |\n",
              kinds.at(static_cast<std::size_t>(kind)), ways.at(static_cast<std::size_t>(way)),
              times * static_cast<double>(end.jobs - start.jobs), times * (end.scheduler - start.scheduler),
              times * (end.children - start.children), times * (end.monitor - start.monitor),
              times * (end.kib - start.kib) / 1024, delay.c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 3 && argc != 4) {
    give_up("usage: fleet_bench BEFORE quick|full [idle|printing|dead]");
  }
  const std::string only = argc == 4 ? argv[3] : "";
  const std::string before = argv[1];
  const bool quick = std::string(argv[2]) == "quick";
  std::printf(
      "| queues | asked | command jobs | CPU of the scheduler, s | of its filters and backends, s | of the "
      "monitor, s | written by the scheduler, MiB | from a print's end to its error, s: median (quartiles) "
      "|\n"
      "|---|---|--:|--:|--:|--:|--:|--:|\n");
  for (const auto& [name, kind] :
       {std::pair("idle", Kind::Idle), {"printing", Kind::Printing}, {"dead", Kind::Dead}}) {
    if (!only.empty() && only != name) {
      continue;
    }
    for (const auto way : {Way::None, Way::Before, Way::Now}) {
      const bool costs_anything = kind == Kind::Printing || way != Way::None;
      if (costs_anything && (way != Way::Before || !before.empty())) {
        print_row(kind, way, before, scale_of(kind, way, quick));
      }
    }
  }
}
