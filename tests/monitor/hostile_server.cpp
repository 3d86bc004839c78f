// SPDX-License-Identifier: Apache-2.0
#include "tests/monitor/hostile_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace {

/// Takes bytes from the socket until `bytes` has so many; false at the end.
bool receive(int socket, std::string& bytes, std::size_t size) {
  std::array<char, 4096> chunk{};
  while (bytes.size() < size) {
    const auto length = recv(socket, chunk.data(), chunk.size(), 0);
    if (length <= 0) {
      return false;
    }
    bytes.append(chunk.data(), static_cast<std::size_t>(length));
  }
  return true;
}

/// Takes one POST request with its body and leaves what follows in `bytes`. Returns the IPP operation; 0 at
/// the end or if it is anything else, such as TLS.
int take_request(int socket, std::string& bytes) {
  std::size_t end = 0;
  while ((end = bytes.find("\r\n\r\n")) == std::string::npos) {
    const bool is_http = bytes.empty() || bytes.front() == 'P';
    if (!is_http || !receive(socket, bytes, bytes.size() + 1)) {
      return 0;
    }
  }
  std::string head = bytes.substr(0, end + 2);
  std::ranges::transform(head, head.begin(), [](unsigned char c) { return std::tolower(c); });
  bytes.erase(0, end + 4);

  if (head.find("\r\nexpect: 100-continue") != std::string::npos) {
    constexpr std::string_view go_on = "HTTP/1.1 100 Continue\r\n\r\n";
    send(socket, go_on.data(), go_on.size(), MSG_NOSIGNAL);
  }

  std::string body;
  constexpr std::string_view length_header = "\r\ncontent-length: ";
  if (const auto at = head.find(length_header); at != std::string::npos) {
    const std::size_t size = std::stoul(head.substr(at + length_header.size()));
    if (!receive(socket, bytes, size)) {
      return 0;
    }
    body = bytes.substr(0, size);
    bytes.erase(0, size);
  } else if (head.find("\r\ntransfer-encoding: chunked") != std::string::npos) {
    for (std::size_t size = 1; size > 0;) {
      while (bytes.find("\r\n") == std::string::npos) {
        if (!receive(socket, bytes, bytes.size() + 1)) {
          return 0;
        }
      }
      const std::size_t line = bytes.find("\r\n") + 2;
      size = std::stoul(bytes, nullptr, 16);
      if (!receive(socket, bytes, line + size + 2)) {
        return 0;
      }
      body += bytes.substr(line, size);
      bytes.erase(0, line + size + 2);
    }
  }
  return body.size() < 4 ? -1
                         : static_cast<unsigned char>(body[2]) << 8 | static_cast<unsigned char>(body[3]);
}

}  // namespace

bool HostileServer::Exchange::send(const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const auto length = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (length <= 0) {
      return false;
    }
    sent += static_cast<std::size_t>(length);
  }
  return true;
}

bool HostileServer::Exchange::wait(std::chrono::milliseconds length) {
  pollfd wait{socket_, POLLRDHUP, 0};
  return poll(&wait, 1, static_cast<int>(length.count())) == 0;
}

HostileServer::HostileServer(Answer answer) : answer_(std::move(answer)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  constexpr int backlog = 50;
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::listen(listener_, backlog) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no port for a hostile server");
  }
  port_ = ntohs(address.sin_port);
  listening_ = std::jthread([this] { listen(); });
}

HostileServer::~HostileServer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);
    for (const int socket : sockets_) {
      shutdown(socket, SHUT_RDWR);
    }
  }
  listening_.join();
  threads_.clear();
  for (const int socket : sockets_) {
    close(socket);
  }
  close(listener_);
}

void HostileServer::answer_with(Answer answer) {
  const std::lock_guard lock(mutex_);
  answer_ = std::move(answer);
}

std::size_t HostileServer::connections() const {
  const std::lock_guard lock(mutex_);
  return sockets_.size();
}

void HostileServer::listen() {
  for (;;) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const std::lock_guard lock(mutex_);
    if (socket < 0 || ending_) {
      close(socket);
      return;
    }
    sockets_.push_back(socket);
    threads_.emplace_back([this, socket] { serve(socket); });
  }
}

void HostileServer::serve(int socket) {
  std::string bytes;
  while (const int operation = take_request(socket, bytes)) {
    Answer answer;
    {
      const std::lock_guard lock(mutex_);
      answer = answer_;
    }
    Exchange exchange(socket, static_cast<ipp_op_t>(operation));
    answer(exchange);
  }
  shutdown(socket, SHUT_RDWR);
}

std::string http_response(const std::string& status, const std::string& body,
                          const std::string& more_headers) {
  return "HTTP/1.1 " + status +
         "\r\nContent-Type: application/ipp\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         more_headers + "\r\n" + body;
}

std::string ipp_bytes(ipp_t* message) {
  std::string bytes;
  ippSetState(message, IPP_STATE_IDLE);
  const auto append = [](void* context, ipp_uchar_t* buffer, size_t length) {
    static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(buffer), length);
    return static_cast<ssize_t>(length);
  };
  const auto state = ippWriteIO(&bytes, append, 1, nullptr, message);
  ippDelete(message);
  if (state != IPP_STATE_DATA) {
    throw std::runtime_error("the IPP message cannot be written");
  }
  return bytes;
}

ipp_t* ipp_answer(ipp_status_t status, const char* text) {
  ipp_t* answer = ippNew();
  ippSetVersion(answer, 2, 0);
  ippSetStatusCode(answer, status);
  ippSetRequestId(answer, 1);
  ippAddString(answer, IPP_TAG_OPERATION, IPP_TAG_CHARSET, "attributes-charset", nullptr, "utf-8");
  ippAddString(answer, IPP_TAG_OPERATION, IPP_TAG_LANGUAGE, "attributes-natural-language", nullptr, "en");
  if (text != nullptr) {
    ippAddString(answer, IPP_TAG_OPERATION, IPP_TAG_TEXT, "status-message", nullptr, text);
  }
  return answer;
}

std::string ipp_response(ipp_status_t status, const char* text) {
  return http_response("200 OK", ipp_bytes(ipp_answer(status, text)));
}

std::string ipp_start() {
  std::string bytes = ipp_bytes(ipp_answer());
  bytes.back() = static_cast<char>(IPP_TAG_PRINTER);  // instead of the end
  return bytes;
}

std::string ipp_value(ipp_tag_t tag, const std::string& name, const std::string& value) {
  const auto counted = [](const std::string& text) {
    return std::string{static_cast<char>(text.size() >> 8U), static_cast<char>(text.size() & 0xffU)} + text;
  };
  return static_cast<char>(tag) + counted(name) + counted(value);
}

std::string queue_attributes(const std::string& name) {
  static const std::string same_for_all = [] {
    ipp_t* answer = ippNew();
    const auto text = [&](const char* attribute, ipp_tag_t tag, const char* value) {
      ippAddString(answer, IPP_TAG_PRINTER, tag, attribute, nullptr, value);
    };
    const auto number = [&](const char* attribute, int value) {
      ippAddInteger(answer, IPP_TAG_PRINTER, IPP_TAG_INTEGER, attribute, value);
    };
    text("printer-make-and-model", IPP_TAG_TEXT, "Brenvellis Photo Printer, 0.1");
    ippAddInteger(answer, IPP_TAG_PRINTER, IPP_TAG_ENUM, "printer-state", IPP_PSTATE_IDLE);
    text("printer-state-message", IPP_TAG_TEXT, "");
    text("printer-state-reasons", IPP_TAG_KEYWORD, "none");
    number("printer-state-change-time", 1'700'000'000);
    ippAddBoolean(answer, IPP_TAG_PRINTER, "printer-is-accepting-jobs", 1);
    ippAddBoolean(answer, IPP_TAG_PRINTER, "printer-is-shared", 1);
    number("queued-job-count", 0);
    number("printer-up-time", 1'700'000'100);
    constexpr std::array commands = {"AutoConfigure", "Clean", "PrintSelfTestPage", "ReportLevels",
                                     "ReportStatus"};
    ippAddStrings(answer, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "printer-commands",
                  static_cast<int>(commands.size()), nullptr, commands.data());
    number("marker-change-time", 1'700'000'050);
    text("marker-message", IPP_TAG_TEXT, "Ink Ribbon = 200 / 400");
    text("marker-names", IPP_TAG_NAME, "InkSheetType: 10x15(4x6″)");
    text("marker-types", IPP_TAG_KEYWORD, "ink-ribbon");
    number("marker-levels", 50);
    const std::string bytes = ipp_bytes(answer);
    constexpr std::size_t head = 9;  // with the tag of the group
    return bytes.substr(head, bytes.size() - head - 1);
  }();
  return ipp_value(IPP_TAG_NAME, "printer-name", name) +
         ipp_value(IPP_TAG_TEXT, "printer-info", "The printer of " + name) +
         ipp_value(IPP_TAG_TEXT, "printer-location", "Room " + name) + same_for_all;
}
