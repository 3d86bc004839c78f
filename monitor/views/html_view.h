// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "monitor/report.h"

/// The report as one self-contained web page that reloads itself: a card a printer, those in trouble first.
/// It runs no script and fetches nothing; every text of a scheduler or printer in it is escaped.
/// @param reload_seconds  how often a browser reads the page again.
[[nodiscard]] std::string html_view(const Report& report, int reload_seconds = 30);
