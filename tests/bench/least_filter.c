// SPDX-License-Identifier: Apache-2.0
/*
 * The limit for a command: makes the library calls that commandtobrenvellis makes and writes the lines that
 * it wrote, one write() each, without deciding or formatting any of them but the number of the command line.
 * The lines come from the file that FILTER_LINES names: the filter's log of a file with this one command.
 * With FILTER_PRINTF set it writes them through a line-buffered standard error and fprintf(), the clearing ones
 * with the filter's format: what is left to the filter then is what it does itself.
 */
#include <cups/cups.h>
#include <cups/sidechannel.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

extern int _cups_strcasecmp(const char* s, const char* t);

static char text[65536];
static struct {
  const char* start;
  size_t length;
  int drained;
} lines[1024];
static int count, first;
static volatile int answered;

static int starts_with(const char* line, const char* words) {
  return strncmp(line, words, strlen(words)) == 0;
}

static int through_printf;

static void load_lines(void) {
  const int file = open(getenv("FILTER_LINES"), O_RDONLY);
  const ssize_t size = read(file, text, sizeof text - 1);
  close(file);
  for (char* line = text; line < text + size; ++count) {
    char* end = strchr(line, '\n') + 1;
    lines[count].start = line;
    lines[count].length = (size_t)(end - line);
    if (through_printf) {
      end[-1] = '\0';
    }
    lines[count].drained = starts_with(line, "DEBUG: CUPS_SC_CMD_DRAIN_OUTPUT=");
    if (starts_with(line, "DEBUG: ====> command=")) {
      first = count;
    }
    line = end;
  }
}

static void write_line(const char* line, size_t length) {
  if (through_printf) {
    if (starts_with(line, "STATE: -")) {
      fprintf(stderr, "STATE: -%s\n", line + strlen("STATE: -"));
    } else {
      fprintf(stderr, "%s\n", line);
    }
  } else if (write(2, line, length) != (ssize_t)length) {
    exit(1);
  }
}

static void ask_printer(void) {
  static const char request[] = {0x1b, 'G', 'D', '0', 0, 0, 1, 0x16};
  char buffer[512];
  int length = sizeof buffer;
  fwrite(request, 1, sizeof request, stdout);
  fflush(stdout);
  cupsSideChannelDoRequest(CUPS_SC_CMD_DRAIN_OUTPUT, buffer, &length, 5.0);
  if (cupsBackChannelRead(buffer, sizeof buffer, 1.0) < 15) {
    exit(1);
  }
}

int main(int argc, char* argv[]) {
  char line[1024];
  char* value;
  int number = 0;
  int length = 512;
  char answer[512];

  if (argc != 7 || getenv("FILTER_LINES") == NULL) {
    return 1;
  }
  static char buffer[4096];
  setvbuf(stderr, buffer, _IOLBF, sizeof buffer);
  through_printf = getenv("FILTER_PRINTF") != NULL;
  load_lines();
  cups_file_t* file = cupsFileOpen(argv[6], "r");
  if (file == NULL) {
    return 1;
  }
  cupsSideChannelDoRequest(CUPS_SC_CMD_GET_BIDI, answer, &length, 30.0);
  for (int i = 0; i < first; ++i) {
    write_line(lines[i].start, lines[i].length);
  }
  while (cupsFileGetConf(file, line, sizeof line, &value, &number) != NULL) {
    if (through_printf) {
      fprintf(stderr, "DEBUG: ====> command=[%s] linenum=%d\n", line, number);
    } else {
      char command[1200];
      write_line(command, (size_t)snprintf(command, sizeof command,
                                           "DEBUG: ====> command=[%s] linenum=%d\n", line, number));
    }
    if (_cups_strcasecmp(line, "ReportLevels") != 0) {
      answered = _cups_strcasecmp(line, "ReportStatus");
    }
    for (int i = first + 1; i < count; ++i) {
      if (lines[i].drained) {
        ask_printer();
      }
      write_line(lines[i].start, lines[i].length);
    }
  }
  cupsFileClose(file);
  return 0;
}
