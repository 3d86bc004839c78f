// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/scheduler/one_printer.h"

namespace {

/// Traces the filter's system calls while the scheduler runs it for a job with both commands.
class SystemCalls : public OnePrinter {
 protected:
  SystemCalls() {
    namespace fs = std::filesystem;
    const fs::path filter = scheduler.path() / "bin/filter/commandtobrenvellis";
    const fs::path traced = scheduler.path() / "bin/filter/traced";
    // The trace must be writable by the scheduler's user.
    const fs::path folder = scheduler.path() / "trace";
    fs::create_directory(folder);
    fs::permissions(folder, fs::perms::all);
    fs::rename(filter, traced);
    std::ofstream(filter) << "#!/bin/sh\nexec " STRACE " -y -s 200 -o " << folder.string() << "/calls "
                          << traced.string() << " \"$@\"\n";
    fs::permissions(filter, fs::perms(0755));

    const auto view = scheduler.report("booth", "ReportLevels\nReportStatus\n");
    EXPECT_EQ(view.marker, HALF_USED);
    EXPECT_EQ(view.reasons, ERROR_2660);
    std::ifstream file(folder / "calls");
    for (std::string line; std::getline(file, line);) {
      calls.push_back(line);
    }
    // strace starts with the program and ends with its status.
    EXPECT_TRUE(!calls.empty() && calls.front().starts_with("execve(") &&
                calls.back() == "+++ exited with 0 +++");
  }

  /// The calls whose name matches, with their arguments.
  [[nodiscard]] std::vector<std::string> called(const std::string& names) const {
    const std::regex pattern("(" + names + R"()\(.*)");
    std::vector<std::string> found;
    std::ranges::copy_if(calls, std::back_inserter(found),
                         [&](const auto& call) { return std::regex_match(call, pattern); });
    return found;
  }

  std::vector<std::string> calls;
};

TEST_F(SystemCalls, WriteOnlyToTheThreeStreams) {
  const auto writes =
      called("write|writev|pwrite64|pwritev|pwritev2|send|sendto|sendmsg|sendfile|splice|copy_file_range");
  // Standard output, standard error and the side channel; the pipe of the back channel is only read.
  const std::regex stream(R"(write\((1|2)<pipe:.*|(write|sendto)\((4)<.*)");
  std::size_t requests = 0;
  for (const auto& call : writes) {
    EXPECT_TRUE(std::regex_match(call, stream)) << call;
    requests += call.starts_with("write(1<");
  }
  EXPECT_EQ(requests, 3U);
}

TEST_F(SystemCalls, OpenNothingButLibrariesAndTheCommandFile) {
  const std::string spool = (scheduler.path() / "spool").string();
  std::size_t command_files = 0;
  for (const auto& call : called("open|openat|openat2|creat")) {
    if (call.find("ENOENT") != std::string::npos) {
      continue;
    }
    const std::string path = call.substr(call.find('"') + 1, call.rfind('"') - call.find('"') - 1);
    const bool library = std::regex_match(path, std::regex(R"((/usr)?/lib(64)?/.*\.so(\.[0-9]+)*)")) ||
                         path == "/etc/ld.so.cache";
    const bool command_file = path.starts_with(spool);
    command_files += command_file;
    EXPECT_TRUE(library || command_file) << call;
    EXPECT_EQ(call.find("O_WRONLY"), std::string::npos) << call;
    EXPECT_EQ(call.find("O_RDWR"), std::string::npos) << call;
    EXPECT_EQ(call.find("O_CREAT"), std::string::npos) << call;
  }
  EXPECT_EQ(command_files, 1U);
}

TEST_F(SystemCalls, ChangeNoFileAndStartNoProcess) {
  EXPECT_EQ(
      called("unlink|unlinkat|rename|renameat|renameat2|mkdir|mkdirat|rmdir|link|linkat|symlink|symlinkat|"
             "chmod|fchmod|fchmodat|chown|fchown|fchownat|truncate|ftruncate|utimensat|mknod|mknodat|"
             "socket|connect|bind|listen|fork|vfork|clone|clone3|kill|tgkill|ptrace"),
      std::vector<std::string>());
  EXPECT_EQ(called("execve|execveat").size(), 1U);
}

}  // namespace
