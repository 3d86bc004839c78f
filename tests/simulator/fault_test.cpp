// SPDX-License-Identifier: Apache-2.0
#include "simulator/fault.h"

#include <gmock/gmock.h>

#include <fstream>
#include <regex>

#include "simulator/command_words.h"

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const Bytes REPLY = {1, 2, 3, 4, 5};

std::optional<Fault> parse(std::string_view text, std::string* error = nullptr) {
  std::string ignored;
  return parse_fault(split_words(text), error != nullptr ? *error : ignored);
}

std::vector<Piece> plan(std::string_view fault, RequestKind kind = RequestKind::Status) {
  return plan_delivery(parse(fault).value(), kind, REPLY);
}

Bytes bytes_of(const std::vector<Piece>& pieces) {
  Bytes all;
  for (const Piece& piece : pieces) {
    all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
  }
  return all;
}

}  // namespace

TEST(Fault, TextsAreReadAndWrittenOutInFull) {
  const std::pair<const char*, const char*> cases[] = {
      {"none", "none"},
      {"silent", "silent"},
      {"silent status", "silent status"},
      {"short 0", "short 0"},
      {"short 0x0e levels", "short 14 levels"},
      {"drip", "drip 10"},
      {"drip 0", "drip 0"},
      {"drip status", "drip 10 status"},
      {"drip 60000 levels", "drip 60000 levels"},
      {"split 7", "split 7 200"},
      {"split 7 levels", "split 7 200 levels"},
      {"split 7 9", "split 7 9"},
      {"  split   7  9  status ", "split 7 9 status"},
      {"long 4096", "long 4096"},
      {"garbage", "garbage"},
      {"garbage levels", "garbage levels"},
      {"slow 500", "slow 500"},
      {"slow 500 levels", "slow 500 levels"},
      {"close 0", "close 0"},
      {"close 4 status", "close 4 status"},
      {"refuse", "refuse"},
  };
  for (const auto& [text, written] : cases) {
    const auto fault = parse(text);
    ASSERT_TRUE(fault) << text;
    EXPECT_EQ(to_string(*fault), written) << text;
  }
}

TEST(Fault, AnUnknownNameIsAnsweredWithTheNames) {
  for (const char* text : {"noise", "SILENT", "non", "5"}) {
    std::string error;
    EXPECT_FALSE(parse(text, &error)) << text;
    EXPECT_EQ(error, "unknown fault '" + std::string(text) +
                         "' (expected one of none silent short drip split long garbage slow close refuse)");
  }
}

TEST(Fault, AnEmptyFaultIsAnError) {
  std::string error;
  EXPECT_FALSE(parse("", &error));
  EXPECT_THAT(error, HasSubstr("(expected one of none silent"));
}

TEST(Fault, WrongArgumentsAreAnsweredWithTheRightForm) {
  const std::pair<const char*, const char*> cases[] = {
      {"none 1", "'none'"},
      {"none status", "'none'"},
      {"refuse levels", "'refuse'"},
      {"silent 5", "'silent [status|levels]'"},
      {"silent both", "'silent [status|levels]'"},
      {"silent status levels", "'silent [status|levels]'"},
      {"short", "'short N [status|levels]'"},
      {"short status", "'short N [status|levels]'"},
      {"short x", "'short N [status|levels]'"},
      {"short 4097", "'short N [status|levels]'"},
      {"short 1 2", "'short N [status|levels]'"},
      {"short -1", "'short N [status|levels]'"},
      {"drip 60001", "'drip [MS] [status|levels]'"},
      {"drip 1 2", "'drip [MS] [status|levels]'"},
      {"split", "'split N [MS] [status|levels]'"},
      {"split 1 2 3", "'split N [MS] [status|levels]'"},
      {"split 1 status 2", "'split N [MS] [status|levels]'"},
      {"long", "'long N [status|levels]'"},
      {"long 4097", "'long N [status|levels]'"},
      {"garbage 1", "'garbage [status|levels]'"},
      {"slow", "'slow MS [status|levels]'"},
      {"slow levels", "'slow MS [status|levels]'"},
      {"slow 5ms", "'slow MS [status|levels]'"},
      {"slow 0x", "'slow MS [status|levels]'"},
      {"slow 99999999999999999999", "'slow MS [status|levels]'"},
      {"close", "'close N [status|levels]'"},
  };
  for (const auto& [text, usage] : cases) {
    std::string error;
    EXPECT_FALSE(parse(text, &error)) << text;
    EXPECT_THAT(error,
                HasSubstr("(expected " + std::string(usage) + ", N from 0 to 4096, MS from 0 to 60000)"));
  }
}

TEST(Fault, NoneSendsTheReplyAsItIs) {
  const auto pieces = plan("none");
  EXPECT_THAT(pieces, SizeIs(1));
  EXPECT_EQ(bytes_of(pieces), REPLY);
}

TEST(Fault, SilentAndRefuseSendNothing) {
  EXPECT_THAT(plan("silent"), IsEmpty());
  EXPECT_THAT(plan("refuse"), IsEmpty());
}

TEST(Fault, ShortSendsTheHeadOnly) {
  EXPECT_THAT(bytes_of(plan("short 0")), IsEmpty());
  EXPECT_THAT(bytes_of(plan("short 2")), ElementsAre(1, 2));
  EXPECT_EQ(bytes_of(plan("short 4096")), REPLY);
}

TEST(Fault, DripSendsOneBytePerPieceWithPausesBetween) {
  const auto pieces = plan("drip 30");
  ASSERT_THAT(pieces, SizeIs(REPLY.size()));
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    EXPECT_THAT(pieces[i].bytes, ElementsAre(REPLY[i]));
    EXPECT_EQ(pieces[i].delay.count(), i == 0 ? 0 : 30);
  }
}

TEST(Fault, SplitSendsTheHeadAndAfterAPauseTheRest) {
  const auto pieces = plan("split 2 40");
  ASSERT_THAT(pieces, SizeIs(2));
  EXPECT_THAT(pieces[0].bytes, ElementsAre(1, 2));
  EXPECT_EQ(pieces[0].delay.count(), 0);
  EXPECT_THAT(pieces[1].bytes, ElementsAre(3, 4, 5));
  EXPECT_EQ(pieces[1].delay.count(), 40);
}

TEST(Fault, ASplitBehindTheEndLosesNothing) {
  EXPECT_EQ(bytes_of(plan("split 9")), REPLY);
}

TEST(Fault, LongFillsUpWithZeros) {
  EXPECT_THAT(bytes_of(plan("long 8")), ElementsAre(1, 2, 3, 4, 5, 0, 0, 0));
  EXPECT_EQ(bytes_of(plan("long 3")), REPLY);
}

TEST(Fault, GarbageHasTheReplysLength) {
  EXPECT_THAT(bytes_of(plan("garbage")), testing::AllOf(SizeIs(REPLY.size()), Each(0xff)));
}

TEST(Fault, SlowDelaysTheWholeReply) {
  const auto pieces = plan("slow 70");
  ASSERT_THAT(pieces, SizeIs(1));
  EXPECT_EQ(pieces[0].delay.count(), 70);
  EXPECT_EQ(pieces[0].bytes, REPLY);
}

TEST(Fault, CloseSendsTheHeadAndCloses) {
  const auto pieces = plan("close 3");
  ASSERT_THAT(pieces, SizeIs(1));
  EXPECT_THAT(pieces[0].bytes, ElementsAre(1, 2, 3));
  EXPECT_TRUE(pieces[0].close_after);
}

TEST(Fault, ALimitedFaultSparesTheOtherRequest) {
  EXPECT_THAT(plan("silent status", RequestKind::Status), IsEmpty());
  EXPECT_EQ(bytes_of(plan("silent status", RequestKind::Levels)), REPLY);
  EXPECT_THAT(plan("silent levels", RequestKind::Levels), IsEmpty());
  EXPECT_EQ(bytes_of(plan("silent levels", RequestKind::Status)), REPLY);
}

TEST(Fault, TheManualPageHasEveryFault) {
  std::ifstream page(MANUAL_PAGE);
  std::vector<std::string> in_page;
  bool faults = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with(".Sh ")) {
      faults = line == ".Sh FAULTS";
    } else if (faults && line.starts_with(".It Cm ")) {
      line = std::regex_replace(line.substr(7), std::regex("Op Ar (\\w+)"), "[$1]");
      in_page.push_back(std::regex_replace(line, std::regex("Ar "), ""));
    }
  }
  std::vector<std::string> forms;
  for (const std::string_view form : fault_forms()) {
    forms.emplace_back(form.substr(0, form.find(" [status")));
  }
  EXPECT_EQ(in_page, forms);
}
