// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

/// A print server as the user named it.
struct ServerName {
  std::string host;  ///< or the path of its socket
  int port = 0;
};

/// HOST, HOST:PORT, [IPV6]:PORT or the path of a socket; without a port that of IPP (or of CUPS' own
/// settings).
/// @return nothing if the text is none of these.
[[nodiscard]] std::optional<ServerName> parse_server(const std::string& text);
