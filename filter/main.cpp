// SPDX-License-Identifier: Apache-2.0
// commandtobrenvellis: answers the command jobs of a Brenvellis printer's queue; see
// man/commandtobrenvellis.8.

#include <cups/cups.h>
#include <cups/sidechannel.h>

#include <array>
#include <cstdio>

#include "filter/channel_trace.h"
#include "filter/levels_query.h"
#include "filter/marker_report.h"
#include "filter/state_report.h"
#include "filter/status_query.h"

// Exported by libcups for the CUPS programs, and in no installed header.
extern "C" int _cups_strcasecmp(const char* s, const char* t);

namespace {

/// Filter and backend share the job's log pipe: a line stays whole if it leaves in one write. A pipe takes
/// up to 4096 bytes at once, and no line is that long.
void write_log_line_by_line() {
  static std::array<char, 4096> buffer;
  setvbuf(stderr, buffer.data(), _IOLBF, buffer.size());
}

/// Compares whole words in any case, on purpose: the rest of a line is not looked at.
bool is_command(const char* word, const char* command) {
  return _cups_strcasecmp(word, command) == 0;
}

bool probe_bidirectional() {
  std::array<char, 512> answer{};
  int length = answer.size();
  const cups_sc_status_t status =
      cupsSideChannelDoRequest(CUPS_SC_CMD_GET_BIDI, answer.data(), &length, 30.0);
  if (status == CUPS_SC_STATUS_OK && length == 1 && answer[0] == CUPS_SC_BIDI_SUPPORTED) {
    return true;
  }
  // On purpose: "nobidirectional" is one word, the wait of 30 seconds is the only limit, and the status is
  // the request's own, CUPS_SC_STATUS_OK(1) if the backend answered that it cannot read.
  fprintf(stderr,
          "DEBUG: Unable to retrieve supply status from printer - nobidirectional I/O available! %s(%d)\n",
          to_string(status), status);
  return false;
}

void report_levels(bool bidirectional) {
  if (!bidirectional) {  // on purpose without the state, unlike ReportStatus
    report_printer_levels(PrinterLevels::Unavailable());
    return;
  }
  // The levels are reported before the status is asked, on purpose.
  report_printer_levels(get_printer_levels());
  update_printer_state(get_printer_state());
}

void report_status(bool bidirectional) {
  update_printer_state(bidirectional ? get_printer_state() : PrinterState::Unavailable());
}

void run_commands(cups_file_t* file, bool bidirectional) {
  std::array<char, 1024> line{};
  char* value = nullptr;
  int linenum = 0;
  while (cupsFileGetConf(file, line.data(), line.size(), &value, &linenum) != nullptr) {
    fprintf(stderr, "DEBUG: ====> command=[%s] linenum=%d\n", line.data(), linenum);
    if (is_command(line.data(), "ReportLevels")) {
      report_levels(bidirectional);
    } else if (is_command(line.data(), "ReportStatus")) {
      report_status(bidirectional);
    }
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  write_log_line_by_line();

  if (argc < 6 || argc > 7) {
    // On purpose without a line end, and with the name as the program was called.
    fprintf(stderr, "ERROR: Usage: %s job-id user title copies options [file]", argv[0]);
    return 1;
  }

  cups_file_t* file = argc == 7 ? cupsFileOpen(argv[6], "r") : cupsFileStdin();
  if (file == nullptr) {
    // The log shows " - : " before the system's text, on purpose.
    perror("ERROR: Unable to open command file - ");
    return 1;
  }

  run_commands(file, probe_bidirectional());

  cupsFileClose(file);
  return 0;
}
