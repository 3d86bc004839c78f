#include <langinfo.h>
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
#include "monitor/html_view.h"
#include "monitor/json_view.h"
#include "monitor/output_file.h"
#include "monitor/prometheus_view.h"
#include "monitor/refresh.h"
#include "monitor/text_view.h"

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

TextStyle style_of_terminal(const std::string& color) {
  const char* no_color = std::getenv("NO_COLOR");
  const bool unwanted = no_color != nullptr && *no_color != '\0';
  TextStyle style;
  style.utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  style.color = color == "always" || (color == "auto" && !unwanted && is_terminal(STDOUT_FILENO));
  return style;
}

/// Refreshes, and tells a terminal meanwhile how many printers have answered.
Report refresh_with_live_line(const RefreshOptions& options) {
  constexpr std::chrono::milliseconds glance(100);
  Progress progress;
  std::atomic<bool> ended = false;
  std::jthread live;
  if (is_terminal(STDERR_FILENO)) {
    live = std::jthread([&] {
      bool shown = false;
      for (int passed = 0; !ended; ++passed) {
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
  Report report = refresh(options, progress, stop);
  ended = true;
  return report;
}

std::string rendered(const Report& report, View view, const Arguments& arguments) {
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
  return text_view(report, style_of_terminal(arguments.color));
}

/// Writes every view to its place. False, and a line on standard error, if one could not be written.
bool write_views(const Report& report, const Arguments& arguments) {
  bool written = true;
  for (const auto& output : arguments.outputs) {
    const std::string text = rendered(report, output.view, arguments);
    std::string error;
    if (output.path != STANDARD_OUTPUT) {
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
      fprintf(stderr, "brenvellis-monitor: %s\n", error.c_str());
      written = false;
    }
  }
  return written;
}

void rest(std::chrono::seconds length) {
  constexpr std::chrono::milliseconds glance(50);
  const auto end = std::chrono::steady_clock::now() + length;
  while (stop.signal == 0 && std::chrono::steady_clock::now() < end) {
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
    const bool written = write_views(report, arguments);
    if (!arguments.watch_seconds) {
      return static_cast<int>(written ? judge(report) : worse(judge(report), Verdict::Unknown));
    }
    rest(std::chrono::seconds(*arguments.watch_seconds));
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
  try {
    const auto read = read_arguments(argc, argv);
    if (const int* status = std::get_if<int>(&read)) {
      return *status;
    }
    take_signals();
    return monitor(std::get<Arguments>(read));
  } catch (const std::exception& error) {
    fprintf(stderr, "brenvellis-monitor: %s\n", error.what());
    return static_cast<int>(Verdict::Unknown);
  }
}
