// SPDX-License-Identifier: Apache-2.0
#include "tests/support/network_printer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace {

/// Reads up to a line end, which is left out; nothing after it is lost as both protocols answer line by line.
std::string read_line(int descriptor) {
  std::string line;
  char next = 0;
  while (read(descriptor, &next, 1) == 1 && next != '\n') {
    line += next;
  }
  return line;
}

}  // namespace

NetworkPrinter::NetworkPrinter(const std::vector<std::string>& options) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2() failed");
  }
  std::vector<std::string> arguments = {SIMULATOR_PROGRAM, "--control",
                                        (folder_.path() / "control").string()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  process_ = std::make_unique<ChildProcess>(ChildProcess::Options{arguments, {{1, ends[1]}}, {}});
  close(ends[1]);
  device_uri_ = read_line(ends[0]);
  close(ends[0]);
  if (!device_uri_.starts_with("socket://127.0.0.1:")) {
    throw std::runtime_error("the simulator did not start: " + device_uri_);
  }
}

NetworkPrinter::~NetworkPrinter() {
  process_->signal(SIGTERM);
  process_->wait(std::chrono::seconds(5));
}

std::string ask_control_socket(const std::string& path, const std::string& line) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int control = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(control, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(control);
    throw std::runtime_error("the control socket " + path + " does not answer");
  }
  const std::string request = line + "\n";
  const bool sent = write(control, request.data(), request.size()) == static_cast<ssize_t>(request.size());
  const std::string reply = sent ? read_line(control) : "";
  close(control);
  if (reply != "ok" && !reply.starts_with("ok ")) {
    throw std::runtime_error("\"" + line + "\" was answered by \"" + reply + "\"");
  }
  return reply.size() > 3 ? reply.substr(3) : "";
}

std::string NetworkPrinter::ask(const std::string& line) const {
  return ask_control_socket((folder_.path() / "control").string(), line);
}

std::vector<std::string> NetworkPrinter::requests() const {
  std::istringstream words(ask("requests"));
  std::vector<std::string> packets;
  for (std::string packet; words >> packet;) {
    packets.push_back(packet);
  }
  return packets;
}
