// SPDX-License-Identifier: Apache-2.0
#include "simulator/printer_server.h"

#include <array>
#include <deque>
#include <span>
#include <utility>

#include "simulator/request_parser.h"

namespace {

/// The number of pending pieces of replies at which reading further requests of a peer is paused.
constexpr std::size_t MOST_WAITING_PIECES = 64;

/// Small, because each request in it may cause a reply of 4096 bytes.
constexpr std::size_t CHUNK_SIZE = 512;

}  // namespace

/// PrinterConnection reads requests and sends replies in the same order, until the peer has closed its side
/// and received all replies. Pending operations keep it alive.
class PrinterConnection : public std::enable_shared_from_this<PrinterConnection> {
 public:
  PrinterConnection(asio::ip::tcp::socket socket, PrinterServer& server)
      : socket_(std::move(socket)), delay_(socket_.get_executor()), server_(server) {
    std::error_code ignored;
    socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
  }

  void read() {
    if (reading_ || peer_ended_ || waiting_.size() >= MOST_WAITING_PIECES) {
      return;
    }
    reading_ = true;
    socket_.async_read_some(asio::buffer(chunk_), [self = shared_from_this()](auto error, auto count) {
      self->take_chunk(error, count);
    });
  }

  void close() {
    std::error_code ignored;
    socket_.close(ignored);
    delay_.cancel();
    parser_.finish();
    count_other_bytes();
    server_.remove(shared_from_this());
  }

 private:
  void take_chunk(std::error_code error, std::size_t count) {
    reading_ = false;
    if (!socket_.is_open()) {
      return;
    }
    peer_ended_ = error == asio::error::eof;
    if ((error && !peer_ended_) || (peer_ended_ && waiting_.empty())) {
      close();
      return;
    }
    for (Bytes& packet : parser_.feed(std::span(chunk_).first(count))) {
      for (Piece& piece : answer_request(server_.printer_, std::move(packet))) {
        waiting_.push_back(std::move(piece));
      }
    }
    count_other_bytes();
    send();
    read();
  }

  void count_other_bytes() {
    server_.printer_.traffic.other_bytes += parser_.other_bytes() - counted_other_bytes_;
    counted_other_bytes_ = parser_.other_bytes();
  }

  void send() {
    if (sending_ || waiting_.empty()) {
      return;
    }
    sending_ = true;
    delay_.expires_after(waiting_.front().delay);
    delay_.async_wait([self = shared_from_this()](auto) {
      if (self->socket_.is_open()) {
        self->send_now();
      }
    });
  }

  void send_now() {
    asio::async_write(socket_, asio::buffer(waiting_.front().bytes),
                      [self = shared_from_this()](auto error, auto) { self->finish_sending(error); });
  }

  void finish_sending(std::error_code error) {
    if (!socket_.is_open()) {
      return;
    }
    sending_ = false;
    const bool close_now = waiting_.front().close_after;
    waiting_.pop_front();
    if (error || close_now || (peer_ended_ && waiting_.empty())) {
      close();
      return;
    }
    send();
    read();
  }

  asio::ip::tcp::socket socket_;
  asio::steady_timer delay_;
  PrinterServer& server_;
  RequestParser parser_;
  std::size_t counted_other_bytes_ = 0;
  std::array<unsigned char, CHUNK_SIZE> chunk_{};
  std::deque<Piece> waiting_;
  bool reading_ = false;
  bool sending_ = false;
  bool peer_ended_ = false;
};

PrinterServer::PrinterServer(asio::io_context& io, SimulatedPrinter& printer)
    : printer_(printer), accept_loop_(io, [this](Tcp::socket socket) { add(std::move(socket)); }) {}

std::error_code PrinterServer::open(std::uint16_t port) {
  if (const auto error = accept_loop_.bind({asio::ip::address_v4::loopback(), port})) {
    return error;
  }
  return follow_fault();
}

std::error_code PrinterServer::follow_fault() {
  const bool refuse = printer_.settings.fault.kind == Fault::Kind::Refuse;
  if (refuse != accept_loop_.listening()) {
    return {};
  }
  if (!refuse) {
    return accept_loop_.listen();
  }
  while (!connections_.empty()) {
    (*connections_.begin())->close();
  }
  accept_loop_.stop_listening();
  return {};
}

void PrinterServer::add(Tcp::socket socket) {
  ++printer_.traffic.connections;
  ++printer_.open_connections;
  const auto connection = std::make_shared<PrinterConnection>(std::move(socket), *this);
  connections_.insert(connection);
  connection->read();
}

void PrinterServer::remove(const std::shared_ptr<PrinterConnection>& connection) {
  connections_.erase(connection);
  --printer_.open_connections;
}
