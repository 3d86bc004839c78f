// SPDX-License-Identifier: Apache-2.0
// The faults of the fault matrix and the steps at which they happen, for the test and its backend.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

/// Step is a step of a ReportLevels job, in the order of the job.
enum class Step : std::uint8_t {
  Probe,
  LevelsWrite,
  LevelsDrain,
  LevelsRead,
  LevelsSecondRead,
  Between,
  StatusWrite,
  StatusDrain,
  StatusRead,
  StatusSecondRead,
};

inline constexpr std::array<std::pair<Step, std::string_view>, 10> STEPS = {{
    {Step::Probe, "probe"},
    {Step::LevelsWrite, "levels write"},
    {Step::LevelsDrain, "levels drain"},
    {Step::LevelsRead, "levels read"},
    {Step::LevelsSecondRead, "levels second read"},
    {Step::Between, "between"},
    {Step::StatusWrite, "status write"},
    {Step::StatusDrain, "status drain"},
    {Step::StatusRead, "status read"},
    {Step::StatusSecondRead, "status second read"},
}};

/// Fault is what happens at a step.
enum class Fault : std::uint8_t {
  Dies,
  Stalls,
  Silent,
  Closes,
  Garbage,
  Late,
  LateAskedAgain,  ///< late with the status, in a job that then asks for it once more
  LogClosed,
  JobCancelled,
  SchedulerKilled,
  LogFullAndSlow,
  Waits,  ///< the backend waits for the test, which causes one of the three above
};

inline constexpr std::array<std::pair<Fault, std::string_view>, 12> FAULTS = {{
    {Fault::Dies, "dies"},
    {Fault::Stalls, "stalls"},
    {Fault::Silent, "silent"},
    {Fault::Closes, "closes"},
    {Fault::Garbage, "garbage"},
    {Fault::Late, "late"},
    {Fault::LateAskedAgain, "late, asked again"},
    {Fault::LogClosed, "log closed"},
    {Fault::JobCancelled, "job cancelled"},
    {Fault::SchedulerKilled, "scheduler killed"},
    {Fault::LogFullAndSlow, "log full and slow"},
    {Fault::Waits, "waits"},
}};

/// The name of a step or fault in the table and in a plan.
constexpr std::string_view name_of(const auto& names, auto value) {
  return std::ranges::find(names, value, [](const auto& name) { return name.first; })->second;
}
constexpr std::string_view to_string(Step step) {
  return name_of(STEPS, step);
}
constexpr std::string_view to_string(Fault fault) {
  return name_of(FAULTS, fault);
}

/// Plan is a file with a fault for one job of the backend.
struct Plan {
  Step step;
  Fault fault;
};

inline void write_plan(const std::string& file, const Plan& plan) {
  std::ofstream(file) << to_string(plan.step) << '\n' << to_string(plan.fault) << '\n';
}

/// @return nothing if the file does not exist.
inline std::optional<Plan> read_plan(const std::string& file) {
  std::ifstream lines(file);
  std::string step;
  std::string fault;
  if (!std::getline(lines, step) || !std::getline(lines, fault)) {
    return std::nullopt;
  }
  const auto named = [](const auto& names, const std::string& text) {
    const auto* const found = std::ranges::find(names, text, [](const auto& name) { return name.second; });
    if (found == names.end()) {
      throw std::invalid_argument("no such step or fault: " + text);
    }
    return found->first;
  };
  return Plan{named(STEPS, step), named(FAULTS, fault)};
}
