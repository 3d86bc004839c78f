// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class Output : public testing::Test {
 protected:
  Output() { scheduler.add_queue("booth", printer.device_uri()); }

  ProgramResult run(const std::vector<std::string>& arguments) {
    return run_monitor(scheduler.server(), arguments);
  }
  [[nodiscard]] std::string file(const std::string& name) const { return (folder.path() / name).string(); }
  [[nodiscard]] static std::string text_of(const std::string& path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler;
  TemporaryFolder folder;
};

TEST_F(Output, IsTextWithoutColorOrLiveLineWhereThereIsNoTerminal) {
  const auto result = run({});
  EXPECT_THAT(result.output, MatchesRegex("1 printer, all well, [0-9][0-9]:[0-9][0-9]\n"
                                          "booth  idle  █████░░░░░  200 of 400 prints left \\(50 %\\)  "
                                          "just now, 10x15\\(4x6″\\)\n"));
  EXPECT_EQ(result.errors, "");
}

TEST_F(Output, IsColoredOnRequest) {
  EXPECT_THAT(run({"--color", "always"}).output, HasSubstr("\033[32m█████\033[0m"));
}

TEST_F(Output, IsAsciiInALocaleWithoutUtf8) {
  auto environment = monitor_environment(scheduler.server());
  environment["LC_ALL"] = "C";
  const auto result = run_program({MONITOR_PROGRAM}, {}, environment);
  EXPECT_THAT(result.output, HasSubstr("\nbooth  idle  #####-----  200 of 400 prints left (50 %)  "));
}

TEST_F(Output, GoesToTheFileThatIsNamed) {
  const auto result = run({"--prometheus=" + file("metrics.prom")});
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(text_of(file("metrics.prom")),
              HasSubstr("brenvellis_ribbon_prints_remaining{queue=\"booth\",server=\"localhost\"} 200\n"));
}

TEST_F(Output, GoesToSeveralFilesOfOneRefresh) {
  ASSERT_EQ(run({}).exit_status, 0);
  printer.tell("forget");
  const auto result =
      run({"--prometheus=" + file("m.prom"), "--html=" + file("p.html"), "--json=" + file("r.json")});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(text_of(file("m.prom")), StartsWith("# HELP"));
  EXPECT_THAT(text_of(file("p.html")), StartsWith("<!DOCTYPE html>"));
  EXPECT_EQ(read_json(file("r.json"))["servers"][0]["queues"][0]["queue"], "booth");
  EXPECT_EQ(printer.requests().size(), 2U);
}

TEST_F(Output, OfOneKindGoesToSeveralFilesAndToStandardOutput) {
  const auto result = run({"--json=" + file("a.json"), "--json", "--json=" + file("b.json")});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output, StartsWith("{"));
  EXPECT_EQ(text_of(file("a.json")), result.output);
  EXPECT_EQ(text_of(file("b.json")), result.output);
}

TEST_F(Output, ToAClosedPipeIsNotWrittenAndTheOthersAre) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  close(ends[0]);
  const int errors = open(file("errors").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ChildProcess monitor({{MONITOR_PROGRAM, "--json", "--html=" + file("p.html")},
                        {{1, ends[1]}, {2, errors}},
                        monitor_environment(scheduler.server())});
  close(ends[1]);
  close(errors);
  EXPECT_EQ(monitor.exit_status(std::chrono::seconds(30)), 74);
  EXPECT_EQ(text_of(file("errors")), "");
  EXPECT_THAT(text_of(file("p.html")), StartsWith("<!DOCTYPE html>"));
}

TEST_F(Output, ThatCannotBeWrittenIsReported) {
  const auto result = run({"--json=/nonexistent/report.json"});
  EXPECT_EQ(result.errors, "brenvellis-monitor: /nonexistent/report.json: No such file or directory\n");
  EXPECT_EQ(result.exit_status, 74);
}

TEST_F(Output, OnAFullDiskIsReported) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ChildProcess monitor({{MONITOR_PROGRAM}, {{1, full}}, monitor_environment(scheduler.server())});
  close(full);
  EXPECT_EQ(monitor.exit_status(std::chrono::seconds(30)), 74);
}

TEST_F(Output, ToAClosedPipeEndsAWatch) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  ChildProcess monitor(
      {{MONITOR_PROGRAM, "--watch", "3600"}, {{1, ends[1]}}, monitor_environment(scheduler.server())});
  close(ends[1]);
  char first = 0;
  EXPECT_EQ(read(ends[0], &first, 1), 1);
  close(ends[0]);
  EXPECT_EQ(monitor.exit_status(std::chrono::seconds(30)), 74);
}

/// A program that ran on a terminal.
struct TerminalRun {
  int exit_status = -1;
  std::string shown;
};

TerminalRun run_on_terminal(const std::vector<std::string>& arguments,
                            const std::map<std::string, std::string>& environment) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
    throw std::runtime_error("cannot open a terminal");
  }
  const int inner = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ChildProcess monitor({arguments, {{1, inner}, {2, inner}}, environment});
  TerminalRun result;
  result.exit_status = monitor.exit_status(std::chrono::seconds(30));
  close(inner);
  // The last output may still be in the terminal. A closed terminal is reported as a read error.
  std::array<char, 4096> part{};
  for (ssize_t count = 0; (count = read(terminal, part.data(), part.size())) > 0;) {
    result.shown.append(part.data(), static_cast<std::size_t>(count));
  }
  close(terminal);
  return result;
}

TEST_F(Output, OnATerminalHasALiveLineThatIsGoneAtTheEnd) {
  // Long in all, and yet no byte is late for the filter, however busy this machine is.
  printer.tell("fault drip 30");
  const auto run = run_on_terminal({MONITOR_PROGRAM}, monitor_environment(scheduler.server()));
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.shown, StartsWith("\r0 of 1 printers have answered\033[K"));
  const auto end = run.shown.rfind("\r\033[K");
  ASSERT_NE(end, std::string::npos);
  EXPECT_THAT(run.shown.substr(end), Not(HasSubstr("answered")));
  EXPECT_THAT(run.shown.substr(end), HasSubstr("200 of 400 prints left (50 %)"));
  EXPECT_THAT(run.shown, HasSubstr("\033[32m"));
}

TEST_F(Output, NoColorIsRespectedOnATerminal) {
  auto environment = monitor_environment(scheduler.server());
  environment["NO_COLOR"] = "1";
  const auto run = run_on_terminal({MONITOR_PROGRAM, "--no-refresh"}, environment);
  EXPECT_THAT(run.shown, HasSubstr("booth  never read"));
  EXPECT_THAT(run.shown, Not(HasSubstr("\033")));
}

TEST(Usage, AUsageErrorExitsWithStatus64) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--nonsense"},
                                             {"--timeout", "0"},
                                             {"--timeout", "soon"},
                                             {"--timeout"},
                                             {"--watch", "0"},
                                             {"--idle", "900"},
                                             {"--html", "--page-interval", "0"},
                                             {"--page-interval", "60"},
                                             {"--json", "--page-interval", "60"},
                                             {"--watch", "60", "--html", "--page-interval", "60"},
                                             {"--watch", "60", "--idle", "0"},
                                             {"--stuck", "0"},
                                             {"--max-age", "-1"},
                                             {"--max-age", "5", "--no-refresh"},
                                             {"--low", "101%"},
                                             {"--low", "ten"},
                                             {"--critical", "65536"},
                                             {"--low", "-1"},
                                             {"--color", "pink"},
                                             {"--encryption", "maybe"},
                                             {"--server", "host:port"},
                                             {"--server", ""},
                                             {"--server", "ipp://printhost"},
                                             {"--server", "./cups.sock"},
                                             {""},
                                             {"--ready", ""},
                                             {"booth", ""},
                                             {"--json", "--html"},
                                             {"--json", "--prometheus=-"},
                                             {"--output", "y"},
                                             {"--json=x", "--html=x"},
                                             {"--json=x", "--json=x"},
                                             {"--json=./x", "--html=x"},
                                             {"--json=x", "--html=y/.././x"},
                                             {"--json", "--json"},
                                             {"--ready", "--json", "booth"},
                                             {"--ready", "--watch", "60", "booth"},
                                             {"--json="},
                                             {"--on-change", "true"},
                                             {"--watch", "60", "--on-change", ""},
                                             {"--watch", "60", "--on-change-at-start"},
                                             {"--wait", "--no-refresh"}}) {
    const auto result = run_monitor("/nonexistent/cups.sock", arguments);
    EXPECT_EQ(result.exit_status, 64) << arguments[0];
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("brenvellis-monitor: "));
    EXPECT_THAT(result.errors, EndsWith("Run with --help for more information.\n"));
  }
}

TEST(Usage, AnErrorSaysWhatIsExpected) {
  const auto error = [](const std::vector<std::string>& arguments) {
    const auto errors = run_monitor("/nonexistent/cups.sock", arguments).errors;
    return errors.substr(0, errors.find('\n'));
  };
  EXPECT_EQ(
      error({"--server", "ipp://hall"}),
      "brenvellis-monitor: --server: invalid value 'ipp://hall' (expected HOST, HOST:PORT or the absolute "
      "path of a socket)");
  EXPECT_EQ(error({"--watch", "60", "--on-change", ""}),
            "brenvellis-monitor: --on-change: invalid value '' (expected a command)");
  EXPECT_EQ(error({"--json", "--page-interval", "60"}),
            "brenvellis-monitor: --page-interval requires --html");
  EXPECT_EQ(error({""}), "brenvellis-monitor: invalid QUEUE '' (expected the name of a queue)");
}

TEST(Usage, TwoPathsOfOneFileAreRejected) {
  const TemporaryFolder folder;
  std::filesystem::create_directory_symlink(folder.path(), folder.path() / "link");
  std::filesystem::create_symlink("page", folder.path() / "same");
  const auto file = [&](const char* name) { return (folder.path() / name).string(); };
  std::ofstream(file("page")) << "before";
  for (const auto* other : {"page", "link/page", "same", "./page", "gone/../page"}) {
    const auto result =
        run_monitor("/nonexistent/cups.sock", {"--json=" + file("page"), "--html=" + file(other)});
    EXPECT_EQ(result.exit_status, 64) << other;
    EXPECT_THAT(result.errors, HasSubstr("two outputs cannot go to the same file"));
  }
}

TEST(Usage, AServerThatIsGivenTwiceIsShownOnce) {
  const auto shown = [](const std::vector<std::string>& servers) {
    std::vector<std::string> arguments = {"--json", "--timeout", "1"};
    for (const auto& server : servers) {
      arguments.insert(arguments.end(), {"--server", server});
    }
    std::vector<std::string> names;
    const auto object = nlohmann::json::parse(run_monitor("/nonexistent/cups.sock", arguments).output);
    for (const auto& server : object["servers"]) {
      names.push_back(server["server"]);
    }
    return names;
  };
  EXPECT_THAT(shown({"LocalHost:1", "localhost:1", "localhost:2", "LOCALHOST:1"}),
              ElementsAre("LocalHost:1", "localhost:2"));
  EXPECT_THAT(shown({"[::1]:1", "[::1]:1"}), ElementsAre("[::1]:1"));
  EXPECT_THAT(shown({"/nonexistent/a", "/nonexistent/a", "/nonexistent/A"}),
              ElementsAre("/nonexistent/a", "/nonexistent/A"));
}

TEST(Usage, PageIntervalIsWrittenToThePage) {
  const auto page = [](std::vector<std::string> arguments) {
    arguments.emplace_back("--html");
    return run_monitor("/nonexistent/cups.sock", arguments).output;
  };
  EXPECT_THAT(page({}), HasSubstr("data-interval=\"60\" data-reload=\"30\""));
  EXPECT_THAT(page({"--page-interval", "600"}), HasSubstr("data-interval=\"600\" data-reload=\"30\""));
}

TEST(Usage, HelpTellsTheExitStatuses) {
  const auto result = run_monitor("/nonexistent/cups.sock", {"--help"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output, HasSubstr("Exit status:\n  0    no problems; with --ready: each QUEUE can print "
                                       "now\n  1    a ribbon is low"));
}

TEST(Usage, EveryOptionOfTheHelpIsInTheManualPage) {
  std::ifstream page(MANUAL_PAGE);
  const std::string manual{std::istreambuf_iterator<char>(page), {}};
  const auto help = run_monitor("/nonexistent/cups.sock", {"--help"}).output;
  int count = 0;
  for (std::size_t at = help.find("\n  --"); at != std::string::npos; at = help.find("\n  --", at + 1)) {
    const auto start = at + 5;
    const auto option =
        help.substr(start, help.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", start) - start);
    EXPECT_THAT(manual, HasSubstr(".It Fl -" + option)) << option;
    ++count;
  }
  EXPECT_GE(count, 10);
}

}  // namespace
