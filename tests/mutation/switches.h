// SPDX-License-Identifier: Apache-2.0
#pragma once
#if __cplusplus >= 202002L  // CMake also compiles its own test programs
// Included at the top of every file of the build that contains all changes. The environment variable
// BRENVELLIS_CHANGE is the number of the change that a process makes. BRENVELLIS_REACHED names a file with
// one byte per change: a process sets the bytes of the changes that it reaches.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace change {

enum : unsigned char { REACHED = 1, INVALID = 2 };

inline int active() {
  static const int number = [] {
    const char* const text = std::getenv("BRENVELLIS_CHANGE");
    return text != nullptr ? std::atoi(text) : -1;
  }();
  return number;
}

inline void note(int number, unsigned char value) {
  static unsigned char* const reached = []() -> unsigned char* {
    const char* const path = std::getenv("BRENVELLIS_REACHED");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0) {
      return nullptr;
    }
    struct stat status {};
    fstat(file, &status);
    void* const bytes =
        mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return bytes != MAP_FAILED ? static_cast<unsigned char*>(bytes) : nullptr;
  }();
  if (reached != nullptr) {
    reached[number] = value;
  }
}

inline bool reach(int number) {
  note(number, REACHED);
  return active() == number;
}

/// Returns whether this process makes the change. Always false in constant expressions.
constexpr bool on(int number) {
  if (std::is_constant_evaluated()) {
    return false;
  } else {
    return reach(number);
  }
}

/// Notes that the change does not compile.
constexpr void invalid(int number) {
  if (!std::is_constant_evaluated()) {
    note(number, INVALID);
  }
}

#define CHANGE_TO(other, number)                                                             \
  if constexpr (requires { static_cast<R>(std::forward<A>(a) other std::forward<B>(b)); }) { \
    if (on(number)) return static_cast<R>(std::forward<A>(a) other std::forward<B>(b));      \
  } else {                                                                                   \
    invalid(number);                                                                         \
  }
#define CHANGE_ONE(name, original, other)                                  \
  template <typename A, typename B>                                        \
  constexpr decltype(auto) name(int number, A&& a, B&& b) {                \
    using R = decltype(std::forward<A>(a) original std::forward<B>(b));    \
    CHANGE_TO(other, number)                                               \
    return static_cast<R>(std::forward<A>(a) original std::forward<B>(b)); \
  }
#define CHANGE_TWO(name, original, first, second)                          \
  template <typename A, typename B>                                        \
  constexpr decltype(auto) name(int number, A&& a, B&& b) {                \
    using R = decltype(std::forward<A>(a) original std::forward<B>(b));    \
    CHANGE_TO(first, number)                                               \
    CHANGE_TO(second, number + 1)                                          \
    return static_cast<R>(std::forward<A>(a) original std::forward<B>(b)); \
  }

CHANGE_ONE(equal, ==, !=)
CHANGE_ONE(unequal, !=, ==)
CHANGE_TWO(less, <, <=, >)
CHANGE_TWO(at_most, <=, <, >)
CHANGE_TWO(greater, >, >=, <)
CHANGE_TWO(at_least, >=, >, <)
CHANGE_ONE(plus, +, -)
CHANGE_ONE(minus, -, +)
CHANGE_ONE(times, *, /)
CHANGE_ONE(by, /, *)
CHANGE_ONE(rest, %, *)
CHANGE_ONE(left, <<, >>)
CHANGE_ONE(right, >>, <<)
CHANGE_ONE(bits_and, &, |)
CHANGE_ONE(bits_or, |, &)
CHANGE_ONE(add, +=, -=)

template <typename T>
constexpr T& up(int number, T& value) {
  if constexpr (requires { --value; }) {
    if (on(number)) {
      return --value;
    }
  } else {
    invalid(number);
  }
  return ++value;
}

template <typename T>
constexpr T pick(int number, T original, T first) {
  return on(number) ? first : original;
}

template <typename T>
constexpr T pick(int number, T original, T first, T second) {
  return on(number) ? first : on(number + 1) ? second : original;
}

template <std::size_t N>
constexpr const char (&text(int number, const char (&original)[N], const char (&other)[N]))[N] {
  return on(number) ? other : original;
}

template <std::size_t N, std::size_t M>
constexpr const char* text(int number, const char (&original)[N], const char (&other)[M]) {
  return on(number) ? other : original;
}

}  // namespace change
#endif
