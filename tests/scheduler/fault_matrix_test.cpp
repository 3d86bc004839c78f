// SPDX-License-Identifier: Apache-2.0
// Causes each fault at each step of a ReportLevels job and prints the table in fault_matrix.md.

#include <algorithm>
#include <csignal>
#include <fstream>
#include <functional>
#include <future>
#include <regex>
#include <thread>

#include "tests/scheduler/faults.h"
#include "tests/scheduler/one_printer.h"
#include "tests/support/expected_log.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

/// The result of a job.
struct Outcome {
  std::string end;     ///< of the filter: "exit 0", "signal 13", or "?" if unknown
  std::string level;   ///< marker-levels, "-" if it was not reported
  std::string reason;  ///< the error raised, "-" if none
  bool operator==(const Outcome&) const = default;
};

struct Row {
  Step step;
  Fault fault;
  Outcome expected;
  Outcome seen = {};
  bool next_report_is_true = false;
  std::string queue = {};
  int job = 0;

  [[nodiscard]] std::string name() const {
    return std::string(to_string(fault)) + " at " + std::string(to_string(step));
  }
};

const std::string UNKNOWN = "0004";
const std::string TRUE_REASON = "0008_2660";

/// Returns the outcome that the filter's rules require for a fault at a step.
Outcome expected_outcome(Step step, Fault fault) {
  const bool before_status = step < Step::Between;
  if (fault == Fault::JobCancelled) {
    return {"signal 15", "*", "*"};
  }
  if (fault == Fault::LogClosed) {
    // Earlier lines may have been lost.
    return {"signal 13", before_status ? "-" : "*", "-"};
  }
  if (fault == Fault::SchedulerKilled) {
    return {"?", "*", "*"};
  }
  if (fault == Fault::LogFullAndSlow) {
    return {"exit 0", "50", TRUE_REASON};
  }
  if (fault == Fault::Garbage) {
    if (step < Step::Between) {
      return {"exit 0", "-1", UNKNOWN};
    }
    return {"exit 0", "50", step == Step::StatusSecondRead ? TRUE_REASON : UNKNOWN};
  }
  if (fault == Fault::LateAskedAgain) {
    // The filter does not read the printer's second reply, 2100.
    return {"exit 0", "50", step == Step::StatusSecondRead ? UNKNOWN : TRUE_REASON};
  }
  const std::string level = before_status ? "-2" : "50";
  if (step == Step::Probe && fault != Fault::Silent && fault != Fault::Closes) {
    // Without a bidirectional connection, nothing is queried and the state is left alone.
    return {"exit 0", "-2", "-"};
  }
  if (fault == Fault::Dies && step <= Step::Between) {
    return {"signal 13", level, "-"};
  }
  return {"exit 0", level, UNKNOWN};
}

/// Returns the reply that the query after the late one traces: bytes of the late reply. Empty if there is no
/// such query.
std::string late_bytes(Step step, Fault fault) {
  if (fault == Fault::Late && step > Step::Probe && step < Step::Between) {
    return levels_reply(200, 400, 2).substr(step == Step::LevelsSecondRead ? 10 : 0);
  }
  if (fault == Fault::LateAskedAgain) {
    return step == Step::StatusSecondRead
               ? status_reply(0x2660).substr(10) + status_reply(0x2100).substr(0, 10)
               : status_reply(0x2660);
  }
  return "";
}

/// A scheduler with the faulty backend and a queue for each row.
class Matrix {
 public:
  explicit Matrix(const std::vector<Fault>& faults) {
    fs::create_directory(plans());
    fs::permissions(plans(), fs::perms::all);
    for (const Fault fault : faults) {
      for (const auto& [step, name] : STEPS) {
        if (fault == Fault::LateAskedAgain && step < Step::Between) {
          continue;  // is queried again anyway
        }
        Row row{step, fault, expected_outcome(step, fault)};
        row.queue = "q" + std::to_string(rows.size());
        scheduler.add_queue(row.queue, "faulty:" + plan_of(row));
        rows.push_back(row);
      }
    }
  }

  /// A filter whose log will be closed writes it to a process that can be killed, unlike the scheduler.
  void put_a_reader_before_the_log() const {
    const fs::path filter = scheduler.path() / "bin/filter/commandtobrenvellis";
    fs::rename(filter, filter.string() + ".real");
    std::ofstream(filter) << "#!/bin/sh\nplan=" << plans().string() << "/$PRINTER real=" << filter.string()
                          << R"sh(.real
[ "$(sed -n 2p "$plan" 2>/dev/null)" = ")sh"
                          << to_string(Fault::LogClosed) << R"sh(" ] || exec "$real" "$@"
mkfifo "$plan.log"
cat <"$plan.log" >&2 3>&- 4>&- &
echo $! >"$plan.reader"
exec "$real" "$@" 2>"$plan.log"
)sh";
    fs::permissions(filter, fs::perms(0755));
  }

  /// Sends a job with its fault to each queue.
  void send(const std::string& commands, std::optional<Fault> backend_fault = {}) {
    for (auto& row : rows) {
      write_plan(plan_of(row), {row.step, backend_fault.value_or(row.fault)});
      fs::permissions(plan_of(row), fs::perms(0666));
      row.job = scheduler.send_commands(
          row.queue, row.fault == Fault::LateAskedAgain ? commands + "ReportStatus\n" : commands);
    }
  }

  void wait_until_reached() const {
    for (const auto& row : rows) {
      wait_for([&] { return fs::exists(plan_of(row) + ".reached"); }, row.name() + " is reached");
    }
  }

  void go_on() const {
    for (const auto& row : rows) {
      std::ofstream(plan_of(row) + ".go") << "";
    }
  }

  /// Starts the backends that will die. The scheduler keeps a filter's output open until it has started the
  /// whole job, so a dead backend would not terminate a filter that writes earlier.
  void let_die() const {
    for (const auto& row : rows) {
      if (row.fault == Fault::Dies) {
        wait_for([&] { return fs::exists(plan_of(row) + ".reached"); }, row.name() + ": the backend runs");
      }
    }
    // The scheduler answers after it has started them.
    (void)scheduler.view(rows.front().queue);
    go_on();
  }

  /// Waits for the end of each filter, and records how it ended and what a client sees.
  void see() {
    for (auto& row : rows) {
      wait_for([&] { return !(row.seen.end = filter_end(row.job)).empty(); }, row.name() + ": an end");
    }
    for (auto& row : rows) {
      // Wait for the last lines of the log.
      for (int i = 0; i < 100; ++i) {
        look(row);
        if (matches(row.seen, row.expected)) {
          break;
        }
        std::this_thread::sleep_for(milliseconds(50));
      }
    }
  }

  /// Ends jobs that still wait, and checks the next report and that no process is left.
  void finish() {
    for (auto& row : rows) {
      if (scheduler.job_state(row.job) < IPP_JSTATE_CANCELED) {
        scheduler.cancel_job(row.job);
      }
      EXPECT_GE(scheduler.wait_for_job(row.job, std::chrono::seconds(60)), IPP_JSTATE_CANCELED);
    }
    EXPECT_EQ(processes_left(), 0U);
    for (auto& row : rows) {
      row.job = scheduler.send_commands(row.queue, "ReportLevels\n");
    }
    for (auto& row : rows) {
      const auto state = scheduler.wait_for_job(row.job, std::chrono::seconds(60));
      const auto view = scheduler.view(row.queue);
      row.next_report_is_true =
          state == IPP_JSTATE_COMPLETED && view.marker == HALF_USED && view.reasons == ERROR_2660;
    }
    EXPECT_EQ(processes_left(), 0U);
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(scheduler.path() / "tmp")) {
      files += entry.is_regular_file();
    }
    EXPECT_EQ(files, 0U) << "in the filters' folder for temporary files";
  }

  /// The traces of all status replies that a job's filter had.
  [[nodiscard]] std::string traced_status_replies(const Row& row) const {
    std::string lines;
    for (const auto& line : scheduler.job_log(row.job)) {
      if (line.starts_with("[STS]")) {
        lines.append("DEBUG: ").append(line).append("\n");
      }
    }
    return lines;
  }

  static bool matches(const Outcome& seen, const Outcome& expected) {
    const auto same = [](const std::string& a, const std::string& b) { return b == "*" || a == b; };
    return same(seen.end, expected.end) && same(seen.level, expected.level) &&
           same(seen.reason, expected.reason);
  }

  /// Looks at the queue as a client.
  void look(Row& row) const {
    const auto view = scheduler.view(row.queue);
    row.seen.level = view.marker.contains("marker-levels") ? view.marker.at("marker-levels") : "-";
    row.seen.reason = view.reasons.empty() ? "-" : "";
    for (const auto& reason : view.reasons) {
      row.seen.reason +=
          (row.seen.reason.empty() ? "" : " ") + reason.substr(sizeof "com.brenvellis-error" - 1);
    }
  }

  /// Returns how the job's filter ended according to the scheduler's log; empty if it is still running.
  [[nodiscard]] std::string filter_end(int job) const {
    static const std::regex exited(R"(PID \d+ \(\S*/commandtobrenvellis\) exited with no errors\.)");
    // "was terminated normally with", "crashed on" or "did not catch or ignore".
    static const std::regex crashed(R"(PID \d+ \(\S*/commandtobrenvellis\) .* signal (\d+)\.)");
    static const std::regex stopped(R"(PID \d+ \(\S*/commandtobrenvellis\) stopped with status (\d+).*)");
    for (const auto& line : scheduler.job_log(job)) {
      std::smatch part;
      if (std::regex_match(line, exited)) {
        return "exit 0";
      }
      if (std::regex_match(line, part, crashed)) {
        return "signal " + part[1].str();
      }
      if (std::regex_match(line, part, stopped)) {
        return "exit " + part[1].str();
      }
    }
    return "";
  }

  /// The filters and backends of this scheduler that run, after they have had time to end.
  [[nodiscard]] std::size_t processes_left() const {
    std::size_t left = 0;
    for (int i = 0; i < 200; ++i) {
      left = 0;
      for (const auto& entry : fs::directory_iterator("/proc")) {
        std::error_code gone;
        const auto program = fs::read_symlink(entry.path() / "exe", gone);
        left += !gone && program.string().starts_with((scheduler.path() / "bin").string());
      }
      if (left == 0) {
        break;
      }
      std::this_thread::sleep_for(milliseconds(50));
    }
    return left;
  }

  static void wait_for(const std::function<bool()>& condition, const std::string& what) {
    for (int i = 0; i < 900; ++i) {
      if (condition()) {
        return;
      }
      std::this_thread::sleep_for(milliseconds(100));
    }
    ADD_FAILURE() << "timed out waiting until " << what;
  }

  [[nodiscard]] fs::path plans() const { return scheduler.path() / "plans"; }
  [[nodiscard]] std::string plan_of(const Row& row) const { return (plans() / row.queue).string(); }

  PrivateScheduler scheduler{{.backends = {{"faulty", FAULTY_BACKEND}}}};
  std::vector<Row> rows;
};

using Rows = std::vector<Row>;

Rows backend_and_printer_faults() {
  Matrix matrix({Fault::Dies, Fault::Stalls, Fault::Silent, Fault::Closes, Fault::Garbage, Fault::Late,
                 Fault::LateAskedAgain, Fault::LogClosed});
  matrix.put_a_reader_before_the_log();
  matrix.send("ReportLevels\n");
  matrix.let_die();
  matrix.see();
  for (const auto& row : matrix.rows) {
    const std::string bytes = late_bytes(row.step, row.fault);
    if (!bytes.empty()) {
      EXPECT_EQ(matrix.traced_status_replies(row), trace_lines("[STS]", bytes))
          << row.name() << ": the late bytes are read by the next query";
    }
  }
  matrix.finish();
  return matrix.rows;
}

Rows cancelled_jobs() {
  Matrix matrix({Fault::JobCancelled});
  matrix.send("ReportLevels\n", Fault::Waits);
  matrix.wait_until_reached();
  for (const auto& row : matrix.rows) {
    matrix.scheduler.cancel_job(row.job);
  }
  matrix.see();
  matrix.finish();
  return matrix.rows;
}

Rows killed_scheduler() {
  Matrix matrix({Fault::SchedulerKilled});
  // Otherwise, the scheduler would wait for half a minute before it saves its state.
  std::ofstream(matrix.scheduler.path() / "etc/cupsd.conf", std::ios::app) << "DirtyCleanInterval 0\n";
  matrix.scheduler.restart(SIGTERM);
  matrix.send("ReportLevels\n", Fault::Waits);
  matrix.wait_until_reached();
  matrix.scheduler.restart(SIGKILL);
  matrix.go_on();
  for (auto& row : matrix.rows) {
    // The new scheduler finds the job in its spool and runs it again.
    EXPECT_EQ(matrix.scheduler.wait_for_job(row.job, std::chrono::seconds(60)), IPP_JSTATE_COMPLETED);
    matrix.look(row);
    row.seen.end = "?";
  }
  matrix.finish();
  return matrix.rows;
}

Rows slow_log() {
  Matrix matrix({Fault::LogFullAndSlow});
  std::string commands;
  for (int i = 0; i < 30; ++i) {
    commands += "ReportLevels\n";
  }
  matrix.send(commands, Fault::Waits);
  matrix.wait_until_reached();
  // The log is not read now, and 30 reports exceed the capacity of a pipe.
  kill(matrix.scheduler.pid(), SIGSTOP);
  matrix.go_on();
  std::this_thread::sleep_for(std::chrono::seconds(4));
  EXPECT_EQ(matrix.scheduler.running_filters().size(), matrix.rows.size())
      << "every filter waits for its log";
  kill(matrix.scheduler.pid(), SIGCONT);
  matrix.see();
  matrix.finish();
  return matrix.rows;
}

TEST(FaultMatrix, EachFaultHasTheExpectedOutcomeAndTheNextReportIsCorrect) {
  std::vector<std::future<Rows>> groups;
  for (const auto group : {backend_and_printer_faults, cancelled_jobs, killed_scheduler, slow_log}) {
    groups.push_back(std::async(std::launch::async, group));
  }
  printf("| fault | step | filter | level | reason | next report |\n|---|---|---|---|---|---|\n");
  for (auto& group : groups) {
    for (const auto& row : group.get()) {
      EXPECT_TRUE(Matrix::matches(row.seen, row.expected))
          << row.name() << ": expected " << row.expected.end << ", " << row.expected.level << ", "
          << row.expected.reason;
      EXPECT_TRUE(row.next_report_is_true) << row.name();
      printf("| %s | %s | %s | %s | %s | %s |\n", std::string(to_string(row.fault)).c_str(),
             std::string(to_string(row.step)).c_str(), row.seen.end.c_str(), row.seen.level.c_str(),
             row.seen.reason.c_str(), row.next_report_is_true ? "correct" : "WRONG");
    }
  }
}

/// A filter whose standard error is closed at the start.
class ClosedLog : public OnePrinter {
 protected:
  ClosedLog() {
    const fs::path filter = scheduler.path() / "bin/filter/commandtobrenvellis";
    fs::rename(filter, filter.string() + ".real");
    std::ofstream(once) << "";
    std::ofstream(filter) << "#!/bin/sh\n[ -e " << once.string() << " ] && exec " << filter.string()
                          << ".real \"$@\" 2>&-\nexec " << filter.string() << ".real \"$@\"\n";
    fs::permissions(filter, fs::perms(0755));
  }

  const fs::path once = scheduler.path() / "once";
};

TEST_F(ClosedLog, LosesTheReportAndTheNextOneIsCorrect) {
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.reasons, NO_REASON);
  EXPECT_TRUE(view.marker.empty());
  EXPECT_EQ(printer.requests().size(), 2U) << "both exchanges take place";

  fs::remove(once);
  const auto next = scheduler.report("booth");
  EXPECT_EQ(next.reasons, ERROR_2660);
  EXPECT_EQ(next.marker, HALF_USED);
}

}  // namespace
