// SPDX-License-Identifier: Apache-2.0
// ask_printer DEVICE-URI: prints the ribbon level and the state of a Brenvellis printer. It needs no queue,
// PPD or filter: like a printer application, it starts the URI's CUPS backend itself.
#include <brenvellis/levels_query.h>
#include <brenvellis/printer_state_reasons.h>
#include <brenvellis/status_query.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The descriptors that the library and all CUPS backends use.
constexpr int BACK_CHANNEL = 3;
constexpr int SIDE_CHANNEL = 4;

struct Pipes {
  int data[2];  // requests to the backend
  int back[2];  // replies from the backend
  int side[2];  // commands to the backend, such as "drain"
};

bool make_pipes(Pipes& pipes) {
  // Keep 3 and 4 free for dup2().
  while (true) {
    const int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
      return false;
    }
    if (descriptor > SIDE_CHANNEL) {
      close(descriptor);
      break;
    }
  }
  if (pipe2(pipes.data, O_CLOEXEC) != 0 || pipe2(pipes.back, O_CLOEXEC) != 0 ||
      socketpair(AF_LOCAL, SOCK_STREAM | SOCK_CLOEXEC, 0, pipes.side) != 0) {
    return false;
  }
  // libcups can time out only on non-blocking channels.
  for (const int descriptor : {pipes.back[0], pipes.back[1], pipes.side[0], pipes.side[1]}) {
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
  }
  return true;
}

pid_t start_backend(const std::string& uri, const Pipes& pipes) {
  const char* folder = getenv("CUPS_SERVERBIN");
  const std::string program =
      std::string(folder != nullptr ? folder : "/usr/lib/cups") + "/backend/" + uri.substr(0, uri.find(':'));
  const pid_t backend = fork();
  if (backend == 0) {
    dup2(pipes.data[0], STDIN_FILENO);
    dup2(pipes.back[1], BACK_CHANNEL);
    dup2(pipes.side[0], SIDE_CHANNEL);
    setenv("DEVICE_URI", uri.c_str(), 1);
    execl(program.c_str(), uri.c_str(), "1", "ask_printer", "levels", "1", "", nullptr);
    perror(program.c_str());
    _exit(127);
  }
  return backend;
}

void print_reasons(FILE* out, const PrinterState& state) {
  if (state == PrinterState::Good()) {
    fputs("no error\n", out);
    return;
  }
  bool known = false;
  for (const PrinterStateReason& row : PRINTER_STATE_REASONS) {
    if (state != PrinterState::Error(static_cast<std::uint16_t>(row.major << 8 | row.minor))) {
      continue;
    }
    for (const char* keyword : row.keywords()) {
      fprintf(out, "%s\n", keyword);
      known = true;
    }
  }
  if (!known) {
    fprintf(out, "%s\n", FALLBACK_REASON);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    fprintf(stderr, "Usage: %s DEVICE-URI\n", argv[0]);
    return 2;
  }
  Pipes pipes{};
  if (!make_pipes(pipes)) {
    perror("ask_printer: pipes");
    return 1;
  }
  const pid_t backend = start_backend(argv[1], pipes);

  // The library writes requests to standard output and traces to standard error.
  FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  fcntl(fileno(out), F_SETFD, FD_CLOEXEC);
  dup2(pipes.data[1], STDOUT_FILENO);
  dup2(pipes.back[0], BACK_CHANNEL);
  dup2(pipes.side[1], SIDE_CHANNEL);
  close(pipes.data[0]);
  close(pipes.data[1]);

  const PrinterLevels levels = get_printer_levels();
  const PrinterState state = get_printer_state();
  fprintf(out, "%s\n", levels.to_string().c_str());
  print_reasons(out, state);
  fclose(out);

  // The backend exits at the end of its input unless it is still connecting or waiting for the printer. Once
  // connected, it ignores SIGTERM.
  const bool answered = levels.isGood() && state != PrinterState::Unavailable();
  close(STDOUT_FILENO);
  if (!answered) {
    kill(backend, SIGKILL);
  }
  waitpid(backend, nullptr, 0);
  return answered ? 0 : 1;
}
