// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "tests/support/child_process.h"

namespace {

/// Every program that is built.
class Binary : public testing::TestWithParam<const char*> {
 protected:
  static std::string readelf(const std::string& option) {
    const ProgramResult result = run_program({READELF, "-W", option, GetParam()});
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    return result.output;
  }

  /// The names of the functions that the program takes from libraries.
  static std::string imports() {
    std::string names;
    std::istringstream lines(readelf("--dyn-syms"));
    for (std::string line; std::getline(lines, line);) {
      if (line.find(" UND ") != std::string::npos) {
        names += line.substr(line.rfind(" UND ") + 5) + "\n";
      }
    }
    return names;
  }

  static bool matches(const std::string& text, const char* pattern) {
    return std::regex_search(text, std::regex(pattern));
  }
};

TEST_P(Binary, IsPositionIndependent) {
  EXPECT_TRUE(matches(readelf("--file-header"), "Type: +DYN"));
  EXPECT_TRUE(matches(readelf("--dynamic"), R"(\(FLAGS_1\) .*\bPIE\b)"));
}

TEST_P(Binary, HasItsRelocationsReadOnlyFromTheStart) {
  EXPECT_TRUE(matches(readelf("--program-headers"), "GNU_RELRO"));
  EXPECT_TRUE(matches(readelf("--dynamic"), R"(\(FLAGS_1\) .*\bNOW\b)"));
}

TEST_P(Binary, HasNoExecutableStack) {
  EXPECT_TRUE(matches(readelf("--program-headers"), "GNU_STACK +(0x[0-9a-f]+ +){5}RW  *0x"));
}

TEST_P(Binary, HasNoSegmentThatIsWritableAndExecutable) {
  EXPECT_FALSE(matches(readelf("--program-headers"), "LOAD +(0x[0-9a-f]+ +){5}RWE"));
}

TEST_P(Binary, ProtectsItsStack) {
  EXPECT_TRUE(matches(imports(), "__stack_chk_fail"));
}

#ifndef __clang__
// Programs built by clang 14 import none of glibc's checking functions, regardless of _FORTIFY_SOURCE.
TEST_P(Binary, ChecksTheSizesOfItsBuffers) {
  EXPECT_TRUE(matches(imports(), "__(snprintf|vsnprintf|memcpy|read|fprintf)_chk")) << imports();
}
#endif

INSTANTIATE_TEST_SUITE_P(Hardening, Binary, testing::Values(PROGRAMS));

}  // namespace
