// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"

using Reasons = std::set<std::string>;
using Marker = std::map<std::string, std::string>;

inline const Reasons NO_REASON = {};
inline const Reasons FALLBACK = {"com.brenvellis-error0004"};
inline const Reasons ERROR_2660 = {"com.brenvellis-error0008_2660"};

/// The marker attributes that a client sees for these three values.
inline Marker marker(const std::string& level, const std::string& message, const std::string& name) {
  return {{"marker-colors", "#00FF00"},
          {"marker-levels", level},
          {"marker-message", message},
          {"marker-names", name},
          {"marker-types", "ink-ribbon"}};
}

inline const Marker UNKNOWN_LEVEL = marker("-2", " ", "InkSheetType: 00");
inline const Marker HALF_USED =
    marker("50", "Ink Ribbon = 200 / 400", "InkSheetType: 10x15(4x6\xe2\x80\xb3)");

/// A private scheduler with a queue "booth" to a simulated printer with a half-used ribbon and error 2660.
class OnePrinter : public testing::Test {
 protected:
  OnePrinter() { scheduler.add_queue("booth", printer.device_uri()); }

  NetworkPrinter printer{{"--remaining", "200", "--total", "400", "--code", "0x2660"}};
  PrivateScheduler scheduler;
};
