// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_name.h"

#include <arpa/inet.h>
#include <cups/cups.h>

#include <algorithm>
#include <charconv>
#include <system_error>

namespace {

/// Returns whether the text can be a host name, also with characters outside ASCII, or an IPv4 address.
bool is_host(const std::string& text) {
  return !text.empty() && std::ranges::all_of(text, [](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '-' || c == '.' || c == '_' || c >= 0x80;
  });
}

/// Returns whether the text is an IPv6 address, with or without the zone after "%".
bool is_ipv6(const std::string& text) {
  in6_addr address{};
  return inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &address) == 1;
}

/// The text with A to Z in lower case, in any locale.
std::string lower_case(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return text;
}

}  // namespace

std::optional<ServerName> parse_server(const std::string& argument) {
  if (argument.starts_with('/')) {
    return ServerName{argument, 0};
  }
  const std::string text = lower_case(argument);
  if (text.empty()) {
    return std::nullopt;
  }
  ServerName server{text, ippPort()};
  std::string port;
  if (text.front() == '[') {
    const auto end = text.find(']');
    if (end == std::string::npos || (end + 1 < text.size() && text[end + 1] != ':')) {
      return std::nullopt;
    }
    server.host = text.substr(1, end - 1);
    if (!is_ipv6(server.host)) {
      return std::nullopt;
    }
    if (end + 1 == text.size()) {
      return server;
    }
    port = text.substr(end + 2);
  } else if (const auto colon = text.find(':'); colon != std::string::npos) {
    if (text.find(':', colon + 1) != std::string::npos) {
      // An IPv6 address without a port.
      return is_ipv6(text) ? std::optional(server) : std::nullopt;
    }
    server.host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (!is_host(server.host)) {
      return std::nullopt;
    }
  } else {
    return is_host(text) ? std::optional(server) : std::nullopt;
  }
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), server.port);
  const bool whole = error == std::errc() && end == port.data() + port.size();
  if (!whole || server.port < 1 || server.port > 65535) {
    return std::nullopt;
  }
  return server;
}
