// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/allocation_count.h"

#include <cstdlib>
#include <new>

namespace {
long count = 0;
}

long allocation_count() {
  return count;
}

void* operator new(std::size_t size) {
  ++count;
  if (void* memory = std::malloc(size)) {
    return memory;
  }
  std::abort();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
