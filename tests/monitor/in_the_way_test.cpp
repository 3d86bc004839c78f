// SPDX-License-Identifier: Apache-2.0
// Checks that a monitor does not delay prints, with the distribution's scheduler configuration.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;

/// No printer is there.
constexpr const char* REFUSED = "socket://127.0.0.1:9";

class InTheWay : public testing::Test {
 protected:
  [[nodiscard]] std::unique_ptr<ChildProcess> start_watch(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"--watch", "1", "--json=" + file()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return start_monitor(scheduler.server(), arguments);
  }
  [[nodiscard]] std::string file() const { return (folder.path() / "report.json").string(); }

  /// Returns the watch's latest output.
  [[nodiscard]] JsonRun written() const { return {0, read_json(file())}; }
  [[nodiscard]] bool shows(const std::function<bool(const JsonRun&)>& condition,
                           seconds limit = seconds(90)) const {
    for (const auto end = steady_clock::now() + limit; steady_clock::now() < end;) {
      const auto one = written();
      if (!one.object.is_discarded() && condition(one)) {
        return true;
      }
      std::this_thread::sleep_for(milliseconds(50));
    }
    return false;
  }

  PrivateScheduler scheduler{{.configuration = PrivateScheduler::Configuration::DEFAULT}};
  TemporaryFolder folder;
};

TEST_F(InTheWay, NoRefreshStaysInTheHistory) {
  const NetworkPrinter printer;
  scheduler.add_queue("booth", printer.device_uri());
  std::vector<int> prints;
  for (int i = 0; i < 5; ++i) {
    prints.push_back(scheduler.send_raw("booth", "a photo"));
    ASSERT_EQ(scheduler.wait_for_job(prints.back()), IPP_JSTATE_COMPLETED);
  }
  const auto watch = start_watch({"--idle", "1"});
  for (int i = 0; i < 1200 && printer.requests().size() < 12; ++i) {
    std::this_thread::sleep_for(milliseconds(50));
  }
  EXPECT_GE(printer.requests().size(), 12U);
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->exit_status(seconds(30)), 128 + SIGTERM);
  auto left = all_jobs(scheduler);
  std::ranges::sort(left);
  EXPECT_EQ(left, prints);
}

TEST_F(InTheWay, ManyDeadQueuesLeaveRoomForAPrint) {
  const NetworkPrinter printer;
  scheduler.add_queue("booth", printer.device_uri());
  for (int i = 0; i < 40; ++i) {
    scheduler.add_queue("dead" + std::to_string(i), REFUSED);
  }
  const auto watch = start_watch({"--timeout", "20"});
  std::size_t most = 0;
  for (int i = 0; i < 40; ++i) {
    most = std::max(most, active_jobs(scheduler).size());
    std::this_thread::sleep_for(milliseconds(50));
  }
  EXPECT_LE(most, 32U);
  EXPECT_GE(most, 16U);
  const int print = scheduler.send_raw("booth", "a photo");
  EXPECT_EQ(scheduler.wait_for_job(print), IPP_JSTATE_COMPLETED);
  EXPECT_TRUE(shows([](const JsonRun& one) { return one.outcome("booth") == "refreshed"; }));
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->exit_status(seconds(30)), 128 + SIGTERM);
  EXPECT_EQ(all_jobs(scheduler), std::vector<int>{print});
}

TEST_F(InTheWay, OneDeadPrinterDelaysNoOther) {
  const NetworkPrinter printer;
  scheduler.add_queue("booth", printer.device_uri());
  scheduler.add_queue("dead", REFUSED);
  const auto watch = start_watch({"--timeout", "3600"});
  EXPECT_TRUE(shows([](const JsonRun& one) {
    return one.outcome("booth") == "refreshed" && one.outcome("dead") == "asking";
  }));
}

struct Delay {
  const char* name;
  const char* fault;
  bool accepts;  ///< connections
};

class BehindARefresh : public InTheWay, public testing::WithParamInterface<Delay> {};

TEST_P(BehindARefresh, APrintDoesNotWait) {
  const NetworkPrinter printer({"--remaining", "200", "--total", "400"});
  scheduler.add_queue("booth", printer.device_uri());
  ASSERT_EQ(run_json(scheduler.server()).exit_status, 0);
  printer.tell("forget");
  printer.tell(GetParam().fault);
  const auto watch = start_watch({"--timeout", "3600"});
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  const int refresh = active_jobs(scheduler).at(0);
  ASSERT_TRUE(wait_for_processing(scheduler, refresh));
  if (GetParam().accepts) {
    // The fault holds for this exchange, and not for the next, which may follow the print at once.
    ASSERT_TRUE(wait_until([&] { return !printer.requests().empty(); }));
    printer.tell("fault none; remaining 199");
  }
  const int print = scheduler.send_raw("booth", "a photo");
  // The print begins although the command job would not end for a minute.
  EXPECT_TRUE(wait_until([&] {
    const auto state = scheduler.job_state(print);
    return state == IPP_JSTATE_PROCESSING || state == IPP_JSTATE_COMPLETED;
  }));
  printer.tell("fault none; remaining 199");
  EXPECT_EQ(scheduler.wait_for_job(print, seconds(60)), IPP_JSTATE_COMPLETED);
  EXPECT_TRUE(shows([](const JsonRun& one) {
    return one.outcome("booth") == "refreshed" && one.queue("booth")["ribbon"]["prints_remaining"] == 199;
  }));
  // It is ended before the print begins and forgotten before the next one is sent.
  EXPECT_THAT(all_jobs(scheduler), testing::Not(testing::Contains(refresh)));
}

INSTANTIATE_TEST_SUITE_P(Printers, BehindARefresh,
                         testing::Values(Delay{"Refusing", "fault refuse", false},
                                         Delay{"Dripping", "fault drip 60000", true},
                                         Delay{"Slow", "fault slow 60000", true}),
                         [](const auto& one) { return one.param.name; });

/// UnrulyPrinter accepts connections and never reads. It may send bytes without end.
class UnrulyPrinter {
 public:
  explicit UnrulyPrinter(bool floods) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    // The smallest possible windows, which every print fills.
    const int least = 1;
    setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &least, sizeof least);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener_, 1) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("the printer has no port");
    }
    port_ = ntohs(address.sin_port);
    server_ = std::jthread([this, floods](const std::stop_token& stop) { serve(floods, stop); });
  }
  ~UnrulyPrinter() {
    server_.request_stop();
    server_.join();
    close(listener_);
  }
  UnrulyPrinter(const UnrulyPrinter&) = delete;
  UnrulyPrinter& operator=(const UnrulyPrinter&) = delete;

  [[nodiscard]] std::string device_uri() const { return "socket://127.0.0.1:" + std::to_string(port_); }

 private:
  void serve(bool floods, const std::stop_token& stop) const {
    std::vector<int> clients;
    const std::vector<char> bytes(4096, 'x');
    while (!stop.stop_requested()) {
      pollfd poll_listener{listener_, POLLIN, 0};
      constexpr int limit_ms = 10;
      if (poll(&poll_listener, 1, limit_ms) > 0) {
        clients.push_back(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
      }
      for (const int client : clients) {
        while (floods && send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0) {
        }
      }
    }
    std::ranges::for_each(clients, close);
  }

  int listener_;
  int port_ = 0;
  std::jthread server_;
};

class BehindAnUnrulyPrinter : public InTheWay, public testing::WithParamInterface<bool> {};

TEST_P(BehindAnUnrulyPrinter, APrintDoesNotWait) {
  const UnrulyPrinter printer(GetParam());
  scheduler.add_queue("booth", printer.device_uri());
  const auto watch = start_watch({"--timeout", "3600"});
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  ASSERT_TRUE(wait_for_processing(scheduler, active_jobs(scheduler).at(0)));
  const int print = scheduler.send_raw("booth", std::string(10'000'000, 'p'));
  EXPECT_TRUE(wait_for_processing(scheduler, print));
  // It fills the printer's window and stays.
  EXPECT_TRUE(shows([](const JsonRun& one) { return one.outcome("booth") == "busy"; }));
  EXPECT_EQ(active_jobs(scheduler), std::vector<int>{print});
  EXPECT_EQ(scheduler.job_state(print), IPP_JSTATE_PROCESSING);
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->exit_status(seconds(30)), 128 + SIGTERM);
  EXPECT_EQ(all_jobs(scheduler), std::vector<int>{print});
}

INSTANTIATE_TEST_SUITE_P(Printers, BehindAnUnrulyPrinter, testing::Bool(),
                         [](const auto& one) { return one.param ? "Flooding" : "NeverReading"; });

struct StuckPrinter {
  const char* name;
  const char* device;
  const char* words;
};

class StuckPrint : public InTheWay, public testing::WithParamInterface<StuckPrinter> {};

TEST_P(StuckPrint, IsAnErrorWithTheSchedulersMessage) {
  scheduler.add_queue("booth", GetParam().device);
  const int print = scheduler.send_raw("booth", "a photo");
  ASSERT_TRUE(wait_for_processing(scheduler, print));
  const auto watch = start_watch();
  ASSERT_TRUE(shows([](const JsonRun& one) { return one.queue("booth")["stuck"] == true; }));
  const auto queue = written().queue("booth");
  EXPECT_EQ(queue["status"], 2);
  EXPECT_EQ(queue["message"], GetParam().words);
  EXPECT_GE(queue["print_seconds"], 29);

  // A call of its own knows it from the scheduler's times.
  const auto text = run_monitor(scheduler.server(), {});
  EXPECT_EQ(text.exit_status, 2);
  EXPECT_THAT(text.output, HasSubstr(GetParam().words));
  EXPECT_THAT(run_monitor(scheduler.server(), {"--prometheus"}).output,
              HasSubstr("brenvellis_queue_stuck{queue=\"booth\",server=\"localhost\"} 1\n"));
  EXPECT_THAT(run_monitor(scheduler.server(), {"--html"}).output,
              testing::AllOf(HasSubstr("class=\"card error"), HasSubstr(GetParam().words)));
  EXPECT_EQ(active_jobs(scheduler), std::vector<int>{print});
}

INSTANTIATE_TEST_SUITE_P(Devices, StuckPrint,
                         testing::Values(StuckPrinter{"Usb", "usb://Brenvellis/Nowhere?serial=0",
                                                      "Waiting for printer to become available."},
                                         StuckPrinter{
                                             "Socket", REFUSED,
                                             "The printer may not exist or is unavailable at this time."}),
                         [](const auto& one) { return one.param.name; });

TEST_F(InTheWay, APausedQueueIsDistinguishedFromOneThatIsDown) {
  const TemporaryFolder programs;
  const auto backend = programs.path() / "failing";
  std::ofstream(backend)
      << "#!/bin/sh\n[ $# = 0 ] && exit 0\necho 'ERROR: The cutter is jammed.' >&2\nexit 4\n";
  std::filesystem::permissions(backend, std::filesystem::perms(0755));
  const PrivateScheduler server({.configuration = PrivateScheduler::Configuration::DEFAULT,
                                 .backends = {{"failing", backend.string()}}});
  server.add_queue("down", "failing://x");
  server.add_queue("paused", REFUSED);
  server.pause("paused");
  static_cast<void>(server.send_raw("down", "a photo"));
  auto one = run_json(server.server(), {"--timeout", "1"});
  for (int i = 0; i < 100 && one.outcome("down") != "stopped"; ++i) {
    one = run_json(server.server(), {"--timeout", "1"});
  }
  EXPECT_EQ(one.outcome("down"), "stopped");
  EXPECT_EQ(one.queue("down")["message"], "The cutter is jammed.");
  EXPECT_EQ(one.queue("down")["status"], 2);
  EXPECT_EQ(one.outcome("paused"), "paused");
  EXPECT_EQ(one.queue("paused")["status"], 3);
}

// The job's messages replace the scheduler's "Paused".
TEST_F(InTheWay, AQueueThatIsPausedWhileAJobPrintsIsNotDown) {
  const NetworkPrinter printer({"--fault", "silent"});
  scheduler.add_queue("asked", printer.device_uri());
  scheduler.add_queue("printing", REFUSED);
  const int print = scheduler.send_raw("printing", "a photo");
  ASSERT_TRUE(wait_for_processing(scheduler, print));
  const auto watch = start_watch({"--timeout", "60"});
  ASSERT_TRUE(shows([](const JsonRun& one) { return one.outcome("asked") == "asking"; }));
  scheduler.pause("asked");
  scheduler.pause("printing");
  for (const auto* queue : {"asked", "printing"}) {
    EXPECT_TRUE(shows(
        [&](const JsonRun& one) {
          return one.outcome(queue) == "paused" && one.queue(queue)["message"] != "Paused";
        },
        seconds(40)))
        << written().queue(queue);
  }
}

TEST_F(InTheWay, AWatchOutlivesARestartOfTheScheduler) {
  const NetworkPrinter printer({"--remaining", "200", "--total", "400"});
  scheduler.add_queue("booth", printer.device_uri());
  const auto watch = start_watch();
  EXPECT_TRUE(
      shows([](const JsonRun& one) { return one.queue("booth")["ribbon"]["prints_remaining"] == 200; }));
  scheduler.restart(SIGTERM);
  printer.tell("remaining 150");
  EXPECT_TRUE(
      shows([](const JsonRun& one) { return one.queue("booth")["ribbon"]["prints_remaining"] == 150; }));
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->exit_status(seconds(30)), 128 + SIGTERM);
  EXPECT_THAT(all_jobs(scheduler), IsEmpty());
}

}  // namespace
