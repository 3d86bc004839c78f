// SPDX-License-Identifier: Apache-2.0
#include "tests/channel/filter_run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

namespace {

void make_non_blocking(int descriptor) {
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

std::array<int, 2> make_pipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  return ends;
}

std::array<int, 2> make_sockets(int type) {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends.data()), 0);
  return ends;
}

/// Returns the words of FILTER_WRAPPER, a command to run the filter with, such as valgrind. The program is
/// given by its path or is in /usr/bin.
std::vector<std::string> wrapper() {
  std::vector<std::string> words;
  if (const char* value = std::getenv("FILTER_WRAPPER")) {
    std::istringstream stream(value);
    for (std::string word; stream >> word;) {
      words.push_back(word);
    }
    if (!words.empty() && !words.front().starts_with('/')) {
      words.front().insert(0, "/usr/bin/");
    }
  }
  return words;
}

/// The backend's side of one run.
class Backend {
 public:
  Backend(FilterRun& run, const std::vector<std::string>& arguments) : run_(run) {
    const auto input = make_pipe();
    const auto output = make_pipe();
    // A packet socket preserves the boundaries of writes.
    const auto log = make_sockets(SOCK_SEQPACKET);
    const auto back = make_pipe();
    const auto side = make_sockets(SOCK_STREAM);
    make_non_blocking(back[0]);
    make_non_blocking(back[1]);
    make_non_blocking(side[0]);

    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    int filters_output = output[1];
    if (run.output == Output::Full) {
      filters_output = full;
    } else if (run.output == Output::Closed) {
      close(output[0]);
    }
    EXPECT_EQ(write(input[1], run.input.data(), run.input.size()), static_cast<ssize_t>(run.input.size()));
    close(input[1]);

    std::vector<std::string> words = wrapper();
    if (run.input_closed) {
      words.insert(words.begin(), {"/bin/sh", "-c", "exec \"$@\" <&-", "sh"});
    }
    words.push_back(run.program);
    words.insert(words.end(), arguments.begin(), arguments.end());
    filter_ = std::make_unique<ChildProcess>(ChildProcess::Options{
        words, {{0, input[0]}, {1, filters_output}, {2, log[1]}, {3, back[0]}, {4, side[1]}}, {}});
    for (const int theirs : {input[0], output[1], log[1], side[1], full}) {
      close(theirs);
    }
    // Both ends of the back channel stay open here, so that a read waits for its time-out.
    output_ = run.output == Output::Closed ? -1 : output[0];
    log_ = log[0];
    back_read_ = back[0];
    back_write_ = back[1];
    side_ = side[0];
  }

  ~Backend() {
    for (const int ours : {output_, log_, back_read_, back_write_, side_}) {
      if (ours >= 0) {
        close(ours);
      }
    }
  }
  Backend(const Backend&) = delete;
  Backend& operator=(const Backend&) = delete;

  void serve() {
    while (log_ >= 0) {
      std::array<pollfd, 2> events = {{{log_, POLLIN, 0}, {side_, POLLIN, 0}}};
      // While the filter has not read all pieces, check every millisecond.
      ASSERT_GE(poll(events.data(), events.size(), pieces_.empty() && !hang_up_ ? -1 : 1), 0);
      if (events[1].revents != 0) {
        serve_side_channel();
      }
      if (events[0].revents != 0) {
        serve_log();
      }
      send_next_piece();
    }
    read_output();
    run_.exit_status = filter_->exit_status(std::chrono::seconds(60));
  }

 private:
  void serve_log() {
    std::array<char, 8192> text{};
    const ssize_t count = read(log_, text.data(), text.size());
    if (count <= 0) {
      close(log_);
      log_ = -1;
      return;
    }
    run_.writes.emplace_back(text.data(), static_cast<std::size_t>(count));
    run_.log += run_.writes.back();
  }

  /// A message is a command byte, a status byte, a big-endian length of 16 bits and the data.
  void serve_side_channel() {
    std::array<unsigned char, 4> header{};
    if (read(side_, header.data(), header.size()) != 4) {
      close(side_);
      side_ = -1;
      return;
    }
    EXPECT_EQ(header[1], CUPS_SC_STATUS_NONE);
    EXPECT_EQ(header[2] << 8 | header[3], 0) << "a request without data";
    ++run_.side_requests;
    if (header[0] == CUPS_SC_CMD_GET_BIDI) {
      answer(header[0], run_.probe);
      return;
    }
    ASSERT_EQ(header[0], CUPS_SC_CMD_DRAIN_OUTPUT);
    read_output();
    PrinterReply reply;
    if (!run_.replies.empty()) {
      reply = run_.replies.front();
      run_.replies.pop_front();
    }
    answer(header[0], reply.drain);
    pieces_.insert(pieces_.end(), reply.pieces.begin(), reply.pieces.end());
    hang_up_ = reply.hang_up;
    send_next_piece();
  }

  void answer(unsigned char command, const std::optional<SideAnswer>& with) const {
    if (with) {
      std::string message = {static_cast<char>(command), static_cast<char>(with->status),
                             static_cast<char>(with->data.size() >> 8),
                             static_cast<char>(with->data.size() & 0xff)};
      message += with->data;
      ASSERT_EQ(write(side_, message.data(), message.size()), static_cast<ssize_t>(message.size()));
    }
  }

  void send_next_piece() {
    int unread = 0;
    if (back_write_ < 0 || ioctl(back_read_, FIONREAD, &unread) != 0 || unread > 0) {
      return;
    }
    if (!pieces_.empty()) {
      const std::string piece = pieces_.front();
      pieces_.pop_front();
      ASSERT_EQ(write(back_write_, piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
    } else if (hang_up_) {
      close(back_write_);
      back_write_ = -1;
      hang_up_ = false;
    }
  }

  /// Takes what the filter has written to standard output so far.
  void read_output() {
    if (output_ < 0) {
      return;
    }
    make_non_blocking(output_);
    std::array<char, 4096> bytes{};
    for (ssize_t count = 0; (count = read(output_, bytes.data(), bytes.size())) > 0;) {
      run_.requests.append(bytes.data(), static_cast<std::size_t>(count));
    }
  }

  FilterRun& run_;
  std::unique_ptr<ChildProcess> filter_;
  std::deque<std::string> pieces_;
  bool hang_up_ = false;
  int output_ = -1;
  int log_ = -1;
  int back_read_ = -1;
  int back_write_ = -1;
  int side_ = -1;
};

}  // namespace

void FilterRun::run(const std::vector<std::string>& arguments) {
  Backend(*this, arguments).serve();
}

void FilterRun::run_file(const std::string& commands) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "commands";
  std::ofstream(path, std::ios::binary) << commands;
  run({"1", "user", "title", "1", "", path});
}
