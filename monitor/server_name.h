// SPDX-License-Identifier: Apache-2.0
// The names of print servers on the command line.
#pragma once

#include <optional>
#include <string>

/// ServerName is the name of a print server in the user's arguments.
struct ServerName {
  std::string host;  ///< or the path of its socket
  int port = 0;
};

/// Parses HOST, HOST:PORT, [IPV6]:PORT or the path of a socket. The default port is that of IPP, or of the
/// CUPS configuration.
/// @return nothing if the text is invalid.
[[nodiscard]] std::optional<ServerName> parse_server(const std::string& text);
