// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

/// Sends a line to the control socket of a simulator and returns what follows "ok" in its reply.
/// Throws on an error.
std::string ask_control_socket(const std::string& path, const std::string& line);

/// NetworkPrinter is a running brenvellis-simulator on a port of 127.0.0.1, a free one unless the options
/// name it.
class NetworkPrinter {
 public:
  /// @param options  without --control.
  /// @param folder   the folder of its control socket.
  explicit NetworkPrinter(const std::vector<std::string>& options = {},
                          std::shared_ptr<TemporaryFolder> folder = std::make_shared<TemporaryFolder>());
  /// Terminates the simulator, unless end() did.
  ~NetworkPrinter();
  NetworkPrinter(const NetworkPrinter&) = delete;
  NetworkPrinter& operator=(const NetworkPrinter&) = delete;

  /// The device URI for a queue: "socket://127.0.0.1:PORT".
  [[nodiscard]] const std::string& device_uri() const { return device_uri_; }
  [[nodiscard]] std::uint16_t port() const;
  [[nodiscard]] pid_t pid() const { return process_->pid(); }
  [[nodiscard]] const std::shared_ptr<TemporaryFolder>& folder() const { return folder_; }
  /// The path of its control socket.
  [[nodiscard]] std::string control() const { return folder_->path() / "control"; }

  /// Sends a control line, for example "code 0x2660; remaining 12", and returns what follows "ok".
  /// Throws on an error.
  [[nodiscard]] std::string ask(const std::string& line) const;
  /// The same for settings, where nothing follows.
  void tell(const std::string& line) const { static_cast<void>(ask(line)); }
  /// The request packets since the start or the last "forget", in hexadecimal, oldest first.
  [[nodiscard]] std::vector<std::string> requests() const;

  /// Ends the simulator by a signal. The output is that after the device URI.
  ProgramResult end(int signal);
  [[nodiscard]] bool is_running() const { return process_ != nullptr; }

 private:
  std::shared_ptr<TemporaryFolder> folder_;
  std::unique_ptr<ChildProcess> process_;
  int output_ = -1;
  int errors_ = -1;
  std::string device_uri_;
};
