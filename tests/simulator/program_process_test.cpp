// SPDX-License-Identifier: Apache-2.0
// Tests options, messages, exit statuses and remaining files.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/simulator/simulator_process.h"
#include "tests/support/child_process.h"

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

TEST(Program, PrintsTheDeviceUriAndNothingElse) {
  SimulatorProcess simulator;
  EXPECT_THAT(simulator.device_uri(), MatchesRegex("socket://127\\.0\\.0\\.1:[1-9][0-9]*"));
  const ProgramResult rest = simulator.end(SIGTERM);
  EXPECT_EQ(rest.output, "");
  EXPECT_EQ(rest.errors, "");
}

TEST(Program, ListensOnAGivenPort) {
  const PortHolder holder;
  const SimulatorProcess simulator({"--port", std::to_string(holder.port())});
  EXPECT_EQ(simulator.device_uri(), "socket://127.0.0.1:" + std::to_string(holder.port()));
  const Connection peer = simulator.connect();
  peer.send(STATUS_REQUEST);
  EXPECT_EQ(peer.receive(15), simulated_status_reply());
}

TEST(Program, FailsOnAPortInUse) {
  const PortHolder holder;
  holder.listen();
  const std::string port = std::to_string(holder.port());
  const ProgramResult outcome = run_simulator({"--port", port});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: cannot listen on 127.0.0.1:" + port +
                                ": Address already in use; choose another --port\n");
}

TEST(Program, EndsOnEitherSignalAndLeavesNothing) {
  for (const int signal : {SIGINT, SIGTERM}) {
    SimulatorProcess simulator;
    const Connection peer = simulator.connect();
    const Connection client = Connection::to_path(simulator.control());
    simulator.await_shown("open=1");
    EXPECT_EQ(simulator.end(signal).exit_status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(simulator.folder()->path()));
    EXPECT_EQ(peer.receive_to_end(), "");
  }
}

TEST(Program, ASocketFileOfAKilledSimulatorIsReplaced) {
  SimulatorProcess killed;
  EXPECT_EQ(killed.end(SIGKILL).exit_status, -1);
  ASSERT_FALSE(std::filesystem::is_empty(killed.folder()->path()));
  const SimulatorProcess simulator({}, killed.folder());
  EXPECT_THAT(simulator.reply_to("show"), StartsWith("ok "));
}

TEST(Program, ASocketFileThatALiveSimulatorServesIsLeftAlone) {
  const SimulatorProcess simulator;
  const ProgramResult outcome = run_simulator({"--control", simulator.control()});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: control socket '" + simulator.control() +
                                "': another simulator is using it; stop it or choose another path\n");
  EXPECT_THAT(simulator.reply_to("show"), StartsWith("ok "));
}

TEST(Program, ASocketFileThatAnotherSimulatorMadeSinceIsLeftAlone) {
  SimulatorProcess first;
  // Keep a link to it, so that its inode number is not reused.
  std::filesystem::rename(first.control(), first.control() + ".old");
  const SimulatorProcess second({}, first.folder());
  EXPECT_EQ(first.end(SIGTERM).exit_status, 0);
  EXPECT_THAT(second.reply_to("show"), StartsWith("ok "));
}

TEST(Program, ASocketFileOfAnotherUserIsLeftAlone) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file to another user";
  }
  SimulatorProcess killed;
  EXPECT_EQ(killed.end(SIGKILL).exit_status, -1);
  ASSERT_EQ(lchown(killed.control().c_str(), 54321, 54321), 0);
  const ProgramResult outcome = run_simulator({"--control", killed.control()});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: control socket '" + killed.control() +
                                "': it belongs to another user; choose another path\n");
  EXPECT_TRUE(std::filesystem::is_socket(killed.control()));
}

TEST(Program, TheControlSocketIsForItsOwnerAlone) {
  const SimulatorProcess simulator;
  EXPECT_EQ(std::filesystem::status(simulator.control()).permissions(), std::filesystem::perms(0600));
}

TEST(Program, AFileThatIsNotASocketIsLeftAlone) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "file";
  std::ofstream(path) << "precious";
  const ProgramResult outcome = run_simulator({"--control", path});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: control socket '" + path +
                                "': it exists and is not a socket; choose another path\n");
  std::string content;
  std::ifstream(path) >> content;
  EXPECT_EQ(content, "precious");
}

TEST(Program, AControlSocketInAMissingFolderIsAnError) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "missing/control";
  const ProgramResult outcome = run_simulator({"--control", path});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: control socket '" + path +
                                "': No such file or directory; choose another path\n");
}

TEST(Program, AControlPathThatIsTooLongIsAnError) {
  const std::string path = "/tmp/" + std::string(103, 'x');
  const ProgramResult outcome = run_simulator({"--control", path});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: control socket '" + path +
                                "': the path must have 1 to 107 characters; choose another\n");
}

// Only root can make a link of another user.
TEST(Program, AnotherUsersLinkOnTheWayToTheControlSocketIsNotFollowed) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can make another user's link";
  }
  const TemporaryFolder folder;
  const auto link = folder.path() / "link";
  std::filesystem::create_directory(folder.path() / "elsewhere");
  std::filesystem::create_directory_symlink(folder.path() / "elsewhere", link);
  ASSERT_EQ(lchown(link.c_str(), 65534, 65534), 0);
  const std::string path = link / "control";
  const ProgramResult outcome = run_simulator({"--control", path});
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.errors, "brenvellis-simulator: control socket '" + path +
                                "': the link 'link' belongs to another user; choose another path\n");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "elsewhere"));
}

TEST(Program, AUsageErrorExitsWithStatus2) {
  const std::string no_16_bits = " requires a number from 0 to 65535, decimal or hexadecimal with 0x";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"extra"}, "unexpected argument 'extra'"},
      {{"--colour", "1"}, "unrecognized option '--colour'"},
      {{"--port"}, "option '--port' requires an argument"},
      {{"--port", "65536"}, "--port: invalid value '65536' (expected 0-65535)"},
      {{"--port", "http"}, "--port: invalid value 'http' (expected 0-65535)"},
      {{"--port", "1", "--port", "2"}, "--port is given twice"},
      {{"--code", "0x10000"}, "--code: 'code'" + no_16_bits},
      {{"--code", ""}, "--code: 'code'" + no_16_bits},
      {{"--code", "1; total 2"}, "--code: 'code'" + no_16_bits},
      {{"--total", "many"}, "--total: 'total'" + no_16_bits},
      {{"--remaining", "1e3"}, "--remaining: 'remaining'" + no_16_bits},
      {{"--sheet", "256"},
       "--sheet: 'sheet' requires a number from 0 to 255, decimal or hexadecimal with 0x"},
      {{"--fault", "noise"},
       "--fault: unknown fault 'noise' (expected one of none silent short drip split long garbage slow close "
       "refuse)"},
      {{"--fault", "slow"},
       "--fault: invalid arguments of fault 'slow' (expected 'slow MS [status|levels]', N from 0 to 4096, MS "
       "from "
       "0 to 60000)"},
      {{"--control", ""}, "--control: invalid value '' (expected a path)"},
      {{"--tell", "path"}, "--tell: no command (try \"help\")"},
      {{"--tell", "path", "show", "--port", "1"},
       "--tell excludes all other options (send the settings as commands)"},
      {{"--tell", "path", "show\nshow"}, "--tell: the command contains a line end (send one line)"},
  };
  for (const auto& [arguments, message] : cases) {
    const ProgramResult outcome = run_simulator(arguments);
    EXPECT_EQ(outcome.exit_status, 2) << message;
    EXPECT_EQ(outcome.output, "") << message;
    EXPECT_EQ(outcome.errors,
              "brenvellis-simulator: " + message + "\nRun with --help for more information.\n");
  }
}

TEST(Program, FailingToPrintTheUriIsAFailure) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  const TemporaryFolder folder;
  const int errors = open((folder.path() / "errors").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ChildProcess simulator({{SIMULATOR_PROGRAM}, {{1, full}, {2, errors}}, {}});
  close(full);
  close(errors);
  EXPECT_EQ(simulator.exit_status(std::chrono::seconds(30)), 1);
  std::ifstream in(folder.path() / "errors");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
            "brenvellis-simulator: cannot write the device URI: No space left on device\n");
}

TEST(Program, HelpDescribesEveryOptionFaultAndExitStatus) {
  const ProgramResult outcome = run_simulator({"--help"});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.output, R"(Usage: brenvellis-simulator [OPTION...] [--tell PATH COMMAND...]
Simulates a Brenvellis network printer for tests and demonstrations.

Options:
  --port N              TCP port of 127.0.0.1 (default 0: any free port)
  --control PATH        Create a Unix socket for commands
  --code CODE           Status code (default 0: no error)
  --total N             Prints on a new ink ribbon (default 400)
  --remaining N         Prints left on the ribbon (default 400)
  --sheet CODE          Ink sheet type (default 0x02)
  --fault FAULT         Fault (default none), such as silent or "slow 500"
  --tell PATH           Send COMMAND to the simulator with this control socket,
                        print the reply and exit; "help" lists the commands
  --completion SHELL    Print the completion script of bash, zsh or fish
  --help                Print this summary
  --version             Print the version

Prints the CUPS device URI as its only line when it is ready, and runs until
SIGINT or SIGTERM. Numbers are decimal, or hexadecimal with 0x.

Faults (N in bytes, MS in milliseconds; the last word limits a fault to this
request):
  none
  silent [status|levels]
  short N [status|levels]
  drip [MS] [status|levels]
  split N [MS] [status|levels]
  long N [status|levels]
  garbage [status|levels]
  slow MS [status|levels]
  close N [status|levels]
  refuse

Exit status:
  0  terminated by a signal, or the reply to --tell is "ok"
  1  cannot listen or create the control socket, or the reply to --tell is an
     error or missing
  2  usage error
)");
}

TEST(Program, VersionNamesTheProgram) {
  const ProgramResult outcome = run_simulator({"--version"});
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_THAT(outcome.output, MatchesRegex("brenvellis-simulator [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}
