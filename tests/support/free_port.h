// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

/// Returns a port of 127.0.0.1 on which no program is listening.
inline int free_port() {
  const int probe = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  const bool bound = bind(probe, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
                     getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  close(probe);
  if (!bound) {
    throw std::runtime_error("no free port on 127.0.0.1");
  }
  return ntohs(address.sin_port);
}
