// SPDX-License-Identifier: Apache-2.0
// The names of print servers on the command line.
#pragma once

#include <optional>
#include <string>

/// ServerName is the name of a print server in the user's arguments.
struct ServerName {
  std::string host;  ///< or the path of its socket
  int port = 0;

  /// Host names are not case-sensitive; the parser returns them in lower case.
  bool operator==(const ServerName&) const = default;
};

/// Parses HOST, HOST:PORT, [IPV6]:PORT or the absolute path of a socket. The default port is that of IPP, or
/// of the CUPS configuration.
/// @return nothing if the text is invalid, for example a URI.
[[nodiscard]] std::optional<ServerName> parse_server(const std::string& argument);
