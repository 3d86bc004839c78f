// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the fuzzer, which keeps the input as a finding, unless `holds`.
inline void require(bool holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "not true: %s\n", what);
    std::abort();
  }
}

/// The same for two texts, which are shown if they differ.
inline void require_equal(const std::string& actual, const std::string& expected, const char* what) {
  if (actual != expected) {
    fprintf(stderr, "%s is\n[%s]\nand should be\n[%s]\n", what, actual.c_str(), expected.c_str());
    std::abort();
  }
}
