// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <future>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using std::chrono::seconds;
using testing::HasSubstr;
using testing::IsEmpty;

/// A scheduler with one queue to a healthy printer with a half-used ribbon.
class Monitor : public testing::Test {
 protected:
  Monitor() { scheduler.add_queue("booth", printer.device_uri()); }

  JsonRun run(std::vector<std::string> arguments = {}) { return run_json(scheduler.server(), arguments); }
  /// Makes the next command job wait forever, after the queue has its first values.
  void make_printer_refuse() {
    ASSERT_EQ(run().exit_status, 0);
    printer.tell("fault refuse");
  }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler;
};

TEST_F(Monitor, ShowsThePrintersCurrentValues) {
  auto one = run();
  EXPECT_EQ(one.exit_status, 0);
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.queue("booth")["ribbon"]["sheet"], "10x15(4x6″)");

  printer.tell("remaining 199; code 0x2660; sheet 0x04");
  one = run();
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 199);
  EXPECT_EQ(one.queue("booth")["ribbon"]["sheet"], "13x18(5x7″)");
  EXPECT_EQ(one.queue("booth")["errors"][0]["code"], "2660");
}

TEST_F(Monitor, NeverShowsAnOlderValueThanThePrinters) {
  for (int remaining = 100; remaining > 60; --remaining) {
    printer.tell("remaining " + std::to_string(remaining) + "; code 0x26" + std::to_string(remaining % 2) +
                 "0");
    const auto one = run();
    EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], remaining);
    EXPECT_EQ(one.queue("booth")["errors"][0]["code"], remaining % 2 == 0 ? "2600" : "2610");
  }
}

TEST_F(Monitor, LeavesNoJobInTheHistory) {
  const int print = scheduler.send_raw("booth", "a photo");
  ASSERT_EQ(scheduler.wait_for_job(print), IPP_JSTATE_COMPLETED);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(run().outcome("booth"), "refreshed");
  }
  EXPECT_EQ(all_jobs(scheduler), std::vector<int>{print});
}

TEST_F(Monitor, TakesYoungValuesForNew) {
  ASSERT_EQ(run().exit_status, 0);
  printer.tell("remaining 7");
  const auto one = run({"--max-age", "3600"});
  EXPECT_EQ(one.outcome("booth"), "not-asked");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.exit_status, 0);
}

TEST_F(Monitor, WithoutRefreshSendsNoJob) {
  const auto one = run({"--no-refresh"});
  EXPECT_EQ(one.outcome("booth"), "not-asked");
  EXPECT_TRUE(one.queue("booth")["ribbon"]["prints_remaining"].is_null());
  EXPECT_TRUE(one.queue("booth")["ribbon"]["age_seconds"].is_null());
  EXPECT_EQ(one.exit_status, 3);
  EXPECT_THAT(printer.requests(), IsEmpty());
}

TEST_F(Monitor, WithoutRefreshShowsTheLastValues) {
  ASSERT_EQ(run().exit_status, 0);
  printer.tell("remaining 7");
  const auto one = run({"--no-refresh"});
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.exit_status, 0);
}

TEST_F(Monitor, AgesTheValuesByTheirLastReport) {
  ASSERT_EQ(run().exit_status, 0);
  EXPECT_LE(run().queue("booth")["ribbon"]["age_seconds"], 1);
  std::this_thread::sleep_for(seconds(2));
  EXPECT_GE(run({"--no-refresh"}).queue("booth")["ribbon"]["age_seconds"], 2);
}

TEST_F(Monitor, RefreshesTwoQueues) {
  const NetworkPrinter second({"--remaining", "3", "--total", "4"});
  scheduler.add_queue("second", second.device_uri());
  const auto one = run();
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.queue("second")["ribbon"]["prints_remaining"], 3);
}

TEST_F(Monitor, RefreshesTwentyFiveQueuesEachWithItsOwnValues) {
  std::vector<std::unique_ptr<NetworkPrinter>> printers;
  for (int i = 1; i <= 25; ++i) {
    printers.push_back(std::make_unique<NetworkPrinter>(std::vector<std::string>{
        "--remaining", std::to_string(100 + i), "--total", "400", "--fault", "slow 300"}));
    scheduler.add_queue("queue" + std::to_string(i), printers.back()->device_uri());
  }
  const auto one = run();
  EXPECT_EQ(one.exit_status, 0);
  for (int i = 1; i <= 25; ++i) {
    const std::string name = "queue" + std::to_string(i);
    EXPECT_EQ(one.outcome(name), "refreshed") << name;
    EXPECT_EQ(one.queue(name)["ribbon"]["prints_remaining"], 100 + i) << name;
  }
}

TEST_F(Monitor, RefreshesOnlyTheQueuesThatAreNamed) {
  const NetworkPrinter second;
  scheduler.add_queue("second", second.device_uri());
  const auto one = run({"second"});
  EXPECT_EQ(one.outcome("second"), "refreshed");
  EXPECT_EQ(one.outcome("booth"), "missing");
  EXPECT_THAT(printer.requests(), IsEmpty());
}

TEST_F(Monitor, SaysThatASilentPrinterDoesNotAnswer) {
  printer.tell("fault silent");
  const auto one = run();
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["answered"], false);
  EXPECT_TRUE(one.queue("booth")["ribbon"]["prints_remaining"].is_null());
  EXPECT_EQ(one.queue("booth")["errors"][0]["certain"], false);
  EXPECT_EQ(one.exit_status, 2);
}

TEST_F(Monitor, PurgesACommandJobThatDoesNotEndAndKeepsTheLastValues) {
  make_printer_refuse();
  const auto one = run({"--timeout", "2"});
  EXPECT_THAT(all_jobs(scheduler), IsEmpty());
  EXPECT_EQ(one.outcome("booth"), "timed-out");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_GE(one.queue("booth")["ribbon"]["age_seconds"], 1);
  EXPECT_EQ(one.exit_status, 3);
}

TEST_F(Monitor, RefreshesAgainAfterATimeOut) {
  make_printer_refuse();
  ASSERT_EQ(run({"--timeout", "1"}).exit_status, 3);
  printer.tell("fault none; remaining 150");
  const auto one = run();
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 150);
}

TEST_F(Monitor, FreesAQueueWhosePrinterHoldsTheConnection) {
  // It takes connections and never closes them: the backend waits for that for a minute and a half.
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), length), 0);
  ASSERT_EQ(listen(listener, 5), 0);
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
  scheduler.add_queue("held", "socket://127.0.0.1:" + std::to_string(ntohs(address.sin_port)));

  const auto one = run({"held", "--timeout", "3"});
  EXPECT_EQ(one.outcome("held"), "timed-out");
  EXPECT_EQ(one.queue("held")["state"], "idle");
  EXPECT_THAT(active_jobs(scheduler), IsEmpty());
  close(listener);
}

TEST_F(Monitor, DoesNotRefreshAPausedQueue) {
  ASSERT_EQ(run().exit_status, 0);
  scheduler.pause("booth");
  const auto one = run();
  EXPECT_EQ(one.outcome("booth"), "paused");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.exit_status, 3);
  EXPECT_THAT(active_jobs(scheduler), IsEmpty());
}

TEST_F(Monitor, DoesNotRefreshARejectingQueue) {
  ASSERT_EQ(run().exit_status, 0);
  scheduler.reject("booth");
  const auto one = run();
  EXPECT_EQ(one.outcome("booth"), "rejecting");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.exit_status, 3);
}

TEST_F(Monitor, DoesNotRefreshAQueueThatPrints) {
  make_printer_refuse();
  const int print = scheduler.send_raw("booth", "another user's photo");
  ASSERT_TRUE(wait_for_processing(scheduler, print));
  const auto one = run();
  EXPECT_EQ(one.outcome("booth"), "busy");
  EXPECT_EQ(one.queue("booth")["state"], "processing");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.exit_status, 0);
  EXPECT_EQ(active_jobs(scheduler), std::vector<int>{print});
}

TEST_F(Monitor, RefreshesAQueueWithAHeldPrint) {
  const TemporaryFolder folder;
  const auto photo = (folder.path() / "photo").string();
  std::ofstream(photo) << "another user's photo";
  cups_option_t* options = nullptr;
  int count = cupsAddOption("job-hold-until", "indefinite", 0, &options);
  count = cupsAddOption("document-format", CUPS_FORMAT_RAW, count, &options);
  http_t* connection = httpConnect2(scheduler.server().c_str(), 0, nullptr, AF_UNSPEC,
                                    HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
  const int print = cupsPrintFile2(connection, "booth", photo.c_str(), "photo", count, options);
  httpClose(connection);
  cupsFreeOptions(count, options);
  ASSERT_EQ(scheduler.job_state(print), IPP_JSTATE_HELD);

  EXPECT_EQ(run().outcome("booth"), "refreshed");
  EXPECT_EQ(active_jobs(scheduler), std::vector<int>{print});
}

TEST_F(Monitor, WaitsForAPrintOnRequest) {
  make_printer_refuse();
  const int print = scheduler.send_raw("booth", "another user's photo");
  ASSERT_TRUE(wait_for_processing(scheduler, print));
  auto waiting = std::async(std::launch::async, [&] { return run({"--wait", "--timeout", "60"}); });
  std::this_thread::sleep_for(seconds(1));
  EXPECT_EQ(active_jobs(scheduler), std::vector<int>{print});
  printer.tell("fault none; remaining 199");
  const auto one = waiting.get();
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 199);
}

TEST_F(Monitor, WaitsForAPausedQueueOnRequest) {
  scheduler.pause("booth");
  auto waiting = std::async(std::launch::async, [&] { return run({"--wait", "--timeout", "60"}); });
  std::this_thread::sleep_for(seconds(1));
  EXPECT_THAT(active_jobs(scheduler), IsEmpty());
  scheduler.resume("booth");
  EXPECT_EQ(waiting.get().outcome("booth"), "refreshed");
}

TEST_F(Monitor, WaitsForARejectingQueueOnRequest) {
  scheduler.reject("booth");
  auto waiting = std::async(std::launch::async, [&] { return run({"--wait", "--timeout", "60"}); });
  std::this_thread::sleep_for(seconds(1));
  scheduler.accept("booth");
  EXPECT_EQ(waiting.get().outcome("booth"), "refreshed");
}

TEST_F(Monitor, LeavesNoJobInAPausedQueueAfterATimeout) {
  scheduler.pause("booth");
  EXPECT_EQ(run({"--wait", "--timeout", "1"}).outcome("booth"), "paused");
  EXPECT_THAT(all_jobs(scheduler), IsEmpty());
}

TEST_F(Monitor, ReportsAnUnknownQueue) {
  const auto one = run({"booth", "nowhere"});
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.outcome("nowhere"), "not-found");
  EXPECT_EQ(one.exit_status, 3);
}

TEST_F(Monitor, LeavesOtherQueuesAlone) {
  scheduler.add_queue("other", printer.device_uri(), "");
  EXPECT_EQ(run().outcome("other"), "missing");
  EXPECT_EQ(run({"other"}).outcome("other"), "unsupported");
}

TEST_F(Monitor, TwoAtOnceBothGetFreshValues) {
  printer.tell("fault slow 300");
  auto other = std::async(std::launch::async, [&] { return run(); });
  const auto one = run();
  const auto two = other.get();
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(two.outcome("booth"), "refreshed");
  EXPECT_EQ(one.exit_status, 0);
  EXPECT_EQ(two.exit_status, 0);
}

class EndedMonitor : public Monitor, public testing::WithParamInterface<int> {};

TEST_P(EndedMonitor, LeavesNoJob) {
  make_printer_refuse();
  const auto monitor = start_monitor(scheduler.server(), {"--json=/dev/null/nowhere"});
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  monitor->signal(GetParam());
  EXPECT_EQ(monitor->exit_status(seconds(30)), 128 + GetParam());
  EXPECT_THAT(active_jobs(scheduler), IsEmpty());
}

TEST_P(EndedMonitor, EndsWhileItWatches) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "metrics.prom";
  const auto monitor =
      start_monitor(scheduler.server(), {"--watch", "3600", "--prometheus=" + file.string()});
  for (int i = 0; i < 1000 && !std::filesystem::exists(file); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(std::filesystem::exists(file));
  monitor->signal(GetParam());
  EXPECT_EQ(monitor->exit_status(seconds(30)), 128 + GetParam());
}

INSTANTIATE_TEST_SUITE_P(Signals, EndedMonitor, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(Monitor, WatchesTheValuesChange) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "report.json";
  const auto monitor = start_monitor(scheduler.server(), {"--watch", "1", "--json=" + file.string()});
  const auto shows = [&](int remaining) {
    for (int i = 0; i < 1000; ++i) {
      const auto object = read_json(file);
      if (!object.is_discarded() &&
          object["servers"][0]["queues"][0]["ribbon"]["prints_remaining"] == remaining) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  };
  EXPECT_TRUE(shows(200));
  printer.tell("remaining 150");
  EXPECT_TRUE(shows(150));
  monitor->signal(SIGINT);
  EXPECT_EQ(monitor->exit_status(seconds(30)), 130);
  EXPECT_THAT(active_jobs(scheduler), IsEmpty());
}

TEST_F(Monitor, KeepsTheLastValuesIfTheSchedulerIsKilled) {
  make_printer_refuse();
  auto running = std::async(std::launch::async, [&] { return run({"--timeout", "60"}); });
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  scheduler.kill();
  const auto one = running.get();
  EXPECT_EQ(one.outcome("booth"), "failed");
  EXPECT_THAT(one.queue("booth")["refresh"]["detail"].get<std::string>(), HasSubstr("went away"));
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 200);
  EXPECT_EQ(one.exit_status, 3);
}

TEST_F(Monitor, OutlivesARestartOfTheScheduler) {
  make_printer_refuse();
  auto running = std::async(std::launch::async, [&] { return run({"--timeout", "60"}); });
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  scheduler.restart(SIGTERM);
  printer.tell("fault none; remaining 111");
  const auto one = running.get();
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 111);
}

TEST_F(Monitor, DoesNotMistakeOldValuesForNewIfAKilledSchedulerForgotItsJob) {
  make_printer_refuse();
  auto running = std::async(std::launch::async, [&] { return run({"--timeout", "60"}); });
  ASSERT_TRUE(wait_for_active_jobs(scheduler, 1));
  scheduler.restart(SIGKILL);
  printer.tell("fault none; remaining 111");
  // Whether the scheduler had written the job to its disk is a matter of luck.
  const auto one = running.get();
  EXPECT_EQ(one.outcome("booth") == "refreshed", one.queue("booth")["ribbon"]["prints_remaining"] == 111);
}

TEST_F(Monitor, KnowsFreshValuesWhereTheSchedulerForgetsJobs) {
  const auto configuration = scheduler.path() / "etc/cupsd.conf";
  std::ofstream(configuration, std::ios::app) << "PreserveJobHistory No\n";
  scheduler.restart(SIGTERM);
  printer.tell("remaining 77");
  const auto one = run();
  EXPECT_EQ(one.outcome("booth"), "refreshed");
  EXPECT_EQ(one.queue("booth")["ribbon"]["prints_remaining"], 77);
}

TEST_F(Monitor, AsksSeveralServersAndOutlivesOneThatIsDown) {
  const NetworkPrinter second({"--remaining", "50", "--total", "100"});
  const PrivateScheduler annex({.port = true});
  annex.add_queue("annex", second.device_uri());
  const auto one =
      run({"--server", scheduler.server(), "--server", "127.0.0.1:1", "--server", annex.address()});
  EXPECT_EQ(one.object["servers"][0]["queues"][0]["ribbon"]["prints_remaining"], 200);
  EXPECT_THAT(one.object["servers"][1]["error"].get<std::string>(), HasSubstr("cannot be reached"));
  EXPECT_EQ(one.object["servers"][2]["queues"][0]["ribbon"]["prints_remaining"], 50);
  EXPECT_EQ(one.exit_status, 3);
}

TEST_F(Monitor, FindsANamedQueueOnAnyOfSeveralServers) {
  const PrivateScheduler annex;
  const auto one = run({"booth", "--server", annex.server(), "--server", scheduler.server()});
  EXPECT_EQ(one.object["servers"][1]["queues"][0]["queue"], "booth");
  EXPECT_EQ(one.exit_status, 0);
}

/// StrangeServer is a server on a port that is not a scheduler. It sends its text to each client, and then
/// closes the connection, stays silent, or repeats its last byte.
class StrangeServer {
 public:
  enum class Manner : std::uint8_t { Goes, StaysSilent, DripsOn };

  StrangeServer(std::string text, Manner manner) : text_(std::move(text)), manner_(manner) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(listener_, 8) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("no free port");
    }
    address_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    thread_ = std::jthread([this](const std::stop_token& ended) {
      pollfd wait{listener_, POLLIN, 0};
      while (!ended.stop_requested()) {
        if (poll(&wait, 1, 20) > 0) {
          serve(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), ended);
        }
      }
    });
  }
  ~StrangeServer() {
    thread_.request_stop();
    thread_.join();
    close(listener_);
  }
  StrangeServer(const StrangeServer&) = delete;
  StrangeServer& operator=(const StrangeServer&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] bool has_been_asked() const { return asked_; }

 private:
  void serve(int connection, const std::stop_token& ended) {
    std::array<char, 4096> request{};
    const bool gone = recv(connection, request.data(), request.size(), 0) <= 0;
    if (!gone) {
      send(connection, text_.data(), text_.size(), MSG_NOSIGNAL);
      asked_ = true;
    }
    pollfd wait{connection, POLLIN | POLLRDHUP, 0};
    while (!gone && manner_ != Manner::Goes && !ended.stop_requested()) {
      if (manner_ == Manner::DripsOn && send(connection, &text_.back(), 1, MSG_NOSIGNAL) < 0) {
        break;
      }
      if (poll(&wait, 1, 20) > 0 && (wait.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        break;
      }
    }
    close(connection);
  }

  std::string text_;
  Manner manner_;
  int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string address_;
  std::atomic<bool> asked_ = false;
  std::jthread thread_;
};

struct StrangeCase {
  const char* name;
  const char* text;
  StrangeServer::Manner manner;
  const char* error;
};

class Strange : public testing::TestWithParam<StrangeCase> {};

TEST_P(Strange, ServerIsGivenUpAndDescribed) {
  const StrangeServer server(GetParam().text, GetParam().manner);
  const auto monitor =
      run_monitor("/nonexistent/cups.sock", {"--server", server.address(), "--timeout", "1"});
  EXPECT_THAT(without_summary(monitor.output),
              testing::MatchesRegex("print server " + server.address() + ": (" + GetParam().error + ")\n"));
  EXPECT_EQ(monitor.exit_status, 3);
}

INSTANTIATE_TEST_SUITE_P(
    Servers, Strange,
    testing::Values(
        StrangeCase{"Silent", "", StrangeServer::Manner::StaysSilent, "no answer within 1 second"},
        StrangeCase{"DrippingAHeader", "HTTP/1.1 200 OK\r\nX: yyyy", StrangeServer::Manner::DripsOn,
                    "no answer within 1 second|it does not answer as a print server"},
        StrangeCase{"DrippingAnAnswer",
                    "HTTP/1.1 200 OK\r\nContent-Type: application/ipp\r\nContent-Length: 1000000\r\n\r\n\2",
                    StrangeServer::Manner::DripsOn, "no answer within 1 second"},
        StrangeCase{"Garbage", "hello, who is there?\r\n", StrangeServer::Manner::Goes,
                    "it does not answer as a print server"},
        StrangeCase{"WebServer",
                    "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 6\r\n\r\n<html>",
                    StrangeServer::Manner::Goes, "it does not answer as a print server"},
        StrangeCase{"WebServerWithoutThePage",
                    "HTTP/1.1 404 Not Found\r\nContent-Type: text/html\r\nContent-Length: 6\r\n\r\n<html>",
                    StrangeServer::Manner::Goes, "it does not answer as a print server"}),
    [](const auto& one) { return one.param.name; });

TEST(MonitorAlone, EndsByASignalWhileAServerDrips) {
  const StrangeServer server("HTTP/1.1 200 OK\r\nX: yyyy", StrangeServer::Manner::DripsOn);
  const auto monitor =
      start_monitor("/nonexistent/cups.sock", {"--server", server.address(), "--timeout", "3600"});
  for (int i = 0; i < 1000 && !server.has_been_asked(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  monitor->signal(SIGTERM);
  // Ten seconds is the timeout of a request.
  EXPECT_EQ(monitor->exit_status(seconds(8)), 128 + SIGTERM);
}

TEST(MonitorAlone, GivesUpAServerThatDoesNotChangeToTls) {
  const StrangeServer server("", StrangeServer::Manner::StaysSilent);
  EXPECT_EQ(
      without_summary(run_monitor("/nonexistent/cups.sock", {"--server", server.address(), "--encryption",
                                                             "required", "--timeout", "1"})
                          .output),
      "print server " + server.address() + ": no answer within 1 second\n");
}

TEST(MonitorAlone, SaysThatAPortIsClosed) {
  EXPECT_EQ(without_summary(run_monitor("/nonexistent/cups.sock", {"--server", "127.0.0.1:1"}).output),
            "print server 127.0.0.1:1: it cannot be reached: Connection refused\n");
}

TEST(MonitorAlone, SaysThatTheSchedulerDoesNotRun) {
  const auto result = run_monitor("/nonexistent/cups.sock", {});
  EXPECT_THAT(result.output, HasSubstr("print server localhost: it cannot be reached"));
  EXPECT_EQ(result.exit_status, 3);
}

TEST(MonitorAlone, SaysThatThereIsNoQueue) {
  const PrivateScheduler scheduler;
  const auto result = run_monitor(scheduler.server(), {});
  EXPECT_THAT(result.output, testing::MatchesRegex("No Brenvellis queues found, [0-9][0-9]:[0-9][0-9]\n"));
  EXPECT_EQ(result.exit_status, 3);
}

struct StatusCase {
  const char* setting;
  int exit_status;
};

class ExitStatus : public Monitor, public testing::WithParamInterface<StatusCase> {};

TEST_P(ExitStatus, FollowsThePrinter) {
  printer.tell(GetParam().setting);
  EXPECT_EQ(run().exit_status, GetParam().exit_status);
}

INSTANTIATE_TEST_SUITE_P(Conditions, ExitStatus,
                         testing::Values(StatusCase{"remaining 45; total 400", 0},   //
                                         StatusCase{"remaining 40; total 400", 1},   //
                                         StatusCase{"remaining 0; total 400", 2},    //
                                         StatusCase{"code 0x2660", 2},               //
                                         StatusCase{"remaining 1; code 0x0032", 2},  //
                                         StatusCase{"remaining 65535", 3},           //
                                         StatusCase{"fault silent levels", 3},       //
                                         StatusCase{"fault silent", 2}));

TEST_F(Monitor, TakesTheLimitOfALowRibbon) {
  EXPECT_EQ(run({"--low", "50%"}).exit_status, 1);
  EXPECT_EQ(run({"--low", "49%"}).exit_status, 0);
  EXPECT_EQ(run({"--low", "200"}).exit_status, 1);
  EXPECT_EQ(run({"--low", "199"}).exit_status, 0);
}

TEST_F(Monitor, TakesTheCriticalLimitOfARibbon) {
  EXPECT_EQ(run({"--critical", "200"}).exit_status, 2);
  EXPECT_EQ(run({"--critical", "199"}).exit_status, 0);
  EXPECT_EQ(run({"--critical", "50%"}).exit_status, 2);
  EXPECT_EQ(run({"--low", "200", "--critical", "49%"}).exit_status, 1);
}

TEST_F(Monitor, TellsErrorBeforeUnknownBeforeLow) {
  const NetworkPrinter second({"--remaining", "1"});
  scheduler.add_queue("second", second.device_uri());
  EXPECT_EQ(run().exit_status, 1);
  EXPECT_EQ(run({"booth", "second", "nowhere"}).exit_status, 3);
  second.tell("code 0x2660");
  EXPECT_EQ(run({"booth", "second", "nowhere"}).exit_status, 2);
}

}  // namespace
