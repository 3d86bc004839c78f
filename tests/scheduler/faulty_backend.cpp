// SPDX-License-Identifier: Apache-2.0
// A backend with a built-in printer that has one fault at one step of a job. The device URI is "faulty:FILE".
// The file contains a step and a fault, and is renamed to FILE.done when the fault occurs, so that the next
// job has no fault.

#include <cups/cups.h>
#include <cups/sidechannel.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "tests/scheduler/faults.h"
#include "tests/support/expected_log.h"

namespace {

std::string plan_file;
std::optional<Plan> plan;  ///< until its fault happens
bool silent = false;       ///< the printer no longer sends data
bool closed = false;       ///< the printer also no longer accepts data
std::string taken;         ///< data from the filter that is not answered yet
bool asked_again = false;
int status_replies = 0;

void pause_ms(int milliseconds) {
  usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

/// Sends bytes to the filter after it has read the previous ones or had time to do so.
void send(const std::string& bytes) {
  for (int i = 0; i < 300; ++i) {
    int unread = 0;
    if (ioctl(3, FIONREAD, &unread) != 0 || unread == 0) {
      break;
    }
    pause_ms(10);
  }
  if (!silent) {
    cupsBackChannelWrite(bytes.data(), bytes.size(), 1.0);
  }
}

void wait_for_the_test() {
  std::ofstream(plan_file + ".reached") << "";
  while (!std::filesystem::exists(plan_file + ".go")) {
    pause_ms(10);
  }
}

/// Kills the process that reads the filter's log, after earlier lines had time to arrive.
void close_log() {
  pause_ms(100);
  pid_t reader = -1;
  std::ifstream(plan_file + ".reader") >> reader;
  if (reader <= 0 || kill(reader, SIGKILL) != 0) {
    fprintf(stderr, "ERROR: the log has no reader\n");
    std::exit(1);
  }
  // A pipe without a reader cannot be opened.
  for (int log = -1; (log = open((plan_file + ".log").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0;) {
    close(log);
    pause_ms(10);
  }
}

/// Called at each step of a job; causes the fault at its step. A late printer exceeds the filter's timeout at
/// this step.
void at(Step step, int late_ms) {
  if (!plan || step != plan->step) {
    return;
  }
  const Fault fault = plan->fault;
  plan.reset();
  std::filesystem::rename(plan_file, plan_file + ".done");
  switch (fault) {
    case Fault::Dies:
      if (step == Step::LevelsWrite || step == Step::StatusWrite) {
        // Die only after the filter has requested the drain. Otherwise, the outcome would depend on which is
        // faster.
        pollfd side_channel = {CUPS_SC_FD, POLLIN, 0};
        poll(&side_channel, 1, 5000);
      }
      std::raise(SIGKILL);
      break;
    case Fault::Stalls:
      for (;;) {
        pause();
      }
    case Fault::Silent:
      silent = true;
      break;
    case Fault::Closes:
      silent = closed = true;
      break;
    case Fault::Garbage:
      send(std::string(40, '\xff'));
      break;
    case Fault::Late:
    case Fault::LateAskedAgain:
      pause_ms(late_ms);
      break;
    case Fault::LogClosed:
      close_log();
      break;
    case Fault::Waits:
      wait_for_the_test();
      break;
    case Fault::JobCancelled:
    case Fault::SchedulerKilled:
    case Fault::LogFullAndSlow:
      break;  // The test causes these.
  }
}

void take_what_the_filter_wrote() {
  std::array<char, 4096> bytes{};
  const ssize_t count = read(0, bytes.data(), bytes.size());
  if (count > 0) {
    taken.append(bytes.data(), static_cast<std::size_t>(count));
  } else {
    std::exit(0);  // The filter has ended.
  }
}

bool filter_wrote() {
  pollfd input = {0, POLLIN, 0};
  return poll(&input, 1, 0) == 1;
}

void reply_to_levels() {
  const std::string bytes = levels_reply(200, 400, 2);
  at(Step::LevelsRead, 2500);
  send(bytes.substr(0, 10));
  at(Step::LevelsSecondRead, 2500);
  // Data must not be written to a backend that is about to die.
  if (plan && plan->step == Step::Between && plan->fault == Fault::Dies) {
    close(0);
  }
  send(bytes.substr(10));
  at(Step::Between, 6500);
}

void reply_to_status() {
  // A second reply in the same job differs from the first.
  const std::string bytes = status_reply(!asked_again || ++status_replies == 1 ? 0x2660 : 0x2100);
  at(Step::StatusRead, 2500);
  send(bytes.substr(0, 10));
  at(Step::StatusSecondRead, 2500);
  send(bytes.substr(10));
}

void answer_the_requests() {
  while (!taken.empty()) {
    const bool levels = taken.starts_with(LEVELS_REQUEST);
    if (!levels && !taken.starts_with(STATUS_REQUEST)) {
      fprintf(stderr, "ERROR: the filter sent something else\n");
      std::exit(1);
    }
    taken.erase(0, levels ? LEVELS_REQUEST.size() : STATUS_REQUEST.size());
    levels ? reply_to_levels() : reply_to_status();
  }
}

void serve_side_channel(int& drains) {
  cups_sc_command_t command{};
  cups_sc_status_t status{};
  std::array<char, 512> data{};
  int length = data.size();
  if (cupsSideChannelRead(&command, &status, data.data(), &length, 1.0) != 0) {
    return;
  }
  if (command == CUPS_SC_CMD_GET_BIDI) {
    at(Step::Probe, 31000);
    data[0] = CUPS_SC_BIDI_SUPPORTED;
    cupsSideChannelWrite(command, CUPS_SC_STATUS_OK, data.data(), 1, 1.0);
    return;
  }
  at(++drains == 1 ? Step::LevelsDrain : Step::StatusDrain, 6500);
  if (filter_wrote()) {
    take_what_the_filter_wrote();
  }
  cupsSideChannelWrite(command, closed ? CUPS_SC_STATUS_IO_ERROR : CUPS_SC_STATUS_OK, nullptr, 0, 1.0);
  answer_the_requests();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) {
    return 0;
  }
  const char* uri = std::getenv("DEVICE_URI");
  plan_file = std::string(uri != nullptr ? uri : argv[0]).substr(sizeof "faulty:" - 1);
  plan = read_plan(plan_file);
  asked_again = plan && plan->fault == Fault::LateAskedAgain;
  if (plan && plan->fault == Fault::Dies) {
    wait_for_the_test();
  }

  int drains = 0;
  int writes = 0;
  for (;;) {
    std::array<pollfd, 2> events = {{{0, POLLIN, 0}, {CUPS_SC_FD, POLLIN, 0}}};
    poll(events.data(), events.size(), -1);
    if (events[0].revents != 0) {
      if ((events[0].revents & POLLIN) != 0) {
        ++writes;
        at(writes == 1 ? Step::LevelsWrite : Step::StatusWrite, 6500);
      }
      take_what_the_filter_wrote();
    }
    if ((events[1].revents & POLLIN) != 0) {
      serve_side_channel(drains);
    } else if (events[1].revents != 0) {
      return 0;
    }
  }
}
