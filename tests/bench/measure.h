// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

/// A filter program to run on a command file, this process being its backend: both channels non-blocking, the
/// printer's answer there before it is asked for.
struct Job {
  std::vector<std::string> program;           ///< its path; a program to run it under may stand before it
  std::string commands;                       ///< path of the command file
  std::vector<std::string> environment = {};  ///< NAME=VALUE, added to ours
  bool bidirectional = true;                  ///< what the backend says it is
};

/// What a run cost.
struct Cost {
  double cpu = 0;   ///< of the process and what it waited for, user and system, in seconds
  double wall = 0;  ///< from start to end, in seconds
  long peak = 0;    ///< memory in KiB
  long faults = 0;  ///< pages mapped without reading a disk
};

/// Runs the job to its end.
///
/// @param log  gets the job's standard error, if not null.
/// Ends this process with a message if the program does not end with 0.
Cost run_job(const Job& job, std::string* log = nullptr);

/// Runs any program to its end, its standard output and error going to /dev/null; the same otherwise.
Cost run_plain(const std::vector<std::string>& program, const std::vector<std::string>& environment = {});

/// The same with its standard output as text, whatever its exit status is.
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

/// Ends this process with a message.
[[noreturn]] void give_up(const std::string& message);

/// Writes text to a new file.
void write_file(const std::string& path, const std::string& text);
std::string read_file(const std::string& path);
