// SPDX-License-Identifier: Apache-2.0
// Measures runs of commandtobrenvellis, of other filters, and of the least program that does the same.

#include <sched.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/bench/measure.h"
#include "tests/support/temporary_folder.h"

namespace {

struct Program {
  std::string name;
  std::string path;
};

const std::vector<Program> PROGRAMS = {
    {"an empty C program with libcups", EMPTY_FILTER},
    {"**commandtobrenvellis**", FILTER_PROGRAM},
    {"the least program with the same calls and lines", LEAST_FILTER},
    {"commandtops (CUPS)", CUPS_FILTERS "/commandtops"},
    {"commandtoescpx (cups-filters)", CUPS_FILTERS "/commandtoescpx"},
    {"commandtopclx (cups-filters)", CUPS_FILTERS "/commandtopclx"},
};

std::string commands(const char* command, int count) {
  std::string text = "#CUPS-COMMAND\n";
  for (int i = 0; i < count; ++i) {
    text += std::string(command) + "\n";
  }
  return text;
}

Job job_of(std::vector<std::string> program, const std::string& file) {
  return {std::move(program), file};
}

/// Returns a job with one ReportLevels for each of PROGRAMS, including the lines for the least program.
std::vector<Job> report_levels_jobs(const TemporaryFolder& folder) {
  const std::string file = folder.path() / "commands";
  const std::string lines = folder.path() / "lines";
  write_file(file, commands("ReportLevels", 1));
  std::string log;
  run_job(job_of({FILTER_PROGRAM}, file), &log);
  write_file(lines, log);
  // The other filters require a PPD; this is the smallest that they accept.
  const std::string ppd = folder.path() / "ppd";
  write_file(ppd, "*PPD-Adobe: \"4.3\"\n");
  std::vector<Job> jobs;
  for (const auto& program : PROGRAMS) {
    jobs.push_back(job_of({program.path}, file));
    jobs.back().environment = {"FILTER_LINES=" + lines, "PPD=" + ppd};
  }
  return jobs;
}

/// @return the number of instructions of a run, which is nearly the same each time; 0 without valgrind.
long instructions(const Job& job, const TemporaryFolder& folder) {
  if (std::system("command -v valgrind >/dev/null") != 0) {
    return 0;
  }
  const std::string counts = folder.path() / "callgrind";
  Job counted = job;
  counted.program.insert(counted.program.begin(),
                         {"valgrind", "--quiet", "--tool=callgrind", "--callgrind-out-file=" + counts});
  run_job(counted);
  const std::string text = read_file(counts);
  const auto total = text.find("\nsummary: ");
  return total == std::string::npos ? 0 : std::atol(text.c_str() + total + sizeof "\nsummary: " - 1);
}

void start_table(int rounds) {
  const TemporaryFolder folder;
  const std::vector<Job> jobs = report_levels_jobs(folder);
  const std::size_t count = jobs.size();
  std::vector<std::vector<double>> cpu(count);
  std::vector<std::vector<double>> wall(count);
  std::vector<std::vector<double>> ratio(count);
  std::vector<Cost> last(count);
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t turn = 0; turn < count; ++turn) {
      // Programs take turns in going first.
      const std::size_t i = (turn + static_cast<std::size_t>(round)) % count;
      last[i] = run_job(jobs[i]);
      cpu[i].push_back(last[i].cpu * 1e3);
      wall[i].push_back(last[i].wall * 1e3);
    }
    for (std::size_t i = 0; i < count; ++i) {
      ratio[i].push_back(cpu[i].back() / cpu[0].back());
    }
  }

  std::printf(
      "| program | CPU, ms | CPU relative to the empty program: median (quartiles) | wall, ms | peak memory, "
      "KiB | "
      "page faults | instructions |\n|---|--:|--:|--:|--:|--:|--:|\n");
  for (std::size_t i = 0; i < count; ++i) {
    const Spread ratios = spread(ratio[i]);
    std::printf("| %s | %.2f | %.3f (%.3f to %.3f) | %.2f | %ld | %ld | %.3f M |\n", PROGRAMS[i].name.c_str(),
                spread(cpu[i]).median, ratios.median, ratios.low, ratios.high, spread(wall[i]).median,
                last[i].peak, last[i].faults, static_cast<double>(instructions(jobs[i], folder)) * 1e-6);
  }
  std::printf("\n%d rounds.\n", rounds);
}

/// Prints the rows of the table of commands: the cost of each of `count` further commands.
void command_rows(const TemporaryFolder& folder, bool bidirectional, int count, int rounds) {
  const std::string one = folder.path() / "one";
  const std::string many = folder.path() / "many";
  const std::string lines = folder.path() / "lines";
  write_file(one, commands("ReportStatus", 1));
  write_file(many, commands("ReportStatus", count + 1));

  Job filter = job_of({FILTER_PROGRAM}, one);
  filter.bidirectional = bidirectional;
  std::string log;
  run_job(filter, &log);
  write_file(lines, log);
  Job least = filter;
  least.program = {LEAST_FILTER};
  least.environment.push_back("FILTER_LINES=" + lines);
  Job printf = least;
  printf.environment.emplace_back("FILTER_PRINTF=yes");
  struct Row {
    const char* name;
    Job job;
    std::vector<double> cpu = {};
    std::vector<double> ratio = {};
  };
  std::array<Row, 3> rows = {{{"the least program", least},
                              {"the least program through `fprintf`", printf},
                              {"**commandtobrenvellis**", filter}}};

  // They are comparable only if their output is the same.
  std::string expected;
  for (auto& row : rows) {
    row.job.commands = many;
    std::string text;
    run_job(row.job, &text);
    if (&row == rows.data()) {
      expected = text;
    } else if (text != expected) {
      give_up(std::string(row.name) + " wrote other lines than the least program");
    }
  }

  const auto each = [&](Job job, auto cost) {
    job.commands = one;
    const auto start = cost(job);
    job.commands = many;
    return static_cast<double>(cost(job) - start) / count;
  };
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t turn = 0; turn < rows.size(); ++turn) {
      auto& row = rows[(turn + static_cast<std::size_t>(round)) % rows.size()];
      row.cpu.push_back(each(row.job, [](const Job& job) { return run_job(job).cpu * 1e6; }));
    }
    for (auto& row : rows) {
      row.ratio.push_back(row.cpu.back() / rows[0].cpu.back());
    }
  }
  for (const auto& row : rows) {
    const Spread ratio = spread(row.ratio);
    std::printf("| %s | %s | %.1f | %.3f (%.3f to %.3f) | %.0f |\n", bidirectional ? "yes" : "no", row.name,
                spread(row.cpu).median, ratio.median, ratio.low, ratio.high,
                each(row.job, [&](const Job& job) { return instructions(job, folder); }));
  }
}

void command_table(int count, int rounds) {
  const TemporaryFolder folder;
  std::printf(
      "| bidirectional | program | CPU per further `ReportStatus`, µs | relative to the least program: "
      "median "
      "(quartiles) | instructions |\n|---|---|--:|--:|--:|\n");
  command_rows(folder, true, count, rounds);
  command_rows(folder, false, count, rounds);
  std::printf("\n%d commands per file, %d rounds.\n", count, rounds);
}

void growth_table(int most, int rounds, const char* points) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "commands";
  write_file(file, commands("ReportStatus", 0));
  std::vector<double> starts;
  for (int i = 0; i < 20; ++i) {
    starts.push_back(run_job(job_of({FILTER_PROGRAM}, file)).cpu);
  }
  const double start = spread(starts).median;

  std::string data;
  std::printf(
      "| commands in the file | CPU, ms | CPU per command after the start, µs | peak memory, KiB |\n"
      "|--:|--:|--:|--:|\n");
  for (int count = 1; count <= most; count *= 10) {
    write_file(file, commands("ReportStatus", count));
    std::vector<double> cpu;
    std::vector<double> peak;
    for (int round = 0; round < (count > 10000 ? 1 : rounds); ++round) {
      const Cost cost = run_job(job_of({FILTER_PROGRAM}, file));
      cpu.push_back(cost.cpu);
      peak.push_back(static_cast<double>(cost.peak));
    }
    const double each = (spread(cpu).median - start) / count * 1e6;
    std::array<char, 200> line{};
    // In a short file, the commands cost less than the variation of the starts.
    std::snprintf(line.data(), line.size(), count < 100 ? "-" : "%.1f", each);
    std::printf("| %d | %.1f | %s | %.0f |\n", count, spread(cpu).median * 1e3, line.data(),
                spread(peak).median);
    std::snprintf(line.data(), line.size(), "%d %.3f %.0f\n", count, each, spread(peak).median);
    data += line.data();
  }
  write_file(points, data);
}

/// The calls that strace counts: name -> number.
std::map<std::string, long> system_calls(Job job, const TemporaryFolder& folder) {
  const std::string counts = folder.path() / "strace";
  job.program.insert(job.program.begin(), {"strace", "-c", "-U", "name,calls", "-o", counts});
  run_job(job);
  std::istringstream text(read_file(counts));
  std::map<std::string, long> calls;
  std::string name;
  std::string number;
  while (text >> name >> number) {
    if (number.find_first_not_of("0123456789") == std::string::npos && name != "total") {
      calls[name] = std::stol(number);
    }
  }
  return calls;
}

void calls_table() {
  const TemporaryFolder folder;
  std::vector<std::map<std::string, long>> calls;
  for (const Job& job : report_levels_jobs(folder)) {
    calls.push_back(system_calls(job, folder));
  }
  std::set<std::string> differing;
  for (const auto& of : calls) {
    for (const auto& [name, number] : of) {
      if (number != calls[0][name]) {
        differing.insert(name);
      }
    }
  }

  const auto row = [&](const std::string& name, auto number) {
    std::printf("| %s |", name.c_str());
    for (auto& of : calls) {
      std::printf(" %ld |", number(of));
    }
    std::printf("\n");
  };
  std::printf("| system call |");
  for (const auto& program : PROGRAMS) {
    std::printf(" %s |", program.name.c_str());
  }
  std::printf("\n|---|--:|--:|--:|--:|--:|--:|\n");
  for (const auto& name : differing) {
    row("`" + name + "`", [&](auto& of) { return of[name]; });
  }
  const auto sum = [](const auto& of, auto counts) {
    return std::accumulate(of.begin(), of.end(), 0L, [&](long total, const auto& call) {
      return total + (counts(call.first) ? call.second : 0);
    });
  };
  row("all others",
      [&](auto& of) { return sum(of, [&](const auto& name) { return !differing.contains(name); }); });
  row("sum", [&](auto& of) { return sum(of, [](const auto&) { return true; }); });
}

/// Binds this program and its children to one CPU and runs it only while the others sleep. With two CPUs, the
/// result would depend on whether each line wakes the log's reader.
void share_one_cpu() {
  cpu_set_t here;
  CPU_ZERO(&here);
  CPU_SET(sched_getcpu(), &here);
  const sched_param none{};
  if (sched_setaffinity(0, sizeof here, &here) != 0 ||
      sched_setscheduler(0, SCHED_BATCH | SCHED_RESET_ON_FORK, &none) != 0) {
    give_up(std::string("cannot choose a CPU: ") + std::strerror(errno));
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string what = argc > 1 ? argv[1] : "";
  const bool quick = argc > 2 && std::string(argv[2]) == "quick";
  share_one_cpu();
  if (what == "start") {
    start_table(quick ? 3 : 400);
  } else if (what == "command") {
    command_table(quick ? 20 : 2000, quick ? 2 : 15);
  } else if (what == "growth" && argc > 3) {
    growth_table(quick ? 100 : 100000, quick ? 1 : 5, argv[3]);
  } else if (what == "calls") {
    calls_table();
  } else {
    give_up("usage: filter_bench start|command|growth|calls quick|full [POINTS]");
  }
}
