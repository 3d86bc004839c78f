// SPDX-License-Identifier: Apache-2.0
// Compares brenvellis-check-ppd with the scheduler, for PPDs of the distribution with and without lines that
// a packager may add.
#include <cups/cups.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"
#include "tests/support/temporary_folder.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

// PPDs of the distribution with different types of filters.
constexpr const char* RASTER = "laserjet.ppd";     // cupsFilter, raster
constexpr const char* POSTSCRIPT = "generic.ppd";  // no filter line at all
constexpr const char* PDF_AND_POSTSCRIPT = "pxlmono.ppd";
constexpr const char* PDF = "Generic-PDF_Printer-PDF.ppd";
constexpr const char* CUPS_FILTER_2 = "pwgrast.ppd";  // cupsFilter2 and cupsFilter
constexpr const char* OWN_COMMAND_FILTER = "dsgnjt4000pcl.ppd";

const std::string LINE = "*cupsFilter: \"application/vnd.cups-command 0 commandtobrenvellis\"\n";
const std::string LINE_2 =
    "*cupsFilter2: \"application/vnd.cups-command application/vnd.cups-command 0 commandtobrenvellis\"\n";
const std::string COMMANDS = "*cupsCommands: \"ReportLevels ReportStatus\"\n";

struct Case {
  const char* name;
  const char* ppd;
  std::string lines;   ///< added at the PPD's end
  std::string filter;  ///< for command jobs; empty if there is none
  bool right;          ///< the result of brenvellis-check-ppd
};

const std::vector<Case> CASES = {
    {"raster", RASTER, "", "", false},
    {"raster-both-lines", RASTER, LINE + COMMANDS, "commandtobrenvellis", true},
    {"raster-no-commands", RASTER, LINE, "commandtobrenvellis", false},
    {"raster-one-command", RASTER, LINE + "*cupsCommands: \"ReportLevels\"\n", "commandtobrenvellis", false},
    {"raster-more-commands", RASTER, LINE + "*cupsCommands: \"Clean ReportLevels ReportStatus\"\n",
     "commandtobrenvellis", false},
    {"raster-commands-in-lower-case", RASTER, LINE + "*cupsCommands: \"reportlevels reportstatus\"\n",
     "commandtobrenvellis", false},
    {"raster-lines-in-a-value", RASTER, "*JCLBegin: \"\n" + LINE + COMMANDS + "\"\n*End\n", "", false},
    {"raster-lines-between-quotes", RASTER,
     "*JCLEnd: \"two\nlines\"\n*End\n*% 4\": \"\n" + LINE + "*Custom 4x6/6\": \"one\"\n" + COMMANDS,
     "commandtobrenvellis", true},
    {"raster-other-commands-first", RASTER, LINE + "*cupsCommands: \"Clean\"\n" + COMMANDS,
     "commandtobrenvellis", false},
    {"raster-wildcard-first", RASTER, "*cupsFilter: \"application/* 0 rastertohp\"\n" + LINE + COMMANDS,
     "rastertohp", false},
    {"raster-wildcard-last", RASTER, LINE + COMMANDS + "*cupsFilter: \"*/* 0 rastertohp\"\n",
     "commandtobrenvellis", true},
    {"postscript", POSTSCRIPT, "", "commandtops", false},
    {"postscript-no-commands", POSTSCRIPT, "*cupsCommands: \"none\"\n", "", false},
    {"postscript-both-lines", POSTSCRIPT, LINE + COMMANDS, "commandtobrenvellis", true},
    {"pdf", PDF, "", "", false},
    {"pdf-both-lines", PDF, LINE + COMMANDS, "commandtobrenvellis", true},
    {"pdf-and-postscript", PDF_AND_POSTSCRIPT, "", "commandtops", false},
    {"pdf-and-postscript-both-lines", PDF_AND_POSTSCRIPT, LINE + COMMANDS, "commandtobrenvellis", true},
    {"filter2", CUPS_FILTER_2, "", "", false},
    {"filter2-line-of-filter", CUPS_FILTER_2, LINE + COMMANDS, "", false},
    {"filter2-both-lines", CUPS_FILTER_2, LINE_2 + COMMANDS, "commandtobrenvellis", true},
    {"filter2-another-first", CUPS_FILTER_2,
     "*cupsFilter2: \"application/vnd.cups-command application/vnd.cups-command 0 commandtops\"\n" + LINE_2 +
         COMMANDS,
     "commandtops", false},
    {"own", OWN_COMMAND_FILTER, "", "commandtopclx", false},
    {"own-higher-cost", OWN_COMMAND_FILTER, LINE + COMMANDS, "commandtobrenvellis", true},
    {"own-same-cost", OWN_COMMAND_FILTER,
     "*cupsFilter: \"application/vnd.cups-command 50 commandtobrenvellis\"\n" + COMMANDS, "commandtopclx",
     false},
};

const std::string SUPPLIES_HEADING = "recommended, or each job over the network may take 4 s longer";

ProgramResult check(const std::filesystem::path& ppd) {
  return run_program({CHECK_PPD_PROGRAM, ppd.string()});
}

/// The lines of text that are indented below "FILE: `heading`:".
std::vector<std::string> lines_below(const std::string& output, const std::string& heading) {
  std::vector<std::string> lines;
  std::istringstream text(output);
  bool below = false;
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("    ")) {
      if (below) {
        lines.push_back(line.substr(4));
      }
    } else {
      below = line.ends_with(": " + heading + ":");
    }
  }
  return lines;
}

class CheckPpd : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* source : {"sample.drv", "cupsfilters.drv"}) {
      const auto compiled = run_program(
          {PPDC_PROGRAM, "-d", folder_.path().string(), std::string("/usr/share/cups/drv/") + source});
      ASSERT_EQ(compiled.exit_status, 0) << compiled.errors;
    }
  }

  /// The distribution's PPD with more lines.
  [[nodiscard]] std::filesystem::path ppd(const std::string& name, const char* original,
                                          const std::string& lines) const {
    auto source = folder_.path() / original;
    if (!exists(source)) {
      source = std::filesystem::path("/usr/share/ppd/cupsfilters") / original;
    }
    std::ifstream input(source);
    if (!input) {
      throw std::runtime_error("there is no " + source.string());
    }
    const std::string text{std::istreambuf_iterator<char>(input), {}};
    return write(name, text + lines);
  }

  [[nodiscard]] std::filesystem::path write(const std::string& name, const std::string& text) const {
    const auto path = folder_.path() / (name + ".ppd");
    std::ofstream(path) << text;
    return path;
  }

  TemporaryFolder folder_;
};

/// The filter that the scheduler chose for a job, as its log names it.
std::string filter_of_job(const PrivateScheduler& scheduler, int job) {
  const auto deadline = steady_clock::now() + seconds(30);
  while (steady_clock::now() < deadline) {
    for (const auto& line : scheduler.job_log(job)) {
      if (const auto end = line.find(" (application/vnd.cups-command to printer/");
          end != std::string::npos) {
        return line.substr(0, end);
      }
    }
    std::this_thread::sleep_for(milliseconds(20));
  }
  return "the scheduler did not start the job";
}

/// Whether the scheduler accepts jobs of this document format for the queue.
bool accepts(const PrivateScheduler& scheduler, const std::string& queue, const char* format) {
  http_t* connection = httpConnect2(scheduler.server().c_str(), 0, nullptr, AF_UNSPEC,
                                    HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
  ipp_t* request = ippNewRequest(IPP_OP_VALIDATE_JOB);
  const std::string uri = "ipp://localhost/printers/" + queue;
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri.c_str());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, format);
  ipp_t* answer = cupsDoRequest(connection, request, ("/printers/" + queue).c_str());
  const bool accepted = answer != nullptr && ippGetStatusCode(answer) <= IPP_STATUS_OK_CONFLICTING;
  ippDelete(answer);
  httpClose(connection);
  return accepted;
}

TEST_F(CheckPpd, NamesTheFilterThatTheSchedulerStarts) {
  const PrivateScheduler scheduler;
  for (const auto& [name, original, lines, filter, right] : CASES) {
    SCOPED_TRACE(name);
    const auto path = ppd(name, original, lines);

    scheduler.add_queue(name, "socket://127.0.0.1:9", path.string());
    std::string started;
    try {
      started = filter_of_job(scheduler, scheduler.send_commands(name, "ReportStatus\n"));
    } catch (const std::runtime_error&) {
      // The queue does not accept command jobs.
    }
    EXPECT_EQ(started, filter);

    const auto checked = check(path);
    EXPECT_EQ(checked.output.substr(0, checked.output.find('\n')),
              path.string() + ": " + (filter.empty() ? "no filter" : filter) + " gets command jobs");
    EXPECT_EQ(checked.exit_status, right ? 0 : 1);
    EXPECT_EQ(checked.errors, "");
  }
}

TEST_F(CheckPpd, ACorrectedPpdReportsTheRibbonPrintsAndIsFoundByTheMonitor) {
  const PrivateScheduler scheduler;
  const NetworkPrinter printer({"--remaining", "200", "--total", "400"});
  for (const char* original :
       {RASTER, POSTSCRIPT, PDF_AND_POSTSCRIPT, PDF, CUPS_FILTER_2, OWN_COMMAND_FILTER}) {
    SCOPED_TRACE(original);
    const auto path = ppd("unchanged", original, "");
    const std::string advice = check(path).output;
    const auto removed = lines_below(advice, "remove");
    std::ifstream input(path);
    std::string text;
    for (std::string line; std::getline(input, line);) {
      if (std::ranges::find(removed, line) == removed.end()) {
        text += line + "\n";
      }
    }
    for (const auto& line : lines_below(advice, "add")) {
      text += line + "\n";
    }
    for (const auto& line : lines_below(advice, SUPPLIES_HEADING)) {
      text += line + "\n";
    }
    const auto changed = write("changed", text);
    const auto checked = check(changed);
    EXPECT_EQ(checked.exit_status, 0) << text;
    EXPECT_EQ(checked.output, changed.string() + ": commandtobrenvellis gets command jobs\n");

    const std::string queue(original, std::string(original).find('.'));
    scheduler.add_queue(queue, printer.device_uri(), changed.string());
    EXPECT_EQ(scheduler.report(queue).marker["marker-message"], "Ink Ribbon = 200 / 400");
    EXPECT_TRUE(accepts(scheduler, queue, "application/postscript"));
  }

  // None of these drivers is called Brenvellis.
  const auto shown =
      run_program({MONITOR_PROGRAM}, {}, {{"CUPS_SERVER", scheduler.server()}, {"LC_ALL", "C.UTF-8"}});
  for (const char* original :
       {RASTER, POSTSCRIPT, PDF_AND_POSTSCRIPT, PDF, CUPS_FILTER_2, OWN_COMMAND_FILTER}) {
    const std::string queue(original, std::string(original).find('.'));
    EXPECT_THAT(shown.output, testing::ContainsRegex(queue + ".*200 of 400 prints left"));
  }
}

TEST_F(CheckPpd, RecommendsToTurnOffSuppliesBySnmp) {
  using testing::ElementsAre;
  const std::string correct = LINE + COMMANDS;

  const auto missing = check(ppd("missing", RASTER, correct));
  EXPECT_EQ(missing.exit_status, 0);
  EXPECT_THAT(lines_below(missing.output, SUPPLIES_HEADING), ElementsAre("*cupsSNMPSupplies: False"));

  const auto on = check(ppd("on", RASTER, correct + "*cupsSNMPSupplies: True\n*cupsSNMPSupplies: False\n"));
  EXPECT_EQ(on.exit_status, 0);
  EXPECT_THAT(lines_below(on.output, "remove"),
              ElementsAre("*cupsSNMPSupplies: True", "*cupsSNMPSupplies: False"));
  EXPECT_THAT(lines_below(on.output, SUPPLIES_HEADING), ElementsAre("*cupsSNMPSupplies: False"));

  const auto off = ppd("off", RASTER, correct + "*cupsSNMPSupplies: False\n");
  EXPECT_EQ(check(off).output, off.string() + ": commandtobrenvellis gets command jobs\n");
}

TEST_F(CheckPpd, ReportsEqualCostsOfTwoDestinations) {
  const auto path = ppd(
      "tie", CUPS_FILTER_2,
      "*cupsFilter2: \"application/vnd.cups-command application/other 0 commandtops\"\n" + LINE_2 + COMMANDS);
  const auto checked = check(path);
  EXPECT_EQ(checked.exit_status, 1);
  EXPECT_NE(checked.output.find("either commandtops or commandtobrenvellis gets command jobs"),
            std::string::npos)
      << checked.output;
}

TEST_F(CheckPpd, ReadsCompressedFilesAndOtherLineEnds) {
  std::string text = "*PPD-Adobe: \"4.3\"\n" + LINE + COMMANDS;
  std::ranges::replace(text, '\n', '\r');
  const auto path = write("compressed", text);
  ASSERT_EQ(run_program({"/usr/bin/gzip", path.string()}).exit_status, 0);
  EXPECT_EQ(check(path.string() + ".gz").exit_status, 0);
}

TEST_F(CheckPpd, AFileThatIsNotAPpdIsAnError) {
  const auto checked = check(write("text", "No PPD.\n"));
  EXPECT_EQ(checked.exit_status, 2);
  EXPECT_NE(checked.errors.find("is not a PPD file"), std::string::npos);
  const auto missing = check(folder_.path() / "missing.ppd");
  EXPECT_EQ(missing.exit_status, 2);
  EXPECT_EQ(missing.errors,
            "brenvellis-check-ppd: cannot read \"" + (folder_.path() / "missing.ppd").string() + "\"\n");
  EXPECT_EQ(run_program({CHECK_PPD_PROGRAM}).exit_status, 2);
}

}  // namespace
