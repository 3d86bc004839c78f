// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_name.h"

#include <cups/cups.h>

#include <charconv>
#include <system_error>

std::optional<ServerName> parse_server(const std::string& text) {
  if (text.empty()) {
    return std::nullopt;
  }
  if (text.front() == '/') {
    return ServerName{text, 0};
  }
  ServerName server{text, ippPort()};
  std::string port;
  if (text.front() == '[') {
    const auto end = text.find(']');
    if (end == std::string::npos || (end + 1 < text.size() && text[end + 1] != ':')) {
      return std::nullopt;
    }
    server.host = text.substr(1, end - 1);
    if (end + 1 == text.size()) {
      return server;
    }
    port = text.substr(end + 2);
  } else if (const auto colon = text.find(':'); colon != std::string::npos) {
    if (text.find(':', colon + 1) != std::string::npos) {
      return server;  // an IPv6 address without a port
    }
    server.host = text.substr(0, colon);
    port = text.substr(colon + 1);
  } else {
    return server;
  }
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), server.port);
  const bool whole = error == std::errc() && end == port.data() + port.size();
  if (server.host.empty() || !whole || server.port < 1 || server.port > 65535) {
    return std::nullopt;
  }
  return server;
}
