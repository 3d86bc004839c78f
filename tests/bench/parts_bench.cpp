// SPDX-License-Identifier: Apache-2.0
// Micro-benchmarks of the parts, to find the cause of a change in the whole.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "filter/channel_trace.h"
#include "filter/marker_report.h"
#include "filter/state_report.h"
#include "raster/band_image_capture.h"
#include "raster/page_header_dump.h"

namespace {

constexpr auto REPLY = [] {
  std::array<char, 512> reply{};
  reply[17] = 2;
  reply[21] = 100;
  reply[23] = 50;
  return reply;
}();

void update_printer_state(benchmark::State& run, PrinterState state) {
  for (auto _ : run) {
    update_printer_state(state);
  }
}
BENCHMARK_CAPTURE(update_printer_state, good, PrinterState::Good());
BENCHMARK_CAPTURE(update_printer_state, error, PrinterState::Error(0x2660));
BENCHMARK_CAPTURE(update_printer_state, unavailable, PrinterState::Unavailable());

void update_printer_state_from_table(benchmark::State& run) {
  for (auto _ : run) {
    update_printer_state_from_table(PrinterState::Good(), PRINTER_STATE_REASONS);
  }
}
BENCHMARK(update_printer_state_from_table);

void printer_state_to_string(benchmark::State& run) {
  for (auto _ : run) {
    benchmark::DoNotOptimize(PrinterState::Error(0x2660).to_string());
  }
}
BENCHMARK(printer_state_to_string);

void printer_levels_parse(benchmark::State& run) {
  for (auto _ : run) {
    benchmark::DoNotOptimize(PrinterLevels::Parse(REPLY.data()));
  }
}
BENCHMARK(printer_levels_parse);

void printer_levels_to_string(benchmark::State& run) {
  const auto levels = PrinterLevels::Parse(REPLY.data());
  for (auto _ : run) {
    benchmark::DoNotOptimize(levels.to_string());
  }
}
BENCHMARK(printer_levels_to_string);

void report_printer_levels_good(benchmark::State& run) {
  const auto levels = PrinterLevels::Parse(REPLY.data());
  for (auto _ : run) {
    report_printer_levels(levels);
  }
}
BENCHMARK(report_printer_levels_good);

void dump_mem_bytes(benchmark::State& run) {
  for (auto _ : run) {
    dump_mem("[REP]", REPLY.data(), static_cast<int>(run.range(0)));
  }
}
BENCHMARK(dump_mem_bytes)->Arg(8)->Arg(26)->Arg(512);

void format_string_util_template(benchmark::State& run) {
  constexpr tagLNBandImageParams BAND = {nullptr, 3600, 0, 0, 1200, 600};
  std::array<char, 1024> name{};
  for (auto _ : run) {
    format_string_util(name.data(), name.size(), "/tmp/band_%C_%Wx%H_%Bbpp.raw", &BAND);
    benchmark::DoNotOptimize(name);
  }
}
BENCHMARK(format_string_util_template);

void format_string_util_with_the_time(benchmark::State& run) {
  std::array<char, 1024> name{};
  for (auto _ : run) {
    format_string_util(name.data(), name.size(), "/tmp/band_%T_%C.raw", nullptr);
    benchmark::DoNotOptimize(name);
  }
}
BENCHMARK(format_string_util_with_the_time);

void dump_page_header(benchmark::State& run) {
  const cups_page_header_t header{};
  for (auto _ : run) {
    dump(&header);
  }
}
BENCHMARK(dump_page_header);

}  // namespace

int main(int argc, char* argv[]) {
  // As in the filter, but written to /dev/null.
  static std::array<char, 4096> buffer;
  if (std::freopen("/dev/null", "w", stderr) == nullptr) {
    return 1;
  }
  setvbuf(stderr, buffer.data(), _IOLBF, buffer.size());
  benchmark::Initialize(&argc, argv);
  return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
