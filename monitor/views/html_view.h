// SPDX-License-Identifier: Apache-2.0
// The web page.
#pragma once

#include <string>

#include "monitor/report.h"

/// PageTimes holds the intervals of the page in seconds.
struct PageTimes {
  int reload = 30;  ///< between two updates by the browser
  int interval =
      60;  ///< between two writes; after three of these without a new page, the page shows a banner
};

/// Returns the report as a self-contained web page that updates itself. Printers with a problem have a card
/// with the cause and the solution; healthy ones have a card or, if there are many, a tile. The page loads
/// nothing but itself, and all texts of schedulers and printers are escaped.
[[nodiscard]] std::string html_view(const Report& report, const PageTimes& times = {});
