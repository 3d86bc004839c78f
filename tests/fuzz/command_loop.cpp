// SPDX-License-Identifier: Apache-2.0
// Runs the whole filter in this process with an arbitrary command file, backend and printer. Each command is
// answered, each report is complete, and no input can create a log line.

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <set>
#include <sstream>

#include "tests/fuzz/arbitrary_channels.h"
#include "tests/fuzz/require.h"
#include "tests/support/expected_log.h"
#include "tests/unit/captured_stream.h"
#include "tests/unit/known_codes.h"

// filter/main.cpp, under another name.
int filter_main(int argc, char* argv[]);

namespace {

/// Counts of lines in the log and of requests.
struct Account {
  int levels_commands = 0;
  int status_commands = 0;
  int marker_reports = 0;
  int state_reports = 0;
};

std::string lower_case(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return text;
}

void count_command(const std::string& line, Account& account) {
  const std::string before = "DEBUG: ====> command=[";
  if (line.starts_with(before)) {
    const std::string word = lower_case(line.substr(before.size(), line.rfind("] linenum=") - before.size()));
    account.levels_commands += word == "reportlevels";
    account.status_commands += word == "reportstatus";
  }
}

Account account_of(const std::string& log) {
  static const std::array<std::string, 5> attributes = {"colors", "levels", "message", "names", "types"};
  static const auto all_reasons = [] {
    std::set<std::string> keywords;
    for (const auto& [code, keyword] : known_keywords()) {
      keywords.insert(keyword);
    }
    return keywords;
  }();

  Account account;
  std::size_t attribute = 0;
  std::set<std::string> reasons;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    require(line.size() < 4096, "a line fits into one write to a pipe");
    if (line.starts_with("ATTR: ")) {
      require(line.starts_with("ATTR: marker-" + attributes.at(attribute) + "="), "the attributes' order");
      attribute = (attribute + 1) % attributes.size();
      account.marker_reports += attribute == 0;
    } else if (line.starts_with("STATE: ")) {
      require(attribute == 0 && (line[7] == '+' || line[7] == '-'), "a state line is whole");
      require(all_reasons.contains(line.substr(8)), "a reason is one of the table");
      require(reasons.insert(line.substr(8)).second, "a report mentions each reason once");
      if (reasons.size() == all_reasons.size()) {
        reasons.clear();
        ++account.state_reports;
      }
    } else {
      require(line.starts_with("DEBUG: "), "every other line is a debug line");
      count_command(line, account);
    }
  }
  require(attribute == 0 && reasons.empty(), "every report is whole");
  return account;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string commands = input.ConsumeRandomLengthString(4000);
  channels = {};
  channels.input = &input;
  channels.probing = true;

  const int file = memfd_create("commands", MFD_CLOEXEC);
  require(write(file, commands.data(), commands.size()) == static_cast<ssize_t>(commands.size()), "a file");
  std::array<std::string, 7> words = {
      "filter", "1", "user", "title", "1", "", "/proc/self/fd/" + std::to_string(file)};
  std::array<char*, 8> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    arguments.at(i) = words.at(i).data();
  }
  std::string log;
  const std::string requests = captured(stdout, [&] {
    log = captured_log([&] { require(filter_main(7, arguments.data()) == 0, "the exit status is 0"); });
  });
  close(file);

  require(!channels.probing, "the probe is made");
  const bool bidirectional = channels.probe_status == CUPS_SC_STATUS_OK && channels.probe_answer == "\x01";
  require(log.starts_with("DEBUG: Unable to retrieve supply status") == !bidirectional,
          "a connection that is not bidirectional is reported first");
  const Account account = account_of(log);
  require(account.marker_reports == account.levels_commands, "every ReportLevels reports the markers");
  require(account.state_reports == account.status_commands + (bidirectional ? account.levels_commands : 0),
          "every ReportStatus reports the state, and every ReportLevels that could ask");
  const auto exchanges =
      static_cast<std::size_t>(bidirectional ? 2 * account.levels_commands + account.status_commands : 0);
  require(channels.exchanges.size() == exchanges, "every report asks the printer");
  require(requests.size() ==
              (bidirectional ? static_cast<std::size_t>(account.levels_commands) *
                                       (LEVELS_REQUEST.size() + STATUS_REQUEST.size()) +
                                   static_cast<std::size_t>(account.status_commands) * STATUS_REQUEST.size()
                             : 0),
          "every exchange sends its request");
  return 0;
}
