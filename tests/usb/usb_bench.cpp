// SPDX-License-Identifier: Apache-2.0
// Compares the time of a report with the usb backend and with the socket backend.

#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/bench/measure.h"
#include "tests/usb/usb_printer.h"

namespace {

/// Notes when a line appears in the scheduler's log.
class LogWatch {
 public:
  explicit LogWatch(const PrivateScheduler& scheduler) : log_(scheduler.path() / "error_log") {
    log_.seekg(0, std::ios::end);
  }

  /// @return when the next line with both texts was seen.
  double wait_for(const std::string& text, const std::string& end) {
    const double limit = now() + 120;
    for (;;) {
      for (std::string line; std::getline(log_, line);) {
        if (line.find(text) != std::string::npos && line.find(end) != std::string::npos) {
          return now();
        }
      }
      if (now() > limit) {
        give_up("the log has no line with \"" + text + "\"");
      }
      log_.clear();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  std::ifstream log_;
};

struct Row {
  std::string connection;
  std::string queue;
  bool answers_idle_reads;
  int rounds;
  std::vector<double> job = {};
  std::vector<double> filter = {};
};

}  // namespace

int main(int argc, char* argv[]) {
  const bool quick = argc > 1 && std::string(argv[1]) == "quick";
  const NetworkPrinter network;
  const PrivateScheduler scheduler;
  const UsbPrinter usb(scheduler);
  scheduler.add_queue("network", network.device_uri());
  scheduler.add_queue("usb", UsbPrinter::device_uri());
  const std::string filter = "/commandtobrenvellis";

  std::vector<Row> rows = {{"`socket`", "network", true, quick ? 1 : 20},
                           {"`usb`, an idle read gets an empty packet", "usb", true, quick ? 1 : 20},
                           {"`usb`, an idle read gets no answer", "usb", false, quick ? 1 : 5}};
  for (int round = 0; round < rows[0].rounds; ++round) {
    for (Row& row : rows) {
      if (round >= row.rounds) {
        continue;
      }
      usb.answer_idle_reads(row.answers_idle_reads);
      LogWatch filter_log(scheduler);
      LogWatch backend_log(scheduler);
      const double start = now();
      static_cast<void>(scheduler.send_commands(row.queue, "ReportLevels\n"));
      const double started = filter_log.wait_for("Started filter", filter);
      row.filter.push_back((filter_log.wait_for(filter, "exited") - started) * 1e3);
      // A crash at its end is the backend's end, too.
      backend_log.wait_for("/bin/backend/", "PID");
      backend_log.wait_for("/bin/backend/", "PID");
      row.job.push_back((now() - start) * 1e3);
      if (scheduler.view(row.queue).marker.at("marker-levels") != "100") {
        give_up("the level is not the printer's");
      }
    }
  }

  std::printf(
      "| connection | from sending the job to its end, ms: median (quartiles) | the filter, ms: median "
      "(quartiles) | jobs |\n|---|--:|--:|--:|\n");
  for (const Row& row : rows) {
    const Spread job = spread(row.job);
    const Spread filter_time = spread(row.filter);
    std::printf("| %s | %.0f (%.0f to %.0f) | %.0f (%.0f to %.0f) | %d |\n", row.connection.c_str(),
                job.median, job.low, job.high, filter_time.median, filter_time.low, filter_time.high,
                row.rounds);
  }
}
