// SPDX-License-Identifier: Apache-2.0
// Causes faults of a USB printer, checks the next two reports and prints the table in fault_matrix.md.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/usb/usb_job_log.h"
#include "tests/usb/usb_printer.h"

namespace {

/// A scheduler with two queues to one printer. Both queues show the printer's first condition.
struct Booth {
  Booth() {
    scheduler.add_queue("booth", UsbPrinter::device_uri());
    scheduler.add_queue("kiosk", UsbPrinter::device_uri());
    for (const char* queue : {"booth", "kiosk"}) {
      static_cast<void>(scheduler.report(queue));
    }
    printer.answer_idle_reads(false);
  }

  [[nodiscard]] int send() const { return scheduler.send_commands("booth", "ReportLevels\n"); }
  void finish(int job) const { static_cast<void>(end_of(scheduler, job)); }
  void wait_for_log(int job, const std::string& text) const {
    EXPECT_TRUE(logs(scheduler, job, text)) << "job " << job << ": " << text;
  }
  [[nodiscard]] int run() const {
    const int job = send();
    finish(job);
    return job;
  }
  /// Waits until both late replies have left the printer.
  static void wait_for_late_replies() { std::this_thread::sleep_for(std::chrono::seconds(16)); }

  PrivateScheduler scheduler;
  UsbPrinter printer{scheduler, {"idle empty"}, {"--remaining", "200", "--total", "400", "--code", "0x2100"}};
};

/// Sight is what a client sees of a queue.
struct Sight {
  std::string level;
  std::string reason;
  bool operator==(const Sight&) const = default;
};

const Sight BEFORE = {"50", "0007_2100"};      ///< the printer's condition before and during the fault
const Sight AFTERWARDS = {"25", "0008_2660"};  ///< the printer's condition at the next two reports
const Sight UNKNOWN = {"-2", "0004"};
const Sight LEVEL_UNKNOWN = {"-2", "0007_2100"};

struct Row {
  std::string fault;
  std::function<int(const Booth&)> cause;  ///< makes the fault and returns the job that met it
  std::string end;                         ///< the state of that job
  Sight seen;
  Sight next;
  Sight after = AFTERWARDS;
  std::string next_queue = "booth";
};

const std::vector<Row> ROWS = {
    {"none; an idle read gets no answer", [](const Booth& booth) { return booth.run(); }, "completed", BEFORE,
     AFTERWARDS},
    {"none; an idle read gets an empty packet",
     [](const Booth& booth) {
       booth.printer.answer_idle_reads(true);
       return booth.run();
     },
     "completed", BEFORE, AFTERWARDS},
    {"silent",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault silent");
       return booth.run();
     },
     "completed", UNKNOWN, AFTERWARDS},
    {"a reply breaks off after 10 bytes",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault short 10");
       return booth.run();
     },
     "completed", UNKNOWN, AFTERWARDS},
    {"each reply 8 s late",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault slow 8000");
       const int job = booth.run();
       Booth::wait_for_late_replies();
       return job;
     },
     "completed",
     UNKNOWN,
     {"0", "0008_2660"}},
    {"each reply 8 s late; an idle read gets an empty packet",
     [](const Booth& booth) {
       booth.printer.answer_idle_reads(true);
       booth.printer.inside().tell("fault slow 8000");
       const int job = booth.run();
       Booth::wait_for_late_replies();
       return job;
     },
     "completed",
     UNKNOWN,
     {"50", "0008_2660"}},
    {"each reply 8 s late, then a print",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault slow 8000");
       const int job = booth.run();
       Booth::wait_for_late_replies();
       booth.finish(booth.scheduler.send_raw("booth", std::string(1000, 'p')));
       return job;
     },
     "completed", UNKNOWN, AFTERWARDS},
    {"each reply 8 s late; the next report is another queue's",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault slow 8000");
       const int job = booth.run();
       Booth::wait_for_late_replies();
       return job;
     },
     "completed",
     UNKNOWN,
     {"0", "0008_2660"},
     AFTERWARDS,
     "kiosk"},
    {"busy until the drain has timed out",
     [](const Booth& booth) {
       booth.printer.set_busy(true);
       const int job = booth.send();
       booth.wait_for_log(job, "CUPS_SC_STATUS_TIMEOUT");
       booth.printer.set_busy(false);
       booth.finish(job);
       return job;
     },
     "completed", BEFORE, AFTERWARDS},
    {"busy until the read has timed out",
     [](const Booth& booth) {
       booth.printer.set_busy(true);
       const int job = booth.send();
       booth.wait_for_log(job, "cupsBackChannelRead() failed");
       booth.printer.set_busy(false);
       booth.finish(job);
       return job;
     },
     "completed", LEVEL_UNKNOWN, AFTERWARDS},
    {"unplugged before the job, plugged in after its probe",
     [](const Booth& booth) {
       booth.printer.unplug();
       const int job = booth.send();
       booth.wait_for_log(job, "nobidirectional I/O available");
       booth.printer.plug();
       booth.finish(job);
       return job;
     },
     "completed", LEVEL_UNKNOWN, AFTERWARDS},
    {"unplugged while it takes the request",
     [](const Booth& booth) {
       booth.printer.set_busy(true);
       const int job = booth.send();
       booth.wait_for_log(job, "Read 10 bytes of print data");
       booth.printer.unplug();
       booth.wait_for_log(job, "Unable to send data to printer");
       booth.printer.set_busy(false);
       booth.printer.plug();
       return job;
     },
     "pending-held", LEVEL_UNKNOWN, AFTERWARDS},
    {"unplugged before it replies",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault silent");
       const int job = booth.send();
       booth.wait_for_log(job, "Wrote 10 bytes of print data");
       booth.printer.unplug();
       booth.wait_for_log(job, "Unable to send data to printer");
       booth.printer.plug();
       return job;
     },
     "pending-held", UNKNOWN, AFTERWARDS},
    {"job purged while the backend waits for its reader",
     [](const Booth& booth) {
       const int job = booth.send();
       booth.wait_for_log(job, "Waiting for read thread to exit");
       booth.scheduler.purge_job(job);
       return job;
     },
     "canceled", BEFORE, AFTERWARDS},
    {"job purged before the reply, which is 8 s late",
     [](const Booth& booth) {
       booth.printer.inside().tell("fault slow 8000");
       const int job = booth.send();
       booth.wait_for_log(job, "Wrote 10 bytes of print data");
       booth.scheduler.purge_job(job);
       Booth::wait_for_late_replies();
       return job;
     },
     "canceled",
     BEFORE,
     {"50", "0008_2660"}},
    {"one direction (protocol 1)",
     [](const Booth& booth) {
       booth.printer.unplug();
       booth.printer.set_protocol(1);
       booth.printer.plug();
       return booth.run();
     },
     "completed", LEVEL_UNKNOWN, LEVEL_UNKNOWN, LEVEL_UNKNOWN},
};

Sight look(const PrivateScheduler& scheduler, const std::string& queue) {
  const auto view = scheduler.view(queue);
  std::string reasons;
  for (const auto& reason : view.reasons) {
    const std::string prefix = "com.brenvellis-error";
    reasons +=
        (reasons.empty() ? "" : " ") + (reason.starts_with(prefix) ? reason.substr(prefix.size()) : reason);
  }
  return {view.marker.at("marker-levels"), reasons.empty() ? "-" : reasons};
}

struct Outcome {
  std::string end;
  Sight seen, next, after;
  std::string log;  ///< of the job that met the fault
};

Outcome run(const Row& row) {
  const Booth booth;
  const int job = row.cause(booth);
  Outcome outcome;
  outcome.end = end_of(booth.scheduler, job);
  outcome.seen = look(booth.scheduler, "booth");
  for (const auto& line : booth.scheduler.job_log(job)) {
    outcome.log += line + "\n";
  }
  booth.printer.inside().tell("fault none; remaining 100; code 0x2660");
  booth.printer.answer_idle_reads(true);
  for (Sight* sight : {&outcome.next, &outcome.after}) {
    booth.finish(booth.scheduler.send_commands(row.next_queue, "ReportLevels\n"));
    *sight = look(booth.scheduler, row.next_queue);
  }
  return outcome;
}

std::string cell(const Sight& sight) {
  return sight.level + ", " + sight.reason;
}

std::string judged(const Sight& sight) {
  return sight == AFTERWARDS ? "correct" : "**" + cell(sight) + "**";
}

TEST(UsbFaultMatrix, TheNextReportsMatchTheTable) {
  if (const std::string reason = UsbPrinter::why_not(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  // Rows run in parallel because most of their time is waiting.
  std::vector<Outcome> outcomes(ROWS.size());
  std::atomic<std::size_t> next_row = 0;
  {
    std::vector<std::jthread> workers;
    for (int i = 0; i < 6; ++i) {
      workers.emplace_back([&] {
        for (std::size_t row = next_row++; row < ROWS.size(); row = next_row++) {
          try {
            outcomes[row] = run(ROWS[row]);
          } catch (const std::exception& error) {
            outcomes[row].log = error.what();
          }
        }
      });
    }
  }
  printf("| fault | job | level, reason | next report | the one after it |\n|---|---|---|---|---|\n");
  for (std::size_t i = 0; i < ROWS.size(); ++i) {
    const Row& row = ROWS[i];
    const Outcome& seen = outcomes[i];
    EXPECT_EQ(seen.end, row.end) << row.fault << "; the job's log:\n" << seen.log;
    EXPECT_EQ(cell(seen.seen), cell(row.seen)) << row.fault;
    EXPECT_EQ(cell(seen.next), cell(row.next)) << row.fault << ": the next report";
    EXPECT_EQ(cell(seen.after), cell(row.after)) << row.fault << ": the report after the next";
    printf("| %s | %s | %s | %s | %s |\n", row.fault.c_str(), seen.end.c_str(), cell(seen.seen).c_str(),
           judged(seen.next).c_str(), judged(seen.after).c_str());
  }
}

}  // namespace
