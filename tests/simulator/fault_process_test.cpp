// SPDX-License-Identifier: Apache-2.0
// Tests each fault from the client's side. Pauses are one minute if a test checks that data has not been sent
// yet, and a few milliseconds if it checks that data is sent eventually.

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/simulator/simulator_process.h"

namespace {

/// Sends both requests on one connection and closes its side.
std::string ask_both(const SimulatorProcess& simulator) {
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST + LEVELS_REQUEST);
  peer.end_sending();
  return peer.receive_to_end();
}

}  // namespace

TEST(FaultOnTheWire, WholeStreams) {
  const SimulatorProcess simulator;
  const std::string status = simulated_status_reply();
  const std::string levels = simulated_levels_reply();
  const std::string status_head = status.substr(0, 14);
  const std::pair<const char*, std::string> cases[] = {
      {"none", status + levels},
      {"silent", ""},
      {"silent status", levels},
      {"silent levels", status},
      {"short 0", ""},
      {"short 14", status_head + levels.substr(0, 14)},
      {"short 14 status", status_head + levels},
      {"short 4096", status + levels},
      {"drip 0", status + levels},
      {"drip 2 levels", status + levels},
      {"split 10 5", status + levels},
      {"split 0 5", status + levels},
      {"split 20 5", status + levels},
      {"long 40", status + std::string(25, '\0') + levels + std::string(14, '\0')},
      {"long 40 status", status + std::string(25, '\0') + levels},
      {"long 4096", status + std::string(4081, '\0') + levels + std::string(4070, '\0')},
      {"long 3", status + levels},
      {"garbage", std::string(41, '\xff')},
      {"garbage levels", status + std::string(26, '\xff')},
      {"slow 5", status + levels},
      {"close 0", ""},
      {"close 9", status.substr(0, 9)},
      {"close 9 levels", status + levels.substr(0, 9)},
      {"close 4096", status},
  };
  for (const auto& [fault, stream] : cases) {
    simulator.set("fault " + std::string(fault));
    EXPECT_EQ(ask_both(simulator), stream) << fault;
  }
}

TEST(FaultOnTheWire, SilentKeepsTheConnectionOpen) {
  const SimulatorProcess simulator({"--fault", "silent"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  simulator.await_shown("status-requests=1");
  EXPECT_EQ(peer.receive_now(), "");
  simulator.set("fault none");
  peer.send(LEVELS_REQUEST);
  EXPECT_EQ(peer.receive(26), simulated_levels_reply());
}

TEST(FaultOnTheWire, ShortKeepsTheConnectionOpen) {
  const SimulatorProcess simulator({"--fault", "short 14 status"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  EXPECT_EQ(peer.receive(14), simulated_status_reply().substr(0, 14));
  peer.send(LEVELS_REQUEST);
  EXPECT_EQ(peer.receive(26), simulated_levels_reply());
}

TEST(FaultOnTheWire, DripSendsTheFirstByteAlone) {
  const SimulatorProcess simulator({"--fault", "drip 60000"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  EXPECT_EQ(peer.receive_piece().size(), 1U);
}

TEST(FaultOnTheWire, SplitSendsTheFirstPartAlone) {
  const SimulatorProcess simulator({"--fault", "split 10 60000"});
  const Connection peer = simulator.connect();
  peer.send(LEVELS_REQUEST);
  EXPECT_EQ(peer.receive_piece(), simulated_levels_reply().substr(0, 10));
}

TEST(FaultOnTheWire, SlowSendsNothingYet) {
  const SimulatorProcess simulator({"--fault", "slow 60000"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  // The simulator has one thread: each answer shows that it has run once more through its events.
  for (int turn = 0; turn < 10; ++turn) {
    simulator.await_shown("status-requests=1");
  }
  EXPECT_EQ(peer.receive_now(), "");
}

TEST(FaultOnTheWire, CloseEndsAConnectionThatThePeerKeepsOpen) {
  const SimulatorProcess simulator({"--fault", "close 3"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  EXPECT_EQ(peer.receive_to_end(), std::string(3, '\0'));
  simulator.await_shown("open=0");
}

TEST(FaultOnTheWire, CloseWithoutAByteEndsAConnectionThatThePeerKeepsOpen) {
  const SimulatorProcess simulator({"--fault", "close 0"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  EXPECT_EQ(peer.receive_to_end(), "");
}

TEST(FaultOnTheWire, AReplyIsMadeWhenItsRequestIsComplete) {
  const SimulatorProcess simulator({"--code", "1"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST + STATUS_REQUEST.substr(0, 7));
  EXPECT_EQ(peer.receive(15), simulated_status_reply(1));
  simulator.set("code 2; fault slow 300");
  peer.send(STATUS_REQUEST.substr(7));
  simulator.await_shown("status-requests=2");
  simulator.set("code 3; fault none");
  EXPECT_EQ(peer.receive(15), simulated_status_reply(2));
}

TEST(FaultOnTheWire, ALaterReplyDoesNotOvertakeASlowOne) {
  const SimulatorProcess simulator({"--fault", "slow 300"});
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  simulator.await_shown("status-requests=1");
  simulator.set("fault none");
  peer.send(LEVELS_REQUEST);
  EXPECT_EQ(peer.receive(41), simulated_status_reply() + simulated_levels_reply());
}

TEST(FaultOnTheWire, ASlowConnectionDoesNotHoldUpAnother) {
  const SimulatorProcess simulator({"--fault", "slow 60000 status"});
  const Connection slow = simulator.connect();
  slow.send(STATUS_REQUEST);
  simulator.await_shown("status-requests=1");
  const Connection peer = simulator.connect();
  peer.send(LEVELS_REQUEST);
  EXPECT_EQ(peer.receive(26), simulated_levels_reply());
}

TEST(Refuse, RefusesNewConnections) {
  const SimulatorProcess simulator;
  simulator.set("fault refuse");
  EXPECT_EQ(try_to_connect(simulator.port()), ECONNREFUSED);
}

TEST(Refuse, ClosesTheConnectionsThereAre) {
  const SimulatorProcess simulator;
  const Connection peer = simulator.connect();
  simulator.await_shown("open=1");
  simulator.set("fault refuse");
  EXPECT_EQ(peer.receive_to_end(), "");
  simulator.await_shown("open=0");
}

TEST(Refuse, HoldsFromTheStart) {
  const SimulatorProcess simulator({"--fault", "refuse"});
  EXPECT_EQ(try_to_connect(simulator.port()), ECONNREFUSED);
}

TEST(Refuse, EndsOnTheSamePortWithTheNextFault) {
  const SimulatorProcess simulator({"--fault", "refuse"});
  simulator.set("fault short 2");
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  EXPECT_EQ(peer.receive(2), std::string(2, '\0'));
}

TEST(Refuse, OtherSettingsLeaveItInPlace) {
  const SimulatorProcess simulator({"--fault", "refuse"});
  simulator.set("code 5");
  EXPECT_EQ(try_to_connect(simulator.port()), ECONNREFUSED);
}

TEST(Refuse, ManyTurnsOnAndOffEndInService) {
  const SimulatorProcess simulator;
  for (int turn = 0; turn < 100; ++turn) {
    const Connection peer = simulator.connect();
    simulator.set("fault refuse");
    simulator.set("fault none");
  }
  EXPECT_EQ(ask_both(simulator), simulated_status_reply() + simulated_levels_reply());
}

TEST(Refuse, APortTakenMeanwhileIsAnErrorThatChangesNothing) {
  const SimulatorProcess simulator({"--fault", "refuse"});
  {
    const PortHolder thief(simulator.port());
    thief.listen();
    EXPECT_EQ(simulator.reply_to("code 5; fault none"),
              "error: cannot listen on port " + std::to_string(simulator.port()) +
                  " again: Address already in use; free the port and try again");
    simulator.await_shown("code=0x0000 total=400 remaining=400 sheet=0x02 fault=refuse");
  }
  simulator.set("fault none");
  EXPECT_EQ(ask_both(simulator), simulated_status_reply() + simulated_levels_reply());
}
