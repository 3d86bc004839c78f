// SPDX-License-Identifier: Apache-2.0
#include "tests/simulator/simulator_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

namespace {

bool wait_for(int descriptor, short event) {
  pollfd wanted = {descriptor, event, 0};
  const bool came = poll(&wanted, 1, PATIENCE_MS) == 1;
  EXPECT_TRUE(came) << "nothing came";
  return came;
}

std::string read_piece(int descriptor, std::size_t most) {
  std::string piece(most, '\0');
  const ssize_t count = wait_for(descriptor, POLLIN) ? read(descriptor, piece.data(), most) : 0;
  piece.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return piece;
}

std::string read_to_end(int descriptor) {
  std::string all;
  for (std::string piece; !(piece = read_piece(descriptor, 65536)).empty();) {
    all += piece;
  }
  return all;
}

std::string read_line(int descriptor) {
  std::string line;
  for (std::string piece; !(piece = read_piece(descriptor, 1)).empty() && piece != "\n";) {
    line += piece;
  }
  return line;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

template <typename Address>
const sockaddr* generic(const Address& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

std::string simulated_status_reply(std::uint16_t code) {
  return status_reply(code, 15, '\0');
}

std::string simulated_levels_reply(std::uint16_t code) {
  std::string reply = levels_reply(400, 400, 2, 26, '\0');
  reply.replace(0, 15, simulated_status_reply(code));
  return reply;
}

ProgramResult run_simulator(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), SIMULATOR_PROGRAM);
  return run_program(arguments);
}

Connection Connection::to_port(std::uint16_t port) {
  Connection made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  EXPECT_EQ(::connect(made.descriptor_, generic(address), sizeof(address)), 0) << strerror(errno);
  return made;
}

Connection Connection::to_path(const std::string& path) {
  Connection made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
  EXPECT_EQ(::connect(made.descriptor_, generic(address), sizeof(address)), 0) << strerror(errno);
  return made;
}

Connection::Connection(Connection&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Connection& Connection::operator=(Connection&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

Connection::~Connection() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

void Connection::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    ASSERT_GT(count, 0) << strerror(errno);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void Connection::end_sending() const {
  shutdown(descriptor_, SHUT_WR);
}

std::string Connection::receive(std::size_t size) const {
  std::string all;
  for (std::string piece;
       all.size() < size && !(piece = read_piece(descriptor_, size - all.size())).empty();) {
    all += piece;
  }
  return all;
}

std::string Connection::receive_piece() const {
  return read_piece(descriptor_, 65536);
}

std::string Connection::receive_to_end() const {
  return read_to_end(descriptor_);
}

std::string Connection::receive_now() const {
  std::string piece(65536, '\0');
  const ssize_t count = recv(descriptor_, piece.data(), piece.size(), MSG_DONTWAIT);
  piece.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return piece;
}

std::string Connection::receive_line() const {
  return read_line(descriptor_);
}

std::size_t Connection::send_until_stuck(std::string_view bytes, std::size_t most) const {
  std::size_t sent = 0;
  pollfd writable = {descriptor_, POLLOUT, 0};
  while (sent < most && poll(&writable, 1, 1000) == 1) {
    const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    sent += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  return sent;
}

void Connection::reset() {
  const linger at_once = {1, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  close(std::exchange(descriptor_, -1));
}

int try_to_connect(std::uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  const int error = ::connect(descriptor, generic(address), sizeof(address)) == 0 ? 0 : errno;
  close(descriptor);
  return error;
}

PortHolder::PortHolder(std::uint16_t port) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  setsockopt(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in address = loopback(port);
  EXPECT_EQ(bind(descriptor_, generic(address), sizeof(address)), 0) << strerror(errno);
  socklen_t size = sizeof(address);
  getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
}

PortHolder::~PortHolder() {
  close(descriptor_);
}

void PortHolder::listen() const {
  EXPECT_EQ(::listen(descriptor_, 1), 0) << strerror(errno);
}

SimulatorProcess::~SimulatorProcess() {
  if (is_running()) {
    const ProgramResult result = end(SIGTERM);
    EXPECT_EQ(result.exit_status, 0) << result.errors;
  }
}

std::string SimulatorProcess::reply_to(std::string_view line) const {
  const Connection client = Connection::to_path(control());
  client.send(std::string(line) + "\n");
  return client.receive_line();
}

void SimulatorProcess::set(std::string_view line) const {
  ASSERT_EQ(reply_to(line), "ok") << line;
}

void SimulatorProcess::await_shown(std::string_view text) const {
  const Connection client = Connection::to_path(control());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(PATIENCE_MS);
  std::string shown;
  while (std::chrono::steady_clock::now() < deadline) {
    client.send("show\n");
    shown = client.receive_line() + " ";
    if (shown.find(std::string(text) + " ") != std::string::npos) {
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  FAIL() << text << " was not shown; the last was " << shown;
}

std::size_t SimulatorProcess::open_descriptors() const {
  const std::filesystem::directory_iterator open("/proc/" + std::to_string(pid()) + "/fd");
  return static_cast<std::size_t>(std::distance(std::filesystem::begin(open), std::filesystem::end(open)));
}

void SimulatorProcess::limit_descriptors(unsigned most) const {
  const rlimit limit = {most, most};
  EXPECT_EQ(prlimit(pid(), RLIMIT_NOFILE, &limit, nullptr), 0) << strerror(errno);
}
