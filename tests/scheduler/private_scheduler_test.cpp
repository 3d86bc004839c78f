// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "tests/scheduler/one_printer.h"

namespace {

using testing::Each;
using testing::EndsWith;
using testing::Not;
using Configuration = PrivateScheduler::Configuration;

/// The real, effective, saved and file system user of a process.
std::vector<unsigned> users_of(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::vector<unsigned> users;
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("Uid:")) {
      std::istringstream numbers(line.substr(4));
      for (unsigned user = 0; numbers >> user;) {
        users.push_back(user);
      }
    }
  }
  return users;
}

/// One scheduler of each configuration, with a queue to a printer with a half-used ribbon and error 2660.
class OneOfBoth : public testing::TestWithParam<Configuration> {
 protected:
  OneOfBoth() { scheduler.add_queue("booth", printer.device_uri()); }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400", "--code", "0x2660"}};
  PrivateScheduler scheduler{{.configuration = GetParam()}};
};

TEST_P(OneOfBoth, NeverRunsAsRootAndHasAPrivateFolder) {
  const auto users = users_of(scheduler.pid());
  ASSERT_EQ(users.size(), 4U);
  EXPECT_THAT(users, Each(Not(0U)));
  struct stat folder {};
  ASSERT_EQ(stat(scheduler.path().c_str(), &folder), 0);
  EXPECT_EQ(folder.st_mode & 07777U, 0700U);
  EXPECT_EQ(folder.st_uid, users.front());
}

TEST_P(OneOfBoth, ReportsThePrintersValues) {
  const auto view = scheduler.report("booth");
  EXPECT_EQ(view.marker, HALF_USED);
  EXPECT_EQ(view.reasons, ERROR_2660);
}

TEST_P(OneOfBoth, LetsTheOwnerOfAJobCancelAndPurgeIt) {
  printer.tell("fault refuse");
  const int cancelled = scheduler.send_raw("booth", "a photo");
  scheduler.cancel_job(cancelled);
  EXPECT_EQ(scheduler.wait_for_job(cancelled), IPP_JSTATE_CANCELED);
  const int purged = scheduler.send_raw("booth", "a photo");
  scheduler.purge_job(purged);
  // Depending on how far it had come, it is gone from the history or is listed as cancelled.
  printer.tell("fault none");
  EXPECT_EQ(scheduler.report("booth").marker, HALF_USED);
  EXPECT_THAT(printer.ask("show"), EndsWith(" other-bytes=0")) << "the photo was printed";
}

TEST_P(OneOfBoth, RejectsQueuesThatPrintToAFile) {
  const TemporaryFolder folder;
  EXPECT_THROW(scheduler.add_queue("file", "file://" + (folder.path() / "file").string()),
               std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(PrivateScheduler, OneOfBoth,
                         testing::Values(Configuration::RELAXED, Configuration::DEFAULT),
                         [](const auto& one) {
                           return one.param == Configuration::DEFAULT ? "Default" : "Relaxed";
                         });

TEST(PrivateSchedulersPort, GivesClientsOfTheNetworkNoRights) {
  const PrivateScheduler scheduler({.port = true});
  scheduler.add_queue("booth", "socket://127.0.0.1:9");

  const std::string address = scheduler.address();
  http_t* connection = httpConnect2("127.0.0.1", std::stoi(address.substr(address.rfind(':') + 1)), nullptr,
                                    AF_UNSPEC, HTTP_ENCRYPTION_NEVER, 1, 30000, nullptr);
  ASSERT_NE(connection, nullptr);
  cupsSetPasswordCB2(
      [](const char*, http_t*, const char*, const char*, void*) -> const char* { return nullptr; }, nullptr);
  ipp_t* request = ippNewRequest(IPP_OP_PAUSE_PRINTER);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
               "ipp://localhost/printers/booth");
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, "root");
  ippDelete(cupsDoRequest(connection, request, "/admin/"));
  httpClose(connection);
  EXPECT_THAT(cupsLastError(),
              testing::AnyOf(IPP_STATUS_ERROR_NOT_AUTHORIZED, IPP_STATUS_ERROR_CUPS_AUTHENTICATION_CANCELED));
}

}  // namespace
