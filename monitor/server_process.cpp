// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_process.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include "monitor/server_messages.h"
#include "monitor/server_requests.h"
#include "monitor/spawn.h"

namespace {

using std::chrono::milliseconds;
using Kind = SchedulerError::Kind;

constexpr const char* NAME = "brenvellis-monitor";

/// Makes the timer readable after `delay`.
void set_timer(int timer, milliseconds delay) {
  constexpr milliseconds least(1);  // 0 would disarm the timer
  delay = std::max(delay, least);
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(delay);
  itimerspec time{};
  time.it_value.tv_sec = whole.count();
  time.it_value.tv_nsec = std::chrono::nanoseconds(delay - whole).count();
  timerfd_settime(timer, 0, &time, nullptr);
}

void stop_timer(int timer) {
  const itimerspec never{};
  timerfd_settime(timer, 0, &never, nullptr);
}

bool is_readable(int descriptor) {
  pollfd wait{descriptor, POLLIN, 0};
  return poll(&wait, 1, 0) != 0;
}

void watch(int events, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  if (epoll_ctl(events, EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "epoll");
  }
}

std::string patience_text(milliseconds patience) {
  const auto count = std::chrono::ceil<std::chrono::seconds>(patience).count();
  return "no answer within " + std::to_string(count) + (count == 1 ? " second" : " seconds");
}

/// Returns why a process that has exited did not answer, from its wait status.
std::string ended_text(int status) {
  const std::string text = "its answer crashed the process that reads it: ";
  return WIFSIGNALED(status) ? text + strsignal(WTERMSIG(status))
                             : text + "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

ServerProcess::ServerProcess(ServerName server, http_encryption_t encryption, milliseconds patience,
                             std::string program)
    : server_(std::move(server)),
      encryption_(encryption),
      patience_(patience),
      program_(std::move(program)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      events_(epoll_create1(EPOLL_CLOEXEC)) {
  watch(events_, timer_);
}

ServerProcess::~ServerProcess() {
  end();
  close(events_);
  close(timer_);
}

void ServerProcess::start() {
  std::array<int, 2> sockets{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
    return answer_at_once({Kind::Unreachable, std::strerror(errno)});
  }
  const int error =
      spawn({program_,
             {NAME, SERVE_OPTION, server_.host, std::to_string(server_.port),
              std::to_string(static_cast<int>(encryption_)), std::to_string((patience_ * 4 / 5).count())},
             sockets[1],
             -1,
             environ},
            pid_);
  close(sockets[1]);
  if (error != 0) {
    close(sockets[0]);
    pid_ = -1;
    return answer_at_once({Kind::Unreachable, program_ + ": " + std::strerror(error)});
  }
  socket_ = sockets[0];
  watch(events_, socket_);
}

/// Kills the process if it is still running, and returns its wait status.
int ServerProcess::end() {
  int status = 0;
  if (pid_ >= 0) {
    close(socket_);  // also removes it from the events
    kill(pid_, SIGKILL);
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    socket_ = -1;
  }
  return status;
}

/// Returns whether the process is running and has sent nothing unexpected.
bool ServerProcess::is_usable() const {
  return pid_ >= 0 && !is_readable(socket_);
}

void ServerProcess::answer_at_once(SchedulerError error) {
  at_once_ = std::move(error);
  set_timer(timer_, milliseconds(0));
}

void ServerProcess::ask(const SchedulerRequest& request) {
  asked_ = true;
  at_once_.reset();
  received_.clear();
  const std::string message = frame(encode(request));
  if (message.size() > MAX_REQUEST_BYTES) {
    return answer_at_once({Kind::NotFound, "the name is too long"});
  }
  if (!is_usable()) {
    end();
    start();
  }
  if (at_once_) {
    return;
  }
  // If the process has just exited, reading the answer fails.
  static_cast<void>(send(socket_, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
  set_timer(timer_, patience_);
}

std::optional<SchedulerAnswer> ServerProcess::take_answer() {
  if (!asked_) {
    return std::nullopt;
  }
  std::optional<SchedulerAnswer> answer;
  if (at_once_) {
    answer = std::move(*at_once_);
  } else {
    answer = read_answer();
    if (!answer && is_readable(timer_)) {
      end();
      answer = SchedulerError{Kind::NoAnswer, patience_text(patience_)};
    }
  }
  if (answer) {
    asked_ = false;
    stop_timer(timer_);
    received_.clear();
    received_.shrink_to_fit();
  }
  return answer;
}

/// Returns the answer if it is complete. Kills a process that sends anything else.
std::optional<SchedulerAnswer> ServerProcess::read_answer() {
  std::array<char, 65536> chunk{};
  while (received_.size() <= MAX_MESSAGE_BYTES + FRAME_BYTES) {
    const auto length = recv(socket_, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
      break;
    }
    if (length <= 0) {
      return SchedulerError{Kind::InvalidAnswer, ended_text(end())};
    }
    received_.append(chunk.data(), static_cast<std::size_t>(length));
  }
  const auto size = framed_size(received_);
  if (!size || (*size <= MAX_MESSAGE_BYTES && received_.size() < FRAME_BYTES + *size)) {
    return std::nullopt;
  }
  std::optional<SchedulerAnswer> answer;
  if (received_.size() == FRAME_BYTES + *size) {
    answer = decode_answer(std::string_view(received_).substr(FRAME_BYTES));
  }
  if (!answer) {
    end();
    answer = SchedulerError{Kind::InvalidAnswer, "its answer corrupted the process that reads it"};
  }
  return answer;
}

int ServerProcess::descriptor() const {
  return asked_ ? events_ : -1;
}

void ServerProcess::give_up() {
  if (asked_) {
    end();
    stop_timer(timer_);
    asked_ = false;
    received_.clear();
  }
}
