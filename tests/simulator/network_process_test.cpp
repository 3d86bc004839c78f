// SPDX-License-Identifier: Apache-2.0
// Tests unusual clients on the network.

#include <gtest/gtest.h>

#include <random>

#include "tests/simulator/simulator_process.h"

namespace {

void expect_service(const SimulatorProcess& simulator) {
  const Connection peer = simulator.connect();
  peer.send(LEVELS_REQUEST + STATUS_REQUEST);
  EXPECT_EQ(peer.receive(41), simulated_levels_reply() + simulated_status_reply());
}

std::string random_junk(std::mt19937& random, std::size_t size) {
  std::string junk;
  while (junk.size() < size) {
    if (random() % 50 == 0) {
      junk += STATUS_REQUEST.substr(0, random() % 9);
    }
    junk += static_cast<char>(random() % 256);
  }
  return junk;
}

}  // namespace

TEST(Network, TheOptionsAreWhatThePrinterSays) {
  const SimulatorProcess simulator(
      {"--code", "0x2660", "--total", "0x8001", "--remaining", "12", "--sheet", "15"});
  const Connection peer = simulator.connect();
  peer.send(LEVELS_REQUEST);
  std::string expected = simulated_levels_reply(0x2660);
  expected.replace(17, 7, std::string("\x0f\0\0\x80\x01\0\x0c", 7));
  EXPECT_EQ(peer.receive(26), expected);
}

TEST(Network, ARequestCutAnywhereIsAnswered) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  for (std::size_t cut = 1; cut < LEVELS_REQUEST.size(); ++cut) {
    peer.send(LEVELS_REQUEST.substr(0, cut));
    peer.send(LEVELS_REQUEST.substr(cut));
    EXPECT_EQ(peer.receive(26), simulated_levels_reply()) << cut;
  }
}

TEST(Network, APeerThatEndedItsSideGetsItsReplies) {
  const SimulatorProcess simulator({"--fault", "drip 5"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST + LEVELS_REQUEST);
  peer.end_sending();
  EXPECT_EQ(peer.receive_to_end(), simulated_status_reply() + simulated_levels_reply());
}

TEST(Network, PrintDataAroundRequestsIsCounted) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  peer.send(std::string(100000, 'p') + STATUS_REQUEST + std::string(7, '\x1b'));
  EXPECT_EQ(peer.receive(15), simulated_status_reply());
  peer.end_sending();
  EXPECT_EQ(peer.receive_to_end(), "");
  simulator.await_shown("other-bytes=100007");
}

TEST(Network, AnUnknownRequestIsRecordedAndNotAnswered) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  peer.send(std::string("\x1bGD0\0\0\x02\x16\xff", 9) + STATUS_REQUEST);
  EXPECT_EQ(peer.receive(15), simulated_status_reply());
  EXPECT_EQ(simulator.reply_to("requests"),
            "ok 1b47443000000216ff 1b4744300000"
            "0116");
  simulator.await_shown("status-requests=1 levels-requests=0 other-bytes=0");
}

TEST(Network, TwoHundredConnectionsAtOnceAreServed) {
  const SimulatorProcess simulator;
  std::vector<Connection> peers;
  peers.reserve(200);
  for (int i = 0; i < 200; ++i) {
    peers.push_back(simulator.connect());
  }
  for (const Connection& peer : peers) {
    peer.send(STATUS_REQUEST + LEVELS_REQUEST);
  }
  for (const Connection& peer : peers) {
    EXPECT_EQ(peer.receive(41), simulated_status_reply() + simulated_levels_reply());
  }
  simulator.await_shown("connections=200 open=200 status-requests=200 levels-requests=200 other-bytes=0");
  peers.clear();
  simulator.await_shown("open=0");
}

TEST(Network, NoDescriptorStaysBehindAConnection) {
  const SimulatorProcess simulator;
  const Connection control = Connection::to_path(simulator.control());
  simulator.await_shown("open=0");
  const auto closed = [&] {
    control.send("show\n");
    return control.receive_line();
  };
  closed();
  const std::size_t before = simulator.open_descriptors();
  for (int i = 0; i < 300; ++i) {
    Connection peer = simulator.connect();
    peer.send(i % 2 == 0 ? STATUS_REQUEST : "junk");
    if (i % 3 == 0) {
      peer.reset();
    }
  }
  simulator.await_shown("connections=300 open=0");
  closed();
  EXPECT_LE(simulator.open_descriptors(), before + 1);  // the waiting client's own may not be closed yet
}

TEST(Network, RandomJunkDisturbsNothing) {
  const SimulatorProcess simulator;
  std::mt19937 random(20261120);
  for (int round = 0; round < 60; ++round) {
    Connection peer = simulator.connect();
    peer.send(random_junk(random, 20000));
    switch (round % 3) {
      case 0:
        peer.reset();
        break;
      case 1:
        peer.end_sending();
        static_cast<void>(peer.receive_to_end());
        break;
      default:
        break;
    }
  }
  simulator.await_shown("open=0");
  expect_service(simulator);
}

TEST(Network, APeerThatNeverReadsIsReadFromNoMore) {
  const SimulatorProcess simulator({"--fault", "long 100"});
  Connection peer = simulator.connect();
  std::string requests;
  for (int i = 0; i < 1000; ++i) {
    requests += STATUS_REQUEST;
  }
  constexpr std::size_t FAR_TOO_MUCH = 32U << 20U;
  EXPECT_LT(peer.send_until_stuck(requests, FAR_TOO_MUCH), FAR_TOO_MUCH);
  simulator.set("fault none");
  expect_service(simulator);
  peer.reset();
  simulator.await_shown("open=0");
}

TEST(Network, APeerThatReadsLateGetsEveryReply) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  std::string requests;
  for (int i = 0; i < 5000; ++i) {
    requests += STATUS_REQUEST;
  }
  peer.send(requests);
  peer.end_sending();
  EXPECT_EQ(peer.receive_to_end().size(), 5000U * 15U);
}

TEST(Network, RunningOutOfDescriptorsIsSurvived) {
  const SimulatorProcess simulator;
  simulator.limit_descriptors(20);
  std::vector<Connection> peers;
  peers.reserve(40);
  for (int i = 0; i < 40; ++i) {
    peers.push_back(simulator.connect());
  }
  // Close the first ones, so that the last ones are accepted.
  peers.erase(peers.begin(), peers.begin() + 37);
  for (const Connection& peer : peers) {
    peer.send(STATUS_REQUEST);
    EXPECT_EQ(peer.receive(15), simulated_status_reply());
  }
  peers.clear();
  simulator.await_shown("connections=40 open=0");
}
