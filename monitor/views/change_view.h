// SPDX-License-Identifier: Apache-2.0
// The changes of a watch, for --on-change.
#pragma once

#include <map>
#include <string>

#include "monitor/change_watch.h"

/// The name of the queue and its server, or of the server: "booth", "booth on hall", "print server hall".
[[nodiscard]] std::string change_name(const Change& change);

/// The change as a line of text: "booth: the ribbon is empty".
[[nodiscard]] std::string change_text(const Change& change);

/// The environment variables of a command; see brenvellis-monitor(1). Their values are printable() and fit
/// into an environment.
[[nodiscard]] std::map<std::string, std::string> change_variables(const Change& change);

/// The standard input of a command: the line of --json with only this queue, or with the queues of the
/// changed server.
[[nodiscard]] std::string change_json(const Change& change);
