// SPDX-License-Identifier: Apache-2.0
#include <fstream>
#include <numeric>
#include <string_view>

#include "tests/scheduler/one_printer.h"

namespace {

/// The driver of a printer that takes raster streams: our PPD with a filter for them.
std::string raster_ppd(const TemporaryFolder& folder) {
  const std::string path = folder.path() / "raster.ppd";
  std::ifstream ours(PPD_FILE);
  std::ofstream(path) << ours.rdbuf() << "*cupsFilter: \"application/vnd.cups-raster 0 -\"\n";
  return path;
}

constexpr std::string_view PAGE =
    "%!PS-Adobe-3.0\n%%Pages: 1\n%%Page: 1 1\n72 72 144 144 rectfill\nshowpage\n%%EOF\n";

/// A queue with a raster driver.
class RasterJobs : public testing::TestWithParam<PrivateScheduler::Configuration> {
 protected:
  RasterJobs() { scheduler.add_queue("photos", printer.device_uri(), raster_ppd(folder)); }

  [[nodiscard]] std::size_t bytes_printed() const {
    const std::string shown = printer.ask("show");
    const std::string name = "other-bytes=";
    return std::stoul(shown.substr(shown.find(name) + name.size()));
  }

  /// Waits for the job's end; its log if it failed.
  [[nodiscard]] std::string failure_of(int job) const {
    if (scheduler.wait_for_job(job) == IPP_JSTATE_COMPLETED) {
      return "";
    }
    const auto log = scheduler.job_log(job);
    return std::accumulate(log.begin(), log.end(), std::string(),
                           [](const auto& text, const auto& line) { return text + line + "\n"; });
  }

  const TemporaryFolder folder;
  NetworkPrinter printer{{"--remaining", "200", "--total", "400"}};
  PrivateScheduler scheduler{{.configuration = GetParam()}};
};

TEST_P(RasterJobs, PrintWhileARefreshComesBetween) {
  ASSERT_EQ(failure_of(scheduler.send("photos", std::string(PAGE), "application/postscript")), "");
  const std::size_t page = bytes_printed();
  EXPECT_GT(page, 100 * PAGE.size()) << "this is not a picture";

  const int first = scheduler.send("photos", std::string(PAGE), "application/postscript");
  const int refresh = scheduler.send_commands("photos", "ReportLevels\n");
  const int second = scheduler.send("photos", std::string(PAGE), "application/postscript");
  for (const int job : {first, refresh, second}) {
    EXPECT_EQ(failure_of(job), "");
  }
  EXPECT_EQ(bytes_printed(), 3 * page);
  EXPECT_EQ(scheduler.view("photos").marker, HALF_USED);
}

INSTANTIATE_TEST_SUITE_P(PrivateScheduler, RasterJobs,
                         testing::Values(PrivateScheduler::Configuration::RELAXED,
                                         PrivateScheduler::Configuration::DEFAULT),
                         [](const auto& one) {
                           return one.param == PrivateScheduler::Configuration::DEFAULT ? "Default"
                                                                                        : "Relaxed";
                         });

}  // namespace
