// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

#include "monitor/change_watch.h"

/// The queue and its server, or the server, as a person would name it: "booth", "booth on hall",
/// "print server hall".
[[nodiscard]] std::string change_name(const Change& change);

/// The change in a line for a person: "booth: the ribbon is empty".
[[nodiscard]] std::string change_text(const Change& change);

/// What a command is told in its environment; brenvellis-monitor(1) describes the variables. Their values
/// are printable() and not longer than an environment can hold.
[[nodiscard]] std::map<std::string, std::string> change_variables(const Change& change);

/// What a command is told on its standard input: the line of --json, with this queue alone, or with those of
/// the server that has changed.
[[nodiscard]] std::string change_json(const Change& change);
