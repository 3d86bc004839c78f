// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

/// Sends a line to the control socket of a simulator and returns what follows "ok" in its reply.
/// Throws on an error.
std::string ask_control_socket(const std::string& path, const std::string& line);

/// NetworkPrinter is a running brenvellis-simulator on a free port of 127.0.0.1.
class NetworkPrinter {
 public:
  explicit NetworkPrinter(const std::vector<std::string>& options = {});
  ~NetworkPrinter();
  NetworkPrinter(const NetworkPrinter&) = delete;
  NetworkPrinter& operator=(const NetworkPrinter&) = delete;

  /// The device URI for a queue: "socket://127.0.0.1:PORT".
  [[nodiscard]] const std::string& device_uri() const { return device_uri_; }
  /// The port alone.
  [[nodiscard]] std::string port() const { return device_uri_.substr(device_uri_.rfind(':') + 1); }

  /// Sends a control line, for example "code 0x2660; remaining 12", and returns what follows "ok".
  /// Throws on an error.
  [[nodiscard]] std::string ask(const std::string& line) const;
  /// The same for settings, where nothing follows.
  void tell(const std::string& line) const { static_cast<void>(ask(line)); }
  /// The request packets since the start or the last "forget", in hexadecimal, oldest first.
  [[nodiscard]] std::vector<std::string> requests() const;

 private:
  TemporaryFolder folder_;
  std::unique_ptr<ChildProcess> process_;
  std::string device_uri_;
};
