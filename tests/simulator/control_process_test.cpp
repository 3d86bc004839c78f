// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "tests/simulator/simulator_process.h"

using testing::HasSubstr;
using testing::StartsWith;

TEST(Control, EveryCommandIsAnsweredInOneConnection) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST + LEVELS_REQUEST);
  EXPECT_EQ(peer.receive(41), simulated_status_reply() + simulated_levels_reply());
  const std::pair<const char*, const char*> cases[] = {
      {"code 0x2660; remaining 12", "ok"},
      {"total 300", "ok"},
      {"sheet 4", "ok"},
      {"fault slow 500 levels", "ok"},
      {"show",
       "ok code=0x2660 total=300 remaining=12 sheet=0x04 fault=slow,500,levels connections=1 open=1 "
       "status-requests=1 levels-requests=1 other-bytes=0"},
      {"code 70000", "error: 'code' requires a number from 0 to 65535, decimal or hexadecimal with 0x"},
      {"requests",
       "ok 1b47443000000116 1b474430000003"
       "1e162a"},
      {"forget", "ok"},
      {"requests", "ok"},
      {"show",
       "ok code=0x2660 total=300 remaining=12 sheet=0x04 fault=slow,500,levels connections=0 open=1 "
       "status-requests=0 levels-requests=0 other-bytes=0"},
  };
  const Connection client = Connection::to_path(simulator.control());
  for (const auto& [line, reply] : cases) {
    client.send(std::string(line) + "\n");
    EXPECT_EQ(client.receive_line(), reply) << line;
  }
}

TEST(Control, TwoClientsSeeEachOthersSettings) {
  const SimulatorProcess simulator;
  const Connection first = Connection::to_path(simulator.control());
  const Connection second = Connection::to_path(simulator.control());
  first.send("code 1\n");
  EXPECT_EQ(first.receive_line(), "ok");
  second.send("show\n");
  EXPECT_THAT(second.receive_line(), StartsWith("ok code=0x0001 "));
  second.send("code 2\n");
  EXPECT_EQ(second.receive_line(), "ok");
  first.send("show\n");
  EXPECT_THAT(first.receive_line(), StartsWith("ok code=0x0002 "));
}

TEST(Control, LinesSentAtOnceAreAnsweredInTheirOrder) {
  const SimulatorProcess simulator;
  const Connection client = Connection::to_path(simulator.control());
  client.send("code 1\nnonsense\nshow\n");
  client.end_sending();
  EXPECT_EQ(client.receive_line(), "ok");
  EXPECT_THAT(client.receive_line(), StartsWith("error: "));
  EXPECT_THAT(client.receive_line(), StartsWith("ok code=0x0001 "));
  EXPECT_EQ(client.receive_to_end(), "");
}

TEST(Control, ALineInPiecesIsOneLine) {
  const SimulatorProcess simulator;
  const Connection client = Connection::to_path(simulator.control());
  for (const char character : std::string_view("code 3\n")) {
    client.send(std::string(1, character));
  }
  EXPECT_EQ(client.receive_line(), "ok");
}

TEST(Control, ALineWithoutItsEndIsNotCarriedOut) {
  const SimulatorProcess simulator;
  const Connection client = Connection::to_path(simulator.control());
  client.send("remaining 1");
  client.end_sending();
  EXPECT_EQ(client.receive_to_end(), "");
  EXPECT_THAT(simulator.reply_to("show"), HasSubstr(" remaining=400 "));
}

TEST(Control, AnOverLongLineIsAnErrorAndTheNextLineCounts) {
  const SimulatorProcess simulator;
  const Connection client = Connection::to_path(simulator.control());
  client.send(std::string(100000, 'x') + "\ncode 1\n");
  EXPECT_EQ(client.receive_line(), "error: the line is longer than 1024 characters (send shorter lines)");
  EXPECT_EQ(client.receive_line(), "ok");
}

TEST(Control, ControlBytesAreAnErrorAndTheNextLineCounts) {
  const SimulatorProcess simulator;
  const Connection client = Connection::to_path(simulator.control());
  client.send(std::string("code\0 1\n\x1b[0m\n\xff\n", 15));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(client.receive_line(),
              "error: the line contains a control or non-ASCII character (send plain text)");
  }
  client.send("code 1\n");
  EXPECT_EQ(client.receive_line(), "ok");
}

TEST(Control, AClientThatGoesWithoutReadingDisturbsNothing) {
  const SimulatorProcess simulator;
  for (int i = 0; i < 50; ++i) {
    const Connection client = Connection::to_path(simulator.control());
    client.send("show\nhelp\nshow\n");
  }
  EXPECT_THAT(simulator.reply_to("show"), StartsWith("ok "));
}

TEST(Tell, PrintsTheReplyToStandardOutput) {
  const SimulatorProcess simulator;
  const ProgramResult outcome =
      run_simulator({"--tell", simulator.control(), "code", "0x2660;", "remaining", "12"});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.output, "ok\n");
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(simulator.reply_to("show"), StartsWith("ok code=0x2660 total=400 remaining=12 "));
}

TEST(Tell, AcceptsTheCommandAsOneWord) {
  const SimulatorProcess simulator;
  EXPECT_EQ(run_simulator({"--tell", simulator.control(), "fault slow 5"}).output, "ok\n");
  EXPECT_THAT(simulator.reply_to("show"), HasSubstr(" fault=slow,5 "));
}

TEST(Tell, PrintsAnErrorToStandardErrorAndFails) {
  const SimulatorProcess simulator;
  const ProgramResult outcome = run_simulator({"--tell", simulator.control(), "nonsense"});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "error: unknown command 'nonsense' ('help' lists the commands)\n");
}

TEST(Tell, PrintsAllRequests) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  std::string requests;
  for (int i = 0; i < 1500; ++i) {
    requests += std::string("\x1bGD0\0\0\xff", 7) + std::string(255, 'x');
  }
  peer.send(requests + STATUS_REQUEST);
  EXPECT_EQ(peer.receive(15), simulated_status_reply());
  const ProgramResult outcome = run_simulator({"--tell", simulator.control(), "requests"});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.output.size(), 2 + 999U * 525 + 17 + 1);
}

TEST(Tell, FailsWithoutAnAnswer) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "absent";
  const ProgramResult outcome = run_simulator({"--tell", path, "show"});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: no simulator answers at '" + path +
                                "' (No such file or directory); start one with --control " + path + "\n");
}

TEST(Tell, FailsOnAnInvalidSocketPath) {
  EXPECT_EQ(run_simulator({"--tell", std::string(200, 'x'), "show"}).exit_status, 1);
}
