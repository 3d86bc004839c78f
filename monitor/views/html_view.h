// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "monitor/report.h"

/// PageTimes is what the page knows about time, in seconds.
struct PageTimes {
  int reload = 30;    ///< how often it is read again
  int interval = 60;  ///< how often it is written; after three of these without news it says so
};

/// The report as one self-contained web page that keeps itself up to date: a card per printer in trouble,
/// with the cause and what to do, and a card or, where there are many, a tile per healthy one. It fetches
/// nothing but itself, and every text of a scheduler or printer in it is escaped.
[[nodiscard]] std::string html_view(const Report& report, const PageTimes& times = {});
