// SPDX-License-Identifier: Apache-2.0
#include "simulator/printer_condition.h"

#include <gmock/gmock.h>

#include <iterator>

using testing::ElementsAre;
using testing::ElementsAreArray;

TEST(PrinterReply, StatusIs15BytesWithTheCodeInBytes4And5) {
  EXPECT_THAT(make_reply(RequestKind::Status, {.code = 0x2660}),
              ElementsAre(0, 0, 0, 0, 0x26, 0x60, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(PrinterReply, LevelsAre26BytesWithEveryValueInItsPlace) {
  const Bytes reply =
      make_reply(RequestKind::Levels, {.code = 0x8001, .total = 0x0190, .remaining = 0xfffe, .sheet = 0x0f});
  EXPECT_THAT(reply, ElementsAre(0, 0, 0, 0, 0x80, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0f, 0, 0, 0x01,
                                 0x90, 0xff, 0xfe, 0, 0));
}

TEST(PrinterReply, ByDefaultThePrinterIsHealthyAndFull) {
  Bytes full(26);
  full[17] = 0x02;
  full[20] = full[22] = 0x01;
  full[21] = full[23] = 0x90;
  EXPECT_THAT(make_reply(RequestKind::Levels, {}), ElementsAreArray(full));
}
