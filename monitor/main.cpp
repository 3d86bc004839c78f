#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>

#include "monitor/arguments.h"
#include "monitor/output_file.h"
#include "monitor/refresh.h"
#include "monitor/server_requests.h"
#include "monitor/views/html_view.h"
#include "monitor/views/json_view.h"
#include "monitor/views/plain_text.h"
#include "monitor/views/prometheus_view.h"
#include "monitor/views/text_view.h"

namespace {

constexpr int ENDED_BY_SIGNAL = 128;

StopRequest stop;

void request_stop(int signal) {
  stop.signal = signal;
  stop.connecting = 1;
}

bool is_terminal(int file) {
  const char* terminal = std::getenv("TERM");
  return isatty(file) != 0 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

/// The columns of the terminal that is standard output; as many as the text needs if it is none.
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

/// Refreshes, and tells a terminal meanwhile how many printers have answered.
Report refresh_with_live_line(const RefreshOptions& options) {
  constexpr std::chrono::milliseconds glance(100);
  Progress progress;
  std::jthread live;  // whose destructor ends it
  if (is_terminal(STDERR_FILENO)) {
    live = std::jthread([&](const std::stop_token& ended) {
      bool shown = false;
      for (int passed = 0; !ended.stop_requested(); ++passed) {
        // What is over in a moment needs no line.
        if (passed > 3 && progress.asked > 0) {
          fprintf(stderr, "\r%d of %d printers have answered\033[K", progress.answered.load(),
                  progress.asked.load());
          shown = true;
        }
        std::this_thread::sleep_for(glance);
      }
      if (shown) {
        fputs("\r\033[K", stderr);
      }
    });
  }
  return refresh(options, progress, stop);
}

std::string rendered(const Report& report, View view, const Arguments& arguments, const TextStyle& style) {
  constexpr int shortest_reload = 5;
  constexpr int usual_reload = 30;
  switch (view) {
    case View::Json:
      return json_view(report, arguments.watch_seconds ? -1 : 2);
    case View::Prometheus:
      return prometheus_view(report);
    case View::Html:
      return html_view(report, std::max(shortest_reload, arguments.watch_seconds.value_or(usual_reload)));
    case View::Text:
      break;
  }
  return text_view(report, style);
}

struct Written {
  bool all = true;
  bool standard_output = true;
};

/// Writes every view to its place, and a line on standard error for each that could not be written.
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
    if (to_file) {
      error = write_whole(output.path, text);
    } else {
      if (arguments.watch_seconds && output.view == View::Text && is_terminal(STDOUT_FILENO)) {
        fputs("\033[H\033[2J", stdout);
      }
      if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0) {
        error = std::string("standard output: ") + std::strerror(errno);
      }
    }
    if (!error.empty()) {
      fprintf(stderr, "brenvellis-monitor: %s\n", printable(error).c_str());
      written.all = false;
      written.standard_output = written.standard_output && to_file;
    }
  }
  return written;
}

/// Whether standard output is a pipe or terminal that nobody will read any more.
bool has_lost_reader() {
  pollfd output{STDOUT_FILENO, 0, 0};
  return poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
}

/// @param shown  whether there is no point without standard output.
void rest(std::chrono::seconds length, bool shown) {
  constexpr std::chrono::milliseconds glance(50);
  const auto end = std::chrono::steady_clock::now() + length;
  while (stop.signal == 0 && std::chrono::steady_clock::now() < end && !(shown && has_lost_reader())) {
    std::this_thread::sleep_for(glance);
  }
}

/// Refreshes and shows, once or until a signal. Returns the exit status.
int monitor(const Arguments& arguments) {
  for (;;) {
    const Report report = refresh_with_live_line(arguments.refresh);
    if (stop.signal != 0) {
      return ENDED_BY_SIGNAL + stop.signal;
    }
    const auto written = write_views(report, arguments);
    if (stop.signal != 0) {  // while standard output was a full pipe, for example
      return ENDED_BY_SIGNAL + stop.signal;
    }
    if (!arguments.watch_seconds) {
      return written.all ? static_cast<int>(judge(report)) : EX_IOERR;
    }
    const bool shown = std::ranges::any_of(
        arguments.outputs, [](const Output& output) { return output.path == STANDARD_OUTPUT; });
    if (written.standard_output) {
      rest(std::chrono::seconds(*arguments.watch_seconds), shown);
    }
    if (stop.signal == 0 && (!written.standard_output || (shown && has_lost_reader()))) {
      return EX_IOERR;
    }
    if (stop.signal != 0) {
      return ENDED_BY_SIGNAL + stop.signal;
    }
  }
}

void take_signals() {
  struct sigaction action {};
  action.sa_handler = request_stop;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // a second Ctrl-C ends it at once
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  if (const auto status = serve_requests(argc, argv)) {
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
