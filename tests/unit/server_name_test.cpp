// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_name.h"

#include <gtest/gtest.h>

namespace {

TEST(ServerName, EveryFormIsUnderstood) {
  const struct {
    const char* text;
    const char* host;
    int port;
  } cases[] = {{"printhost", "printhost", 631},
               {"printhost:8631", "printhost", 8631},
               {"192.0.2.1:80", "192.0.2.1", 80},
               {"printhost:1", "printhost", 1},
               {"printhost:65535", "printhost", 65535},
               {"::1", "::1", 631},
               {"[2001:db8::1]", "2001:db8::1", 631},
               {"[2001:db8::1]:99", "2001:db8::1", 99},
               {"2001:db8::1", "2001:db8::1", 631},
               {"/run/cups/cups.sock", "/run/cups/cups.sock", 0},
               {"Print-Host_2.example.", "print-host_2.example.", 631},
               {"drücker", "drücker", 631},
               {"fe80::1%eth0", "fe80::1%eth0", 631},
               {"/run/Cups.sock", "/run/Cups.sock", 0}};
  for (const auto& one : cases) {
    const auto server = parse_server(one.text);
    ASSERT_TRUE(server) << one.text;
    EXPECT_EQ(server->host, one.host);
    EXPECT_EQ(server->port, one.port);
  }
}

TEST(ServerName, InvalidNamesAreRejected) {
  for (const char* text : {"",
                           ":",
                           ":631",
                           "host:",
                           "host:x",
                           "host:0",
                           "host:65536",
                           "host:631x",
                           "host:-1",
                           "[2001:db8::1",
                           "[::1]x",
                           "[::1]:",
                           "[::1]x631",
                           "ipp://printhost",
                           "ipp://printhost:631/",
                           "http://[::1]:631/printers/booth",
                           "ipp://printhost/printers/booth",
                           "printhost/",
                           "./cups.sock",
                           "../cups.sock",
                           "run/cups.sock",
                           "print host",
                           " printhost",
                           "a@b",
                           "[]:631",
                           "[]",
                           "[/run/cups.sock]",
                           "http:printhost:631"}) {
    EXPECT_FALSE(parse_server(text)) << text;
  }
}

}  // namespace
