// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_exchange.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "filter/levels_query.h"
#include "filter/status_query.h"
#include "tests/support/expected_log.h"
#include "tests/unit/allocation_count.h"
#include "tests/unit/captured_stream.h"
#include "tests/unit/recorded_channels.h"

namespace {

/// A stream that accepts only `capacity` bytes.
struct SmallDevice {
  std::size_t capacity;
  std::string taken;
  bool logs_writes = false;  ///< each write is shown by a line in the log
};

ssize_t write_to_device(void* cookie, const char* data, size_t size) {
  auto* device = static_cast<SmallDevice*>(cookie);
  if (device->logs_writes) {
    fputs("written\n", stderr);
  }
  const std::size_t room = device->capacity - device->taken.size();
  device->taken.append(data, std::min(size, room));
  return static_cast<ssize_t>(std::min(size, room));
}

class Exchange : public testing::Test {
 protected:
  Exchange() { channels = {}; }

  /// Runs a query with standard output on a device of `capacity` bytes and the given buffering.
  template <typename Query>
  auto run(Query query, std::size_t capacity = 1000, int buffering = _IOFBF) {
    device_ = {capacity, {}, logs_writes_};
    FILE* const original = stdout;
    stdout = fopencookie(&device_, "w", {nullptr, write_to_device, nullptr, nullptr});
    setvbuf(stdout, nullptr, buffering, BUFSIZ);
    auto result = query();
    fclose(stdout);
    stdout = original;
    return result;
  }

  template <typename Query>
  std::string log_of(Query query, std::size_t capacity = 1000, int buffering = _IOFBF) {
    return captured_log([&] { static_cast<void>(run(query, capacity, buffering)); });
  }

  SmallDevice device_{};
  bool logs_writes_ = false;
};

TEST_F(Exchange, TheStatusRequestIsEightBytes) {
  log_of(get_printer_state);
  EXPECT_EQ(device_.taken, STATUS_REQUEST);
}

TEST_F(Exchange, TheLevelsRequestIsTenBytes) {
  log_of(get_printer_levels);
  EXPECT_EQ(device_.taken, LEVELS_REQUEST);
}

TEST_F(Exchange, TheDrainOffers512BytesAndWaitsFiveSeconds) {
  log_of(get_printer_state);
  EXPECT_EQ(channels.side_calls, (std::vector<SideChannelCall>{{CUPS_SC_CMD_DRAIN_OUTPUT, 512, 5.0}}));
}

TEST_F(Exchange, TheDrainOfTheLevelsWaitsFiveSecondsToo) {
  log_of(get_printer_levels);
  EXPECT_EQ(channels.side_calls, (std::vector<SideChannelCall>{{CUPS_SC_CMD_DRAIN_OUTPUT, 512, 5.0}}));
}

TEST_F(Exchange, TheRequestIsTracedBeforeItIsWritten) {
  logs_writes_ = true;
  EXPECT_TRUE(log_of(get_printer_state, 1000, _IONBF)
                  .starts_with("DEBUG: [CMD] size=8\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 01 16\nwritten\n"));
  EXPECT_TRUE(
      log_of(get_printer_levels, 1000, _IONBF)
          .starts_with("DEBUG: [CMD] size=10\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 03 1e 16 2a\nwritten\n"));
}

TEST_F(Exchange, EachReadOffersTheRestOfTheBufferAndWaitsOneSecond) {
  channels.reads = {std::string(10, 'a'), std::string(4, 'b'), std::string(1, 'c'), "not read"};
  log_of(get_printer_state);
  EXPECT_EQ(channels.back_calls, (std::vector<BackChannelCall>{{512, 1.0}, {502, 1.0}, {498, 1.0}}));
}

TEST_F(Exchange, TheLevelsQueryReadsTo26Bytes) {
  channels.reads = {std::string(25, 'a'), std::string(1, 'b'), "not read"};
  log_of(get_printer_levels);
  EXPECT_EQ(channels.back_calls, (std::vector<BackChannelCall>{{512, 1.0}, {487, 1.0}}));
}

TEST_F(Exchange, TheReplyReplacesTheDrainsAnswerInTheBuffer) {
  channels.answer = std::string(512, '\x7f');
  channels.reads = {std::string("\0\0\0\0\x26\x60\0\0\0\0\0\0\0\0\0", 15)};
  const auto state = run([] {
    PrinterState result = PrinterState::Unavailable();
    captured_log([&] { result = get_printer_state(); });
    return result;
  });
  EXPECT_EQ(state.to_string(), "0x2660");
}

TEST_F(Exchange, AShortWriteEndsTheStatusQueryAtOnce) {
  EXPECT_EQ(log_of(get_printer_state, 5, _IONBF),
            "DEBUG: [CMD] size=8\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 01 16\n"
            "DEBUG: fwrite() failed. ret=5\n");
  EXPECT_TRUE(channels.side_calls.empty());
  EXPECT_TRUE(channels.back_calls.empty());
}

TEST_F(Exchange, AShortWriteEndsTheLevelsQueryAtOnce) {
  EXPECT_EQ(log_of(get_printer_levels, 9, _IONBF),
            "DEBUG: [CMD] size=10\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 03 1e 16 2a\n"
            "DEBUG: fwrite() failed. ret=9\n");
  EXPECT_TRUE(channels.side_calls.empty());
}

TEST_F(Exchange, AFailedFlushEndsTheQueryBeforeTheDrain) {
  EXPECT_EQ(log_of(get_printer_state, 0),
            "DEBUG: [CMD] size=8\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 01 16\n"
            "DEBUG: fflush() failed.\n");
  EXPECT_TRUE(channels.side_calls.empty());
}

TEST_F(Exchange, AFailedQueryIsUnavailable) {
  std::string log = captured_log([&] {
    EXPECT_EQ(run(get_printer_state, 5, _IONBF), PrinterState::Unavailable());
    EXPECT_EQ(run(get_printer_state, 0), PrinterState::Unavailable());
    EXPECT_EQ(run(get_printer_state), PrinterState::Unavailable());
    EXPECT_FALSE(run(get_printer_levels, 5, _IONBF).isGood());
    EXPECT_FALSE(run(get_printer_levels, 0).isGood());
    EXPECT_FALSE(run(get_printer_levels).isGood());
  });
  EXPECT_NE(log.find("ret=-1"), std::string::npos);
}

TEST_F(Exchange, AReadOfNothingEndsTheQuery) {
  channels.reads = {""};
  EXPECT_EQ(log_of(get_printer_state),
            "DEBUG: [CMD] size=8\nDEBUG: [CMD] 0000: 1b 47 44 30 00 00 01 16\n"
            "DEBUG: CUPS_SC_CMD_DRAIN_OUTPUT=CUPS_SC_STATUS_OK(1)\n"
            "DEBUG: cupsBackChannelRead() failed. ret=0\n");
}

TEST_F(Exchange, AFailedDrainIsLoggedAndTheReadsAreMade) {
  channels.status = CUPS_SC_STATUS_TIMEOUT;
  const std::string log = log_of(get_printer_state);
  EXPECT_NE(log.find("DEBUG: CUPS_SC_CMD_DRAIN_OUTPUT=CUPS_SC_STATUS_TIMEOUT(3)\n"), std::string::npos);
  EXPECT_EQ(channels.back_calls.size(), 1U);
}

TEST_F(Exchange, AFullBufferIsTracedWhole) {
  channels.reads = {std::string(512, '\x01')};
  const std::string log = log_of(get_printer_state);
  EXPECT_NE(log.find("DEBUG: [STS] size=512\n"), std::string::npos);
  EXPECT_NE(log.find("DEBUG: [STS] 01f0: 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01\n"),
            std::string::npos);
}

TEST_F(Exchange, ReturnsAllBytesReceived) {
  channels.reads = {"abc", "defgh"};
  constexpr std::array<unsigned char, 1> request = {'?'};
  const PrinterQuery query = {request, 4, "[STS]"};
  std::string reply;
  captured_log([&] {
    reply = run([&] {
      ReplyBuffer buffer;
      const auto bytes = exchange_with_printer(query, buffer);
      return std::string(bytes.begin(), bytes.end());
    });
  });
  EXPECT_EQ(reply, "abcdefgh");
}

TEST_F(Exchange, NoQueryAllocates) {
  channels.side_calls.reserve(8);
  channels.back_calls.reserve(8);
  channels.reads = {std::string(26, 'a'), std::string(15, 'b')};
  long used = -1;
  bool good = false;
  captured_log([&] {
    run([&] {
      device_.taken.reserve(100);
      const long before = allocation_count();
      const bool levels_good = get_printer_levels().isGood();
      const bool state_good = get_printer_state() != PrinterState::Unavailable();
      used = allocation_count() - before;
      good = levels_good && state_good;
      return 0;
    });
  });
  EXPECT_TRUE(good);
  EXPECT_EQ(used, 0);
}

}  // namespace
