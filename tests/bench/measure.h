// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

/// A filter program and its command file. This process is the backend: both channels are non-blocking, and
/// the printer's reply is available before the request.
struct Job {
  std::vector<std::string> program;  ///< its path and arguments, after a program to run it with, if any
  std::string commands;              ///< path of the command file
  std::vector<std::string> environment = {};  ///< NAME=VALUE, added to the environment of this process
  bool bidirectional = true;                  ///< the backend's answer to the probe
};

/// The resources used by a run.
struct Cost {
  double cpu = 0;   ///< user and system time of the process and its children, in seconds
  double wall = 0;  ///< from start to end, in seconds
  long peak = 0;    ///< memory in KiB
  long faults = 0;  ///< pages mapped without reading a disk
};

/// Runs the job to its end.
///
/// @param log  receives the job's standard error, if not null.
/// Exits with a message if the program does not exit with 0.
Cost run_job(const Job& job, std::string* log = nullptr);

/// Runs any program in the same way, with its standard output and error redirected to /dev/null.
Cost run_plain(const std::vector<std::string>& program, const std::vector<std::string>& environment = {});

/// Runs any program and returns its standard output, regardless of its exit status.
Cost run_for_output(const std::vector<std::string>& program, std::string& output, int& exit_status);

/// Seconds of an unspecified but steady clock.
double now();

/// The median and the quartiles of some numbers, at least one.
struct Spread {
  double low = 0;
  double median = 0;
  double high = 0;
};
Spread spread(std::vector<double> values);

/// Exits with a message.
[[noreturn]] void give_up(const std::string& message);

/// Writes text to a new file.
void write_file(const std::string& path, const std::string& text);
std::string read_file(const std::string& path);
