// SPDX-License-Identifier: Apache-2.0
#include "filter/state_cleanup.h"

#include <cups/cups.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/captured_stream.h"

namespace {

/// The answers of the CUPS client library, and how often its list was freed.
int destinations = 0;
cups_dest_t* list = nullptr;
int freed_destinations = -1;
/// The default destination's reasons when the list was freed.
std::string reasons_when_freed;
/// Whether the log shows when the list is created and freed.
bool calls_are_logged = false;

const std::string START = "clean_printer_state() START\n";
const std::string END = "clean_printer_state() END\n";

std::string cleaned() {
  return captured_log(clean_printer_state);
}

/// Creates a list of the default queue and of another one with different reasons.
void use_default_destination(const char* reasons) {
  destinations = cupsAddDest("aaa", nullptr, 0, &list);
  cups_dest_t* other = cupsGetDest("aaa", nullptr, destinations, list);
  other->num_options = cupsAddOption("printer-state-reasons", "toner-low", 0, &other->options);
  destinations = cupsAddDest("photo", nullptr, destinations, &list);
  cups_dest_t* photo = cupsGetDest("photo", nullptr, destinations, list);
  photo->is_default = 1;
  photo->num_options = cupsAddOption("printer-info", "Booth", 0, &photo->options);
  if (reasons != nullptr) {
    photo->num_options = cupsAddOption("printer-state-reasons", reasons, photo->num_options, &photo->options);
  }
}

struct Case {
  const char* name;
  const char* reasons;
  const char* lines;
};

void PrintTo(const Case& the_case, std::ostream* out) {
  *out << the_case.name;
}

class DefaultDestination : public testing::TestWithParam<Case> {};

TEST_P(DefaultDestination, IsClearedOfItsReasons) {
  use_default_destination(GetParam().reasons);
  EXPECT_EQ(cleaned(), START + GetParam().lines + END);
}

INSTANTIATE_TEST_SUITE_P(
    StateCleanup, DefaultDestination,
    testing::Values(
        Case{"None", "none", "STATE: -none\n"},
        Case{"ThreeInTheirOrder", "com.brenvellis-error2660,media-empty,com.brenvellis-error0004",
             "STATE: -com.brenvellis-error2660\nSTATE: -media-empty\nSTATE: -com.brenvellis-error0004\n"},
        Case{"CommasWithNothingBetween", ",door-open,,jam,", "STATE: -door-open\nSTATE: -jam\n"},
        Case{"ABlankThatStays", "door-open, jam ", "STATE: -door-open\nSTATE: - jam \n"},
        Case{"AnEmptyList", "", "STATE: -(null)\n"}, Case{"OnlyCommas", ",,,", "STATE: -(null)\n"},
        Case{"NoList", nullptr, ""}),
    [](const auto& the_case) { return the_case.param.name; });

TEST(StateCleanup, TheListIsGivenBack) {
  use_default_destination("none");
  cleaned();
  EXPECT_EQ(freed_destinations, 2);
}

TEST(StateCleanup, TheListIsReadAfterTheFirstLineAndGivenBackBeforeTheLast) {
  calls_are_logged = true;
  use_default_destination("jam");
  const std::string log = cleaned();
  const std::string log_without_destinations = cleaned();
  calls_are_logged = false;
  EXPECT_EQ(log, START + "list made\nSTATE: -jam\nlist given back\n" + END);
  EXPECT_EQ(log_without_destinations,
            START + "list made\nDEBUG: Not found default(destination) printer.\nlist given back\n" + END);
}

TEST(StateCleanup, TheDestinationKeepsItsReasonsWhole) {
  use_default_destination(",door-open,,jam,");
  cleaned();
  EXPECT_EQ(reasons_when_freed, ",door-open,,jam,");
}

TEST(StateCleanup, NoMemoryIsKept) {
  const std::string reasons(10000, 'r');
  const auto used_after_one_more = [&] {
    use_default_destination(reasons.c_str());
    cleaned();
    return mallinfo2().uordblks;
  };
  used_after_one_more();
  const std::size_t used = used_after_one_more();
  EXPECT_LT(used_after_one_more(), used + reasons.size());
}

TEST(StateCleanup, EachLineIsOneWrite) {
  use_default_destination("door-open,jam");
  EXPECT_EQ(log_writes(_IONBF, clean_printer_state).writes,
            (std::vector<std::string>{START, "STATE: -door-open\n", "STATE: -jam\n", END}));
}

TEST(StateCleanup, IsNotFlushed) {
  use_default_destination("jam");
  EXPECT_EQ(log_writes(_IOFBF, clean_printer_state).before_close, 0U);
}

TEST(StateCleanup, ADefaultDestinationWithAnInstanceIsClearedToo) {
  use_default_destination("jam");
  destinations = cupsAddDest("photo", "glossy", destinations, &list);
  cupsGetDest("photo", nullptr, destinations, list)->is_default = 0;
  cups_dest_t* glossy = cupsGetDest("photo", "glossy", destinations, list);
  glossy->is_default = 1;
  glossy->num_options =
      cupsAddOption("printer-state-reasons", "door-open", glossy->num_options, &glossy->options);
  EXPECT_EQ(cleaned(), START + "STATE: -door-open\n" + END);
}

TEST(StateCleanup, WithoutDestinationsNothingIsCleared) {
  EXPECT_EQ(cleaned(), START + "DEBUG: Not found default(destination) printer.\n" + END);
  EXPECT_EQ(freed_destinations, 0);
}

TEST(StateCleanup, WithoutADefaultDestinationNothingIsCleared) {
  use_default_destination("jam");
  cupsGetDest("photo", nullptr, destinations, list)->is_default = 0;
  EXPECT_EQ(cleaned(), START + "DEBUG: Not found default(destination) printer.\n" + END);
  EXPECT_EQ(freed_destinations, 2);
}

}  // namespace

// These replace functions of the library and return the answers above.

int cupsGetDests(cups_dest_t** dests) {
  if (calls_are_logged) {
    fputs("list made\n", stderr);
  }
  *dests = list;
  return std::exchange(destinations, 0);
}

void cupsFreeDests(int num_dests, cups_dest_t* dests) {
  if (calls_are_logged) {
    fputs("list given back\n", stderr);
  }
  const cups_dest_t* photo = cupsGetDest("photo", nullptr, num_dests, dests);
  const char* reasons =
      photo != nullptr ? cupsGetOption("printer-state-reasons", photo->num_options, photo->options) : nullptr;
  reasons_when_freed = reasons != nullptr ? reasons : "";
  freed_destinations = num_dests;
  list = nullptr;
  reinterpret_cast<decltype(&cupsFreeDests)>(dlsym(RTLD_NEXT, "cupsFreeDests"))(num_dests, dests);
}
