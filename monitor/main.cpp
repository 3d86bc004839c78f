// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <system_error>

#include "monitor/arguments.h"
#include "monitor/output_file.h"
#include "monitor/run_command.h"
#include "monitor/server_process.h"
#include "monitor/server_requests.h"
#include "monitor/views/html_view.h"
#include "monitor/views/json_view.h"
#include "monitor/views/plain_text.h"
#include "monitor/views/plugin_view.h"
#include "monitor/views/prometheus_view.h"
#include "monitor/views/ready_view.h"
#include "monitor/views/text_view.h"
#include "monitor/watch_loop.h"

namespace {

constexpr int ENDED_BY_SIGNAL = 128;

volatile std::sig_atomic_t stop_signal = 0;
/// A pipe that passes the signal to poll().
std::array<int, 2> stop_pipe = {-1, -1};

void request_stop(int signal) {
  stop_signal = signal;
  const char byte = 0;
  static_cast<void>(!write(stop_pipe[1], &byte, 1));
}

bool is_terminal(int file) {
  const char* terminal = std::getenv("TERM");
  return isatty(file) != 0 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

/// Returns the columns of the terminal on standard output; unlimited if it is not a terminal.
std::size_t width_of_terminal() {
  constexpr std::size_t usual = 80;
  if (isatty(STDOUT_FILENO) == 0) {
    return UNLIMITED_WIDTH;
  }
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

TextStyle style_of_terminal(const std::string& color) {
  const char* no_color = std::getenv("NO_COLOR");
  const bool unwanted = no_color != nullptr && *no_color != '\0';
  TextStyle style;
  style.utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  style.color = color == "always" || (color == "auto" && !unwanted && is_terminal(STDOUT_FILENO));
  style.width = width_of_terminal();
  return style;
}

/// LiveLine shows on a terminal how many printers have answered so far.
class LiveLine {
 public:
  void show(std::size_t answered, std::size_t sent) {
    // Short waits need no line.
    constexpr std::chrono::milliseconds moment(300);
    if (!is_wanted_ || sent == 0 || answered == sent || std::chrono::steady_clock::now() - began_ < moment) {
      return;
    }
    fprintf(stderr, "\r%zu of %zu printers have answered\033[K", answered, sent);
    is_shown_ = true;
  }
  void clear() {
    if (is_shown_) {
      fputs("\r\033[K", stderr);
    }
    is_shown_ = false;
  }

 private:
  bool is_wanted_ = is_terminal(STDERR_FILENO);
  bool is_shown_ = false;
  std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

/// A watch writes the page at its interval; otherwise, a timer does.
PageTimes times_of_page(const Arguments& arguments) {
  constexpr int shortest = 5;
  constexpr int longest_reload = 30;
  PageTimes times;
  times.interval =
      arguments.rules.again ? static_cast<int>(arguments.rules.shortest.count()) : arguments.page_interval;
  times.interval = std::max(times.interval, shortest);
  times.reload = std::min(times.interval, longest_reload);
  return times;
}

std::string rendered(const Report& report, View view, const Arguments& arguments, const TextStyle& style) {
  switch (view) {
    case View::Json:
      return json_view(report, arguments.rules.again ? -1 : 2);
    case View::Prometheus:
      return prometheus_view(report);
    case View::Html:
      return html_view(report, times_of_page(arguments));
    case View::Plugin:
      return plugin_view(report, style.utf8);
    case View::Ready:
      return ready_view(report, style.utf8);
    case View::Text:
      break;
  }
  return text_view(report, style);
}

/// The exit status if an output could not be written. A monitoring system takes those of plug-ins only.
int failure_status(const Arguments& arguments) {
  return has_view(arguments, View::Plugin) ? static_cast<int>(Verdict::Unknown) : EX_IOERR;
}

struct Written {
  bool all = true;
  bool standard_output = true;
};

/// Writes all outputs, and a message for each that could not be written.
Written write_views(const Report& report, const Arguments& arguments) {
  Written written;
  for (const auto& output : arguments.outputs) {
    const bool to_file = output.path != STANDARD_OUTPUT;
    TextStyle style = style_of_terminal(arguments.color);
    if (to_file) {
      style.width = UNLIMITED_WIDTH;
    }
    const std::string text = rendered(report, output.view, arguments, style);
    std::string error;
    bool is_silent = false;
    if (to_file) {
      error = write_whole(output.path, text);
    } else {
      if (arguments.rules.again && output.view == View::Text && is_terminal(STDOUT_FILENO)) {
        fputs("\033[H\033[2J", stdout);
      }
      if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0) {
        error = std::string("standard output: ") + std::strerror(errno);
        // Programs such as head close the pipe on purpose.
        is_silent = errno == EPIPE;
      }
    }
    if (!error.empty()) {
      if (!is_silent) {
        fprintf(stderr, "brenvellis-monitor: %s\n", printable(error).c_str());
      }
      written.all = false;
      written.standard_output = written.standard_output && to_file;
    }
  }
  return written;
}

int status_of(const Report& report, const Arguments& arguments, bool is_written) {
  if (!is_written) {
    return failure_status(arguments);
  }
  if (has_view(arguments, View::Ready)) {
    return ready_view(report, true).empty() ? 0 : 1;
  }
  return static_cast<int>(judge(report));
}

/// Queries the printers and shows the report, once or until a signal. Returns the exit status.
int monitor(const Arguments& arguments) {
  constexpr std::chrono::seconds longest_patience(10);
  const std::chrono::milliseconds patience = std::min(longest_patience, arguments.rules.timeout);
  std::vector<WatchedServer> servers;
  for (const auto& server : arguments.servers) {
    servers.push_back(
        {server.label, std::make_unique<ServerProcess>(server.name, arguments.encryption, patience)});
  }

  LiveLine line;
  int status = static_cast<int>(Verdict::Unknown);
  WatchCaller caller;
  caller.stop = stop_pipe[0];
  const bool is_shown = std::ranges::any_of(
      arguments.outputs, [](const Output& output) { return output.path == STANDARD_OUTPUT; });
  caller.output = arguments.rules.again && is_shown ? STDOUT_FILENO : -1;
  caller.progress = [&](std::size_t answered, std::size_t sent) {
    if (!arguments.rules.again) {
      line.show(answered, sent);
    }
  };
  caller.note = [&](const std::string& text) {
    line.clear();
    fprintf(stderr, "brenvellis-monitor: %s\n", printable(text).c_str());
  };
  caller.show = [&](const Report& report) {
    line.clear();
    const auto written = write_views(report, arguments);
    status = status_of(report, arguments, written.all);
    return written.standard_output;
  };

  std::optional<ChangeCommands> changes;
  if (!arguments.on_change.empty()) {
    changes.emplace(
        ChangeCommands::Options{.command = arguments.on_change, .tell_first = arguments.on_change_at_start},
        caller.note);
    caller.changes = &*changes;
  }

  const auto end = watch(servers, arguments.queues, arguments.rules, caller);
  line.clear();
  if (end == WatchEnd::Stopped || stop_signal != 0) {
    return ENDED_BY_SIGNAL + stop_signal;
  }
  return end == WatchEnd::Done ? status : failure_status(arguments);
}

void take_signals() {
  if (pipe2(stop_pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  struct sigaction action {};
  action.sa_handler = request_stop;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // a second Ctrl-C terminates the program
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(signal, &action, nullptr);
  }
  // A write to a closed pipe fails instead. With a handler, programs that this one starts keep the default.
  action.sa_handler = [](int) {};
  action.sa_flags = 0;
  sigaction(SIGPIPE, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  if (const auto status = serve_requests(argc, argv)) {
    return *status;
  }
  if (const auto status = run_command(argc, argv)) {
    return *status;
  }
  try {
    const auto read = read_arguments(argc, argv);
    if (const int* status = std::get_if<int>(&read)) {
      return *status;
    }
    take_signals();
    return monitor(std::get<Arguments>(read));
  } catch (const std::exception& error) {
    fprintf(stderr, "brenvellis-monitor: %s\n", printable(error.what()).c_str());
    return static_cast<int>(Verdict::Unknown);
  }
}
