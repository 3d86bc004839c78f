// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// Aborts the fuzzer unless `holds`, so that it keeps the input as a finding.
inline void require(bool holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "not true: %s\n", what);
    std::abort();
  }
}

/// Aborts the fuzzer and prints both texts if they differ.
inline void require_equal(const std::string& actual, const std::string& expected, const char* what) {
  if (actual != expected) {
    fprintf(stderr, "%s is\n[%s]\nand should be\n[%s]\n", what, actual.c_str(), expected.c_str());
    std::abort();
  }
}
