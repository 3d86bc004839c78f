// SPDX-License-Identifier: Apache-2.0
#include "simulator/control_command.h"

#include <gmock/gmock.h>

#include <random>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

const std::string UNTOUCHED =
    "ok code=0x0000 total=400 remaining=400 sheet=0x02 fault=none connections=0 open=0 status-requests=0 "
    "levels-requests=0 other-bytes=0";

std::string show(SimulatedPrinter& printer) {
  return execute_control_line("show", printer);
}

}  // namespace

TEST(ControlLine, SettingsShow) {
  const std::pair<const char*, const char*> cases[] = {
      {"code 0x2660", "ok code=0x2660 total=400 remaining=400 sheet=0x02 fault=none "},
      {"code 65535", "ok code=0xffff total=400 remaining=400 sheet=0x02 fault=none "},
      {"total 0", "ok code=0x0000 total=0 remaining=400 sheet=0x02 fault=none "},
      {"remaining 0XFFFF", "ok code=0x0000 total=400 remaining=65535 sheet=0x02 fault=none "},
      {"sheet 0x0F", "ok code=0x0000 total=400 remaining=400 sheet=0x0f fault=none "},
      {"sheet 255", "ok code=0x0000 total=400 remaining=400 sheet=0xff fault=none "},
      {"fault split 9 20 levels",
       "ok code=0x0000 total=400 remaining=400 sheet=0x02 fault=split,9,20,levels "},
      {" code   1 ; remaining 12;fault silent",
       "ok code=0x0001 total=400 remaining=12 sheet=0x02 fault=silent "},
      {"code 1; code 2", "ok code=0x0002 total=400 remaining=400 sheet=0x02 fault=none "},
  };
  for (const auto& [line, shown] : cases) {
    SimulatedPrinter printer;
    EXPECT_EQ(execute_control_line(line, printer), "ok") << line;
    EXPECT_THAT(show(printer), StartsWith(shown)) << line;
  }
}

TEST(ControlLine, ABadLineIsAnsweredAndChangesNothing) {
  const std::string no_command = "error: empty command ('help' lists the commands)";
  const std::string no_16_bits = " requires a number from 0 to 65535, decimal or hexadecimal with 0x";
  const std::pair<std::string, std::string> cases[] = {
      {"", no_command},
      {"   ", no_command},
      {";", no_command},
      {"code 1;", no_command},
      {"; code 1", no_command},
      {"colour 1", "error: unknown command 'colour' ('help' lists the commands)"},
      {"CODE 1", "error: unknown command 'CODE' ('help' lists the commands)"},
      {"code", "error: 'code'" + no_16_bits},
      {"code 1 2", "error: 'code'" + no_16_bits},
      {"code 65536", "error: 'code'" + no_16_bits},
      {"code 0x10000", "error: 'code'" + no_16_bits},
      {"code -1", "error: 'code'" + no_16_bits},
      {"code +1", "error: 'code'" + no_16_bits},
      {"code 0x", "error: 'code'" + no_16_bits},
      {"code 2660h", "error: 'code'" + no_16_bits},
      {"total 400.5", "error: 'total'" + no_16_bits},
      {"remaining 18446744073709551616", "error: 'remaining'" + no_16_bits},
      {"sheet 256", "error: 'sheet' requires a number from 0 to 255, decimal or hexadecimal with 0x"},
      {"code 7; sheet 256", "error: 'sheet' requires a number from 0 to 255, decimal or hexadecimal with 0x"},
      {"show me", "error: 'show' takes no arguments and must be alone on its line"},
      {"code 1; show", "error: 'show' takes no arguments and must be alone on its line"},
      {"forget; forget", "error: 'forget' takes no arguments and must be alone on its line"},
      {"fault",
       "error: unknown fault '' (expected one of none silent short drip split long garbage slow close "
       "refuse)"},
      {"fault slow",
       "error: invalid arguments of fault 'slow' (expected 'slow MS [status|levels]', N from 0 to "
       "4096, MS from 0 to 60000)"},
      {"code 1\r", "error: the line contains a control or non-ASCII character (send plain text)"},
      {"code\t1", "error: the line contains a control or non-ASCII character (send plain text)"},
      {std::string("code 1\0", 7),
       "error: the line contains a control or non-ASCII character (send plain text)"},
      {"c\xc3\xb6"
       "de 1",
       "error: the line contains a control or non-ASCII character (send plain text)"},
  };
  for (const auto& [line, reply] : cases) {
    SimulatedPrinter printer;
    EXPECT_EQ(execute_control_line(line, printer), reply) << line;
    EXPECT_EQ(show(printer), UNTOUCHED) << line;
  }
}

TEST(ControlLine, PrintableAsciiCharactersAreTheOnlyOnesAllowed) {
  const auto is_allowed = [](char character) {
    SimulatedPrinter printer;
    const std::string reply = execute_control_line(std::string("co") + character + "de", printer);
    return reply.find("control or non-ASCII character") == std::string::npos;
  };
  for (const char character : {' ', '!', '}', '~'}) {
    EXPECT_TRUE(is_allowed(character)) << character;
  }
  for (const char character : {'\x1f', '\x7f', '\x80', '\xff'}) {
    EXPECT_FALSE(is_allowed(character)) << int{character};
  }
}

TEST(ControlLine, AnOverLongLineIsAnError) {
  SimulatedPrinter printer;
  EXPECT_EQ(execute_control_line(std::nullopt, printer),
            "error: the line is longer than 1024 characters (send shorter lines)");
}

TEST(ControlLine, RequestsAreShownInHexadecimalOldestFirst) {
  SimulatedPrinter printer;
  EXPECT_EQ(execute_control_line("requests", printer), "ok");
  printer.traffic.requests = {{0x1b, 0x00}, {0xaf}};
  EXPECT_EQ(execute_control_line("requests", printer), "ok 1b00 af");
}

TEST(ControlLine, ForgetKeepsTheSettingsAndTheOpenConnections) {
  SimulatedPrinter printer;
  printer.settings.condition.code = 7;
  printer.open_connections = 2;
  printer.traffic = {3, 4, 5, 6, {{1}}};
  EXPECT_EQ(execute_control_line("forget", printer), "ok");
  EXPECT_EQ(show(printer),
            "ok code=0x0007 total=400 remaining=400 sheet=0x02 fault=none connections=0 open=2 "
            "status-requests=0 levels-requests=0 other-bytes=0");
  EXPECT_EQ(execute_control_line("requests", printer), "ok");
}

TEST(ControlLine, HelpNamesEveryCommandAndFault) {
  SimulatedPrinter printer;
  const std::string help = execute_control_line("help", printer);
  EXPECT_THAT(help, StartsWith("ok "));
  EXPECT_THAT(help, Not(testing::HasSubstr("\n")));
  for (const std::string name :
       {"code N", "total N", "remaining N", "sheet N", "show", "requests", "forget", "help"}) {
    EXPECT_THAT(help + ";", testing::HasSubstr(" " + name + ";"));
  }
  for (const std::string_view form : fault_forms()) {
    EXPECT_THAT(help, testing::HasSubstr(" fault " + std::string(form) + ";"));
  }
}

TEST(ControlLine, NoLineOfRandomCharactersIsAnsweredWithAnythingButOkOrError) {
  std::mt19937 random(42);
  SimulatedPrinter printer;
  for (int round = 0; round < 20000; ++round) {
    std::string line(random() % 12, ' ');
    for (char& character : line) {
      character = "codefaultslwi 0x19;\xff\x01"[random() % 21];
    }
    const std::string reply = execute_control_line(line, printer);
    ASSERT_THAT(reply, testing::AnyOf("ok", StartsWith("ok "), StartsWith("error: "))) << line;
    ASSERT_THAT(reply, Not(testing::HasSubstr("\n"))) << line;
  }
}

TEST(ControlLineReader, CutsAtLineEndsOnly) {
  ControlLineReader reader;
  EXPECT_THAT(reader.feed("sh"), IsEmpty());
  EXPECT_THAT(reader.feed("ow\n\nco"), ElementsAre("show", ""));
  EXPECT_THAT(reader.feed("de 1\n"), ElementsAre("code 1"));
}

TEST(ControlLineReader, ALineOf1024CharactersIsALine) {
  ControlLineReader reader;
  const std::string line(1024, 'x');
  EXPECT_THAT(reader.feed(line + "\n"), ElementsAre(line));
}

TEST(ControlLineReader, ALongerLineIsSkippedToItsEnd) {
  ControlLineReader reader;
  EXPECT_THAT(reader.feed(std::string(1025, 'x')), IsEmpty());
  EXPECT_THAT(reader.feed(std::string(5000, 'y') + "\nshow\n"), ElementsAre(std::nullopt, "show"));
}
