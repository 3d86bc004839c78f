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
#include <utility>

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

std::string read_to_end(int descriptor) {
  std::string all;
  std::array<char, 4096> piece{};
  for (ssize_t count = 0; (count = read(descriptor, piece.data(), piece.size())) > 0;) {
    all.append(piece.data(), static_cast<std::size_t>(count));
  }
  return all;
}

}  // namespace

NetworkPrinter::NetworkPrinter(const std::vector<std::string>& options,
                               std::shared_ptr<TemporaryFolder> folder)
    : folder_(std::move(folder)) {
  std::array<int, 2> output{};
  std::array<int, 2> errors{};
  if (pipe2(output.data(), O_CLOEXEC) != 0 || pipe2(errors.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2() failed");
  }
  std::vector<std::string> arguments = {SIMULATOR_PROGRAM, "--control", control()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  process_ = std::make_unique<ChildProcess>(
      ChildProcess::Options{arguments, {{STDOUT_FILENO, output[1]}, {STDERR_FILENO, errors[1]}}, {}});
  close(output[1]);
  close(errors[1]);
  output_ = output[0];
  errors_ = errors[0];
  device_uri_ = read_line(output_);
  if (!device_uri_.starts_with("socket://127.0.0.1:")) {
    throw std::runtime_error("the simulator did not start: " + end(SIGTERM).errors);
  }
}

NetworkPrinter::~NetworkPrinter() {
  if (process_) {
    end(SIGTERM);
  }
}

ProgramResult NetworkPrinter::end(int signal) {
  process_->signal(signal);
  ProgramResult result;
  result.exit_status = process_->exit_status(std::chrono::seconds(30));
  process_.reset();
  result.output = read_to_end(output_);
  result.errors = read_to_end(errors_);
  close(output_);
  close(errors_);
  return result;
}

std::uint16_t NetworkPrinter::port() const {
  return static_cast<std::uint16_t>(std::stoul(device_uri_.substr(device_uri_.rfind(':') + 1)));
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
  return ask_control_socket(control(), line);
}

std::vector<std::string> NetworkPrinter::requests() const {
  std::istringstream words(ask("requests"));
  std::vector<std::string> packets;
  for (std::string packet; words >> packet;) {
    packets.push_back(packet);
  }
  return packets;
}
