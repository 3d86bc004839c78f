// SPDX-License-Identifier: Apache-2.0
// commandtobrenvellis answers the command jobs of a Brenvellis queue; see man/commandtobrenvellis.8.

#include <cups/cups.h>
#include <cups/sidechannel.h>

#include <array>
#include <cstdio>

#include "filter/channel_trace.h"
#include "filter/levels_query.h"
#include "filter/marker_report.h"
#include "filter/state_report.h"
#include "filter/status_query.h"

// libcups exports this function for the CUPS programs but declares it in no installed header.
extern "C" int _cups_strcasecmp(const char* s, const char* t);

namespace {

/// The filter and the backend share the job's log pipe, so each line must be a single write. A pipe accepts
/// up to 4096 bytes in one piece, and all lines are shorter.
void write_log_line_by_line() {
  static std::array<char, 4096> buffer;
  setvbuf(stderr, buffer.data(), _IOLBF, buffer.size());
}

/// Compares whole words, ignoring case. The rest of the line is ignored on purpose.
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
  // On purpose: "nobidirectional" is one word, and the status is that of the request, so it is
  // CUPS_SC_STATUS_OK(1) if the backend answered that it cannot read. The 30 seconds are the only limit.
  fprintf(stderr,
          "DEBUG: Unable to retrieve supply status from printer - nobidirectional I/O available! %s(%d)\n",
          to_string(status), status);
  return false;
}

void report_levels(bool bidirectional) {
  if (!bidirectional) {  // leaves the state alone on purpose, unlike ReportStatus
    report_printer_levels(PrinterLevels::Unavailable());
    return;
  }
  // The levels are reported before the status is queried, on purpose.
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
    // On purpose: the line has no line end and shows the name that the program was called by.
    fprintf(stderr, "ERROR: Usage: %s job-id user title copies options [file]", argv[0]);
    return 1;
  }

  cups_file_t* file = argc == 7 ? cupsFileOpen(argv[6], "r") : cupsFileStdin();
  if (file == nullptr) {
    // The log shows " - : " before the system's error text, on purpose.
    perror("ERROR: Unable to open command file - ");
    return 1;
  }

  run_commands(file, probe_bidirectional());

  cupsFileClose(file);
  return 0;
}
