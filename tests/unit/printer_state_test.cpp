// SPDX-License-Identifier: Apache-2.0
#include "filter/printer_state.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

namespace {

constexpr auto NO_SUCH_TYPE = static_cast<PrinterState::Type>(3);

TEST(PrinterState, HoldsATypeOf32BitsThenACodeOf16) {
  EXPECT_EQ(sizeof(PrinterState::Type), 4U);
  EXPECT_EQ(sizeof(PrinterState::code), 2U);
  EXPECT_EQ(offsetof(PrinterState, type), 0U);
  EXPECT_EQ(offsetof(PrinterState, code), 4U);
  EXPECT_TRUE(std::is_trivially_copyable_v<PrinterState>);
}

TEST(PrinterState, NamedConstructorsSetTypeAndCode) {
  EXPECT_EQ(static_cast<int>(PrinterState::Unavailable().type), 0);
  EXPECT_EQ(static_cast<int>(PrinterState::Good().type), 1);
  EXPECT_EQ(PrinterState::Good().code, 0);
  EXPECT_EQ(static_cast<int>(PrinterState::Error(0x2660).type), 1);
  EXPECT_EQ(PrinterState::Error(0x2660).code, 0x2660);
  EXPECT_EQ(static_cast<int>(PrinterState::Any().type), 2);
}

/// A separate function, so that the compiler does not optimise away the previous content of the memory.
[[gnu::noinline]] void make_at(void* memory, PrinterState::Type type) {
  new (memory) PrinterState(type);
}

TEST(PrinterState, ATypeAloneLeavesTheCodeUninitialised) {
  using Type = PrinterState::Type;
  for (const auto type : {Type::Unavailable, Type::Error, Type::Any, NO_SUCH_TYPE}) {
    alignas(PrinterState) std::array<unsigned char, sizeof(PrinterState)> memory{};
    memory.fill(0xa5);
    void (*volatile make)(void*, Type) = make_at;
    make(memory.data(), type);
    std::uint16_t code = 0;
    std::memcpy(&code, memory.data() + offsetof(PrinterState, code), sizeof code);
    EXPECT_EQ(code, 0xa5a5);
  }
}

struct Comparison {
  PrinterState left;
  PrinterState right;
  bool equal;
};

class EqualStates : public testing::TestWithParam<Comparison> {};

TEST_P(EqualStates, AreDecidedInBothDirections) {
  const auto& [left, right, equal] = GetParam();
  EXPECT_EQ(left == right, equal);
  EXPECT_EQ(right == left, equal);
  EXPECT_EQ(left != right, !equal);
  EXPECT_EQ(right != left, !equal);
}

INSTANTIATE_TEST_SUITE_P(
    PrinterState, EqualStates,
    testing::Values(Comparison{PrinterState::Unavailable(), PrinterState::Unavailable(), true},
                    Comparison{PrinterState::Unavailable(), PrinterState::Error(0), false},
                    Comparison{PrinterState::Unavailable(), PrinterState::Any(), true},
                    Comparison{PrinterState::Any(), PrinterState::Any(), true},
                    Comparison{PrinterState::Any(), PrinterState::Error(7), true},
                    Comparison{PrinterState::Good(), PrinterState::Error(0), true},
                    Comparison{PrinterState::Error(5), PrinterState::Error(5), true},
                    Comparison{PrinterState::Error(5), PrinterState::Error(6), false},
                    Comparison{PrinterState::Error(0x0500), PrinterState::Error(0x0005), false},
                    Comparison{PrinterState(NO_SUCH_TYPE), PrinterState(NO_SUCH_TYPE), false},
                    Comparison{PrinterState(NO_SUCH_TYPE), PrinterState::Unavailable(), false},
                    Comparison{PrinterState(NO_SUCH_TYPE, 5), PrinterState::Error(5), false},
                    Comparison{PrinterState(NO_SUCH_TYPE), PrinterState::Any(), true}));

struct Text {
  PrinterState state;
  const char* text;
};

class StateTexts : public testing::TestWithParam<Text> {};

TEST_P(StateTexts, AreThoseOfTheJobLog) {
  EXPECT_EQ(GetParam().state.to_string(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    PrinterState, StateTexts,
    testing::Values(Text{PrinterState::Unavailable(), "UNAVAILABLE"}, Text{PrinterState::Error(0), "GOOD"},
                    Text{PrinterState::Good(), "GOOD"}, Text{PrinterState::Error(0x2660), "0x2660"},
                    Text{PrinterState::Error(0x32), "0x0032"}, Text{PrinterState::Error(0x1), "0x0001"},
                    Text{PrinterState::Error(0xABC), "0x0abc"}, Text{PrinterState::Error(0xFFFF), "0xffff"},
                    Text{PrinterState::Any(), "ANY"}, Text{PrinterState(NO_SUCH_TYPE), "UNKNOWN"},
                    Text{PrinterState(static_cast<PrinterState::Type>(-1)), "UNKNOWN"}));

}  // namespace
