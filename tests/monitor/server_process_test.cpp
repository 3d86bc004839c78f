// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/monitor/ask.h"
#include "tests/monitor/monitor_run.h"
#include "tests/support/free_port.h"
#include "tests/support/network_printer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Kind = SchedulerError::Kind;

/// A scheduler with one queue to a healthy printer.
class ServerProcessTest : public testing::Test {
 protected:
  ServerProcessTest() { scheduler.add_queue("booth", printer.device_uri()); }

  Look look(int first_job = 0) { return std::get<Look>(ask(server, LookRequest{first_job})); }
  Job job(int number, int first_job = 0) {
    for (const auto& one : look(first_job).jobs) {
      if (one.number == number) {
        return one;
      }
    }
    return {};
  }
  int send(int report_levels = 1) {
    return std::get<Sent>(ask(server, SendRequest{"booth", report_levels, 60})).job;
  }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler{{.configuration = PrivateScheduler::Configuration::DEFAULT}};
  ServerProcess server{{scheduler.server(), 0}, HTTP_ENCRYPTION_IF_REQUESTED, seconds(10), MONITOR_PROGRAM};
};

TEST_F(ServerProcessTest, ReadsTheQueues) {
  const auto queues = look().queues;
  ASSERT_EQ(queues.size(), 1U);
  EXPECT_EQ(queues[0].queue, "booth");
  EXPECT_EQ(queues[0].state, QueueState::Idle);
  EXPECT_TRUE(is_brenvellis_queue(queues[0]));
  EXPECT_EQ(queues[0].shared, true);
  EXPECT_TRUE(queues[0].state_seconds);
}

TEST_F(ServerProcessTest, ReadsTheJobsAlone) {
  printer.tell("fault refuse");
  const int number = scheduler.send_raw("booth", "a print");
  const auto jobs_alone = std::get<Look>(ask(server, LookRequest{0, false}));
  EXPECT_THAT(jobs_alone.queues, IsEmpty());
  ASSERT_EQ(jobs_alone.jobs.size(), 1U);
  EXPECT_EQ(jobs_alone.jobs[0].number, number);
}

TEST_F(ServerProcessTest, SendsACommandJobAndFollowsItToItsEnd) {
  const int number = send();
  EXPECT_EQ(scheduler.wait_for_job(number), IPP_JSTATE_COMPLETED);
  const auto after = look(number);
  ASSERT_EQ(after.jobs.size(), 1U);
  EXPECT_EQ(after.jobs[0].number, number);
  EXPECT_EQ(after.jobs[0].queue, "booth");
  EXPECT_TRUE(after.jobs[0].is_command);
  EXPECT_TRUE(after.jobs[0].is_own);
  EXPECT_EQ(after.jobs[0].state, IPP_JSTATE_COMPLETED);
  EXPECT_EQ(after.queues[0].prints_remaining, 200);
  EXPECT_THAT(look().jobs, IsEmpty());
}

TEST_F(ServerProcessTest, AsksThePrinterAsOftenAsTold) {
  EXPECT_EQ(scheduler.wait_for_job(send(1)), IPP_JSTATE_COMPLETED);
  const auto once = printer.requests();
  EXPECT_EQ(scheduler.wait_for_job(send(3)), IPP_JSTATE_COMPLETED);
  EXPECT_FALSE(once.empty());
  EXPECT_EQ(printer.requests().size(), 4 * once.size());
}

TEST_F(ServerProcessTest, ShowsPrintsThatHangAndWait) {
  printer.tell("fault refuse");
  const int hanging = scheduler.send_raw("booth", "a print");
  const int waiting = scheduler.send_raw("booth", "another print");
  ASSERT_TRUE(wait_for_processing(scheduler, hanging));
  const auto now = look();
  ASSERT_EQ(now.jobs.size(), 2U);
  EXPECT_EQ(now.jobs[0].number, hanging);
  EXPECT_EQ(now.jobs[0].state, IPP_JSTATE_PROCESSING);
  EXPECT_FALSE(now.jobs[0].is_command);
  EXPECT_TRUE(now.jobs[0].processing_seconds);
  EXPECT_EQ(now.jobs[0].sheets_completed, 0);
  EXPECT_EQ(now.jobs[1].number, waiting);
  EXPECT_EQ(now.jobs[1].state, IPP_JSTATE_PENDING);
  EXPECT_FALSE(now.jobs[1].processing_seconds);
  EXPECT_EQ(now.queues[0].active_jobs, 2);
  EXPECT_EQ(now.queues[0].state, QueueState::Processing);
}

TEST_F(ServerProcessTest, AnotherUsersJobIsNotItsOwn) {
  const int number = scheduler.send_raw("booth", "a print");
  EXPECT_EQ(scheduler.wait_for_job(number), IPP_JSTATE_COMPLETED);
  const auto environment = monitor_environment(scheduler.server());
  run_program({"/usr/bin/lp", "-U", "guest", "-d", "booth", "-o", "raw"}, "a guest's print", environment);
  ASSERT_EQ(scheduler.wait_for_job(number + 1), IPP_JSTATE_COMPLETED);
  EXPECT_TRUE(job(number, number).is_own);
  EXPECT_FALSE(job(number + 1, number).is_own);
}

TEST_F(ServerProcessTest, PurgingEndsAndForgetsAJob) {
  printer.tell("fault silent");
  const int number = send();
  ASSERT_TRUE(wait_for_processing(scheduler, number));
  EXPECT_TRUE(std::holds_alternative<Purged>(ask(server, PurgeRequest{"booth", number})));
  EXPECT_THAT(look(number).jobs, IsEmpty());
}

TEST_F(ServerProcessTest, PurgingForgetsAJobThatHasEnded) {
  const int number = send();
  EXPECT_EQ(scheduler.wait_for_job(number), IPP_JSTATE_COMPLETED);
  EXPECT_TRUE(std::holds_alternative<Purged>(ask(server, PurgeRequest{"booth", number})));
  EXPECT_THAT(look(number).jobs, IsEmpty());
}

TEST_F(ServerProcessTest, APrintThatHasTheNumberOfALostJobIsNotPurged) {
  scheduler.add_queue("hall", printer.device_uri());
  const int print = scheduler.send_raw("booth", "a photo");
  const int command = scheduler.send_commands("hall", "ReportLevels\n");
  EXPECT_EQ(scheduler.wait_for_job(print), IPP_JSTATE_COMPLETED);
  EXPECT_EQ(scheduler.wait_for_job(command), IPP_JSTATE_COMPLETED);
  for (const int job : {print, command}) {
    EXPECT_TRUE(std::holds_alternative<Purged>(ask(server, PurgeRequest{"booth", job})));
    EXPECT_EQ(scheduler.job_state(job), IPP_JSTATE_COMPLETED);
  }
}

TEST_F(ServerProcessTest, AJobThatIsGoneCountsAsPurged) {
  EXPECT_TRUE(std::holds_alternative<Purged>(ask(server, PurgeRequest{"booth", 4711})));
}

TEST_F(ServerProcessTest, AnUnknownQueueIsNotFound) {
  EXPECT_EQ(error_of(ask(server, SendRequest{"nowhere", 1, 60})).kind, Kind::NotFound);
  EXPECT_EQ(error_of(ask(server, SendRequest{std::string(100'000, 'x'), 1, 60})).kind, Kind::NotFound);
  EXPECT_EQ(look().queues.size(), 1U);
}

TEST_F(ServerProcessTest, AQueueThatRejectsJobsRefuses) {
  scheduler.reject("booth");
  const auto error = error_of(ask(server, SendRequest{"booth", 1, 60}));
  EXPECT_EQ(error.kind, Kind::Refused);
  EXPECT_EQ(error.text, "Destination \"booth\" is not accepting jobs.");
}

TEST_F(ServerProcessTest, AServerWithoutQueuesIsNotAnError) {
  const PrivateScheduler empty;
  ServerProcess its_server({empty.server(), 0}, HTTP_ENCRYPTION_IF_REQUESTED, seconds(10), MONITOR_PROGRAM);
  EXPECT_THAT(std::get<Look>(ask(its_server, LookRequest())).queues, IsEmpty());
}

TEST_F(ServerProcessTest, TheProcessIsKeptBetweenRequests) {
  look();
  const pid_t pid = server.pid();
  EXPECT_GT(pid, 0);
  look();
  EXPECT_EQ(server.pid(), pid);
}

TEST_F(ServerProcessTest, AProcessThatWasKilledIsReplaced) {
  look();
  const pid_t pid = server.pid();
  kill(pid, SIGKILL);
  siginfo_t ended{};
  waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT);
  EXPECT_EQ(look().queues.size(), 1U);
  EXPECT_NE(server.pid(), pid);
}

TEST_F(ServerProcessTest, AProcessKilledDuringARequestIsAnInvalidAnswer) {
  look();
  kill(scheduler.pid(), SIGSTOP);
  server.ask(LookRequest());
  kill(server.pid(), SIGKILL);
  const auto error = error_of(wait_for_answer(server));
  kill(scheduler.pid(), SIGCONT);
  EXPECT_EQ(error.kind, Kind::InvalidAnswer);
  EXPECT_EQ(error.text, "its answer crashed the process that reads it: Killed");
  EXPECT_EQ(look().queues.size(), 1U);
}

TEST_F(ServerProcessTest, ASilentServerIsGivenUpInTimeAndAskedAgain) {
  ServerProcess hasty({scheduler.server(), 0}, HTTP_ENCRYPTION_IF_REQUESTED, seconds(1), MONITOR_PROGRAM);
  kill(scheduler.pid(), SIGSTOP);
  const auto error = error_of(ask(hasty, LookRequest()));
  kill(scheduler.pid(), SIGCONT);
  EXPECT_EQ(error.kind, Kind::NoAnswer);
  EXPECT_EQ(error.text, "no answer within 1 second");
  EXPECT_EQ(std::get<Look>(ask(hasty, LookRequest())).queues.size(), 1U);
}

TEST_F(ServerProcessTest, ARequestThatIsGivenUpHasNoAnswer) {
  kill(scheduler.pid(), SIGSTOP);
  server.ask(LookRequest());
  EXPECT_GE(server.descriptor(), 0);
  server.give_up();
  kill(scheduler.pid(), SIGCONT);
  EXPECT_EQ(server.descriptor(), -1);
  EXPECT_EQ(server.take_answer(), std::nullopt);
  EXPECT_EQ(look().queues.size(), 1U);
}

TEST_F(ServerProcessTest, ARestartedServerIsAskedOverANewConnection) {
  look();
  scheduler.restart(SIGTERM);
  EXPECT_EQ(look().queues.size(), 1U);
}

TEST_F(ServerProcessTest, TheUsersSignalsLeaveTheProcessAlone) {
  look();
  const pid_t pid = server.pid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    kill(pid, signal);
  }
  look();
  EXPECT_EQ(server.pid(), pid);
}

TEST_F(ServerProcessTest, TheProcessHoldsNoDescriptorButItsOwn) {
  const int stray = dup(STDERR_FILENO);  // without close-on-exec
  look();
  const auto files = std::filesystem::path("/proc") / std::to_string(server.pid()) / "fd";
  std::vector<int> open;
  for (const auto& file : std::filesystem::directory_iterator(files)) {
    open.push_back(std::stoi(file.path().filename()));
  }
  close(stray);
  // Standard ones and the connection.
  EXPECT_THAT(open, UnorderedElementsAre(0, 1, 2, 3));
}

TEST_F(ServerProcessTest, TheProcessIsLimited) {
  look();
  std::ifstream file("/proc/" + std::to_string(server.pid()) + "/limits");
  std::string name;
  std::map<std::string, std::string> limits;
  for (std::string line; std::getline(file, line);) {
    std::istringstream(line.substr(26)) >> limits[line.substr(0, line.find("  "))];
  }
  EXPECT_EQ(limits["Max core file size"], "0");
  EXPECT_EQ(limits["Max open files"], "64");
#ifndef BRENVELLIS_SANITIZE
  EXPECT_EQ(limits["Max address space"], std::to_string(256 << 20));
#endif
}

TEST(ServerProcess, TheProcessEndsWithItsObject) {
  pid_t pid = 0;
  {
    const PrivateScheduler scheduler;
    ServerProcess server({scheduler.server(), 0}, HTTP_ENCRYPTION_IF_REQUESTED, seconds(10), MONITOR_PROGRAM);
    static_cast<void>(ask(server, LookRequest()));
    pid = server.pid();
  }
  EXPECT_EQ(kill(pid, 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(ServerProcess, AServerThatIsNotThereIsUnreachable) {
  const std::string port = std::to_string(free_port());
  const struct {
    ServerName name;
    const char* text;
  } cases[] = {{{"127.0.0.1", std::stoi(port)}, "Connection refused"},
               {{"/nowhere/cups.sock", 0}, "No such file or directory"},
               {{"nowhere.invalid", 631}, "Name or service not known"}};
  for (const auto& one : cases) {
    ServerProcess server(one.name, HTTP_ENCRYPTION_IF_REQUESTED, seconds(10), MONITOR_PROGRAM);
    const auto error = error_of(ask(server, LookRequest()));
    EXPECT_EQ(error.kind, Kind::Unreachable) << one.name.host;
    EXPECT_EQ(error.text, one.text);
  }
}

TEST(ServerProcess, AProgramThatCannotBeStartedIsAnError) {
  ServerProcess server({"127.0.0.1", 1}, HTTP_ENCRYPTION_IF_REQUESTED, seconds(10), "/nowhere/program");
  const auto error = error_of(ask(server, LookRequest()));
  EXPECT_EQ(error.kind, Kind::Unreachable);
  EXPECT_EQ(error.text, "/nowhere/program: No such file or directory");
}

TEST(ServerProcess, AServerThatMustEncryptAndCannotIsAnError) {
  const PrivateScheduler scheduler;
  ServerProcess server({scheduler.server(), 0}, HTTP_ENCRYPTION_REQUIRED, seconds(10), MONITOR_PROGRAM);
  EXPECT_EQ(error_of(ask(server, LookRequest())).kind, Kind::NeedsEncryption);
}

}  // namespace
