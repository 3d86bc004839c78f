// SPDX-License-Identifier: Apache-2.0
#include "raster/band_image_capture.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/temporary_folder.h"
#include "tests/unit/captured_stream.h"

/// Writes the coverage data of this process if coverage is measured, because a process terminated by a signal
/// does not.
extern "C" [[gnu::weak]] void __gcov_dump();

namespace {

/// A clock that advances by one second each time it is read.
enum class Clock : std::uint8_t { Real, Fixed, Ticking, Failing };
Clock the_clock = Clock::Real;
/// Replaces fwrite() if set.
std::function<std::size_t(std::size_t count)> write_instead;
/// The next printf() throws.
bool printing_throws = false;
bool closing_fails = false;
bool changing_modes_fails = false;
/// Counts down the calls of snprintf(); the call at 0 fails.
int calls_before_failure = -1;
int formatting_calls = 0;

tagLNBandImageParams band_of(std::int64_t stride, std::int64_t width, std::int64_t height) {
  return {.data = nullptr, .stride = stride, .left = 0, .top = 0, .right = width, .bottom = height};
}

struct Expansion {
  bool good;
  std::string text;
  bool operator==(const Expansion&) const = default;
};

void PrintTo(const Expansion& expansion, std::ostream* out) {
  *out << (expansion.good ? "true" : "false") << " \"" << expansion.text << '"';
}

/// Calls the function with a buffer at the end of accessible memory.
Expansion expand(std::size_t size, const std::string& templ, const tagLNBandImageParams* params) {
  const std::unique_ptr<char[]> buffer = std::make_unique<char[]>(size);
  std::memset(buffer.get(), 0x7f, size);
  const bool good = format_string_util(buffer.get(), size, templ.c_str(), params);
  const std::size_t length = strnlen(buffer.get(), size);
  EXPECT_LT(length, size) << "no terminator in the buffer for " << templ;
  return {good, std::string(buffer.get(), length)};
}

Expansion expand(const std::string& templ, const tagLNBandImageParams* params = nullptr) {
  return expand(1024, templ, params);
}

/// Returns the number of the next "%C", which increments it.
int next_number() {
  return std::stoi(expand("%C").text) + 1;
}

/// A literal, unguarded implementation with enough memory behind the buffer. The position advances by the
/// result of snprintf(), and a negative remaining size is passed on as a huge one, which the C library treats
/// as no limit.
Expansion model(std::size_t size, const std::string& templ, const tagLNBandImageParams* params, int& number) {
  std::vector<char> memory(size + 64 * (templ.size() + 1), 0x7f);
  char* volatile hidden_from_fortify = memory.data();
  char* const out = hidden_from_fortify;
  char* const room_end = out + size - 1;
  char* position = out;
  bool good = true;
  bool percent = false;
  for (const char c : templ) {
    if (percent) {
      percent = false;
      const auto room = static_cast<std::size_t>(room_end - position);
      const long long width = params != nullptr ? params->right - params->left : 0;
      const long long height = params != nullptr ? params->bottom - params->top : 0;
      int count = 0;
      if (c == 'B') {
        count =
            snprintf(position, room, "%lld", params != nullptr ? std::llabs(params->stride) / width * 8 : 0);
      } else if (c == 'C') {
        count = snprintf(position, room, "%04d", number++);
      } else if (c == 'H') {
        count = snprintf(position, room, "%lld", height);
      } else if (c == 'T') {
        count = snprintf(position, room, "%s", "20261116_073016");
      } else if (c == 'W') {
        count = snprintf(position, room, "%lld", width);
      }
      position += count;
    } else if (c == '%') {
      percent = true;
    } else if (position < room_end) {
      *position++ = c;
    } else {
      good = false;
      break;
    }
  }
  *position = '\0';
  // Only the buffer's own bytes are compared; the last one is for the terminator.
  return {good, std::string(out, strnlen(out, size - 1))};
}

const std::vector<std::string> PIECES = {"",   "a",  "bcd", "%B", "%C", "%H", "%T",
                                         "%W", "%t", "%w",  "%%", "%x", "%"};

void expect_as_modelled(const std::string& templ, const tagLNBandImageParams* params) {
  int number = next_number();
  for (std::size_t size = 1; size <= 40; ++size) {
    const Expansion expected = model(size, templ, params, number);
    ASSERT_EQ(expand(size, templ, params), expected) << "template " << templ << " size " << size;
  }
  EXPECT_EQ(next_number() - 1, number) << "template " << templ;
}

TEST(TemplateExpansion, EveryTemplateOfThreePiecesIsCutLikeItsModelAtEverySize) {
  the_clock = Clock::Fixed;
  const tagLNBandImageParams band = band_of(3000, 1000, 64);
  for (const std::string& a : PIECES) {
    for (const std::string& b : PIECES) {
      for (const std::string& c : PIECES) {
        expect_as_modelled(a + b + c, &band);
      }
    }
  }
}

TEST(TemplateExpansion, LongRandomTemplatesAreCutLikeTheirModel) {
  the_clock = Clock::Fixed;
  const std::vector<tagLNBandImageParams> bands = {band_of(3000, 1000, 64), band_of(-3000, 1000, -64),
                                                   band_of(9000000000000, -7, 9000000000000)};
  std::mt19937 random(1);
  for (int i = 0; i < 500; ++i) {
    std::string templ;
    for (int piece = 0; piece < 8; ++piece) {
      templ += PIECES[random() % PIECES.size()];
    }
    expect_as_modelled(templ, nullptr);
    expect_as_modelled(templ, &bands[random() % bands.size()]);
  }
}

TEST(TemplateExpansion, ABufferOfSizeZeroIsLeftAlone) {
  for (const std::string& piece : PIECES) {
    std::array<char, 2> buffer = {'x', 'y'};
    EXPECT_FALSE(format_string_util(buffer.data() + 1, 0, piece.c_str(), nullptr)) << piece;
    EXPECT_EQ(buffer, (std::array<char, 2>{'x', 'y'})) << piece;
  }
}

TEST(TemplateExpansion, ABufferOfSizeZeroTakesNoNumber) {
  const int number = next_number();
  char byte = 0;
  format_string_util(&byte, 0, "%C", nullptr);
  EXPECT_EQ(next_number(), number + 1);
}

struct CutCase {
  std::size_t size;
  const char* templ;
  Expansion expected;
};

void PrintTo(const CutCase& cut, std::ostream* out) {
  *out << '"' << cut.templ << "\" in " << cut.size;
}

class Cut : public testing::TestWithParam<CutCase> {};

TEST_P(Cut, LeavesWhatHasRoom) {
  const tagLNBandImageParams band = band_of(3000, 1000, 64);
  EXPECT_EQ(expand(GetParam().size, GetParam().templ, &band), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    TemplateExpansion, Cut,
    testing::Values(CutCase{1, "", {true, ""}},           // nothing to store
                    CutCase{1, "a", {false, ""}},         // no room for a literal
                    CutCase{1, "%W", {true, ""}},         // no room at all: the expansion leaves nothing
                    CutCase{1, "%W%H%B", {true, ""}},     // nor do those behind it
                    CutCase{4, "abc", {true, "abc"}},     // literals use all but the terminator
                    CutCase{3, "abc", {false, "ab"}},     //
                    CutCase{6, "%W", {true, "1000"}},     // an expansion leaves a byte free
                    CutCase{5, "%W", {true, "100"}},      // or is cut, with the position at the end
                    CutCase{5, "%Wx", {false, "100"}},    // where no literal has room
                    CutCase{4, "%W", {true, "10"}},       // cut, with the position past the end
                    CutCase{4, "%Wx", {false, "10"}},     //
                    CutCase{4, "%W%H", {true, "10"}},     // an expansion past the end is not seen
                    CutCase{4, "%W%Hx", {false, "10"}},   // a literal there still fails
                    CutCase{4, "abc%W", {true, "abc"}},   // no room left: nothing added, nothing taken
                    CutCase{4, "ab%W%%%", {true, "ab"}},  // dropped characters need no room
                    CutCase{7, "%Wxy", {true, "1000xy"}}, CutCase{6, "%Wxy", {false, "1000x"}}));

TEST(TemplateExpansion, TheExampleNameIsMade) {
  const tagLNBandImageParams band = band_of(3000, 1000, 64);
  // Run in a new process, in which no "%C" was expanded yet.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const std::string first = expand("band_%C_%Wx%H_%Bbpp.raw", &band).text;
        const std::string second = expand("band_%C_%Wx%H_%Bbpp.raw", &band).text;
        fprintf(stderr, "%s %s\n", first.c_str(), second.c_str());
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^band_0000_1000x64_24bpp.raw band_0001_1000x64_24bpp.raw\n");
}

TEST(TemplateExpansion, ThePaddingOfALineDoesNotCount) {
  const tagLNBandImageParams band = band_of(3001, 1000, 64);
  EXPECT_EQ(expand("%B", &band).text, "24");
}

TEST(TemplateExpansion, ANegativeStrideGivesTheSameBitsPerPixel) {
  const tagLNBandImageParams band = band_of(-3000, 1000, 64);
  EXPECT_EQ(expand("%B", &band).text, "24");
}

TEST(TemplateExpansion, TheBandsEdgesGiveItsSize) {
  const tagLNBandImageParams band = {
      .data = nullptr, .stride = 300, .left = 100, .top = 640, .right = 200, .bottom = 704};
  EXPECT_EQ(expand("%Wx%H", &band).text, "100x64");
}

TEST(TemplateExpansion, NegativeSizesKeepTheirSigns) {
  const tagLNBandImageParams band = band_of(3000, -1000, -64);
  EXPECT_EQ(expand("%W %H %B", &band).text, "-1000 -64 -24");
}

TEST(TemplateExpansion, TheGreatestNumbersWrapRound) {
  const tagLNBandImageParams band = {.data = nullptr,
                                     .stride = INT64_MIN,
                                     .left = INT64_MIN,
                                     .top = INT64_MAX,
                                     .right = 1,
                                     .bottom = INT64_MIN};
  EXPECT_EQ(expand("%W %H %B", &band).text, "-9223372036854775807 1 8");
}

TEST(TemplateExpansion, TheSmallestStrideDividedByMinusOneWrapsRound) {
  const tagLNBandImageParams band = {
      .data = nullptr, .stride = INT64_MIN, .left = 1, .top = 0, .right = 0, .bottom = 1};
  EXPECT_EQ(expand("%B", &band).text, "0");
}

TEST(TemplateExpansion, WithoutABandItsSizesAreZero) {
  EXPECT_EQ(expand("%Wx%H_%B"), (Expansion{true, "0x0_0"}));
}

TEST(TemplateExpansion, UnknownSequencesExpandToNothing) {
  EXPECT_EQ(expand("a%tb%wc%%d%ce%"), (Expansion{true, "abcde"}));
  EXPECT_EQ(expand("100%%"), (Expansion{true, "100"}));
}

TEST(TemplateExpansion, TheNumberIsIncrementedAlsoIfItIsCutAndTheCallFails) {
  const int number = next_number();
  EXPECT_FALSE(expand(3, "%C%Cxyz", nullptr).good);
  EXPECT_EQ(next_number(), number + 3);
}

TEST(TemplateExpansion, The10001stNumberHasFiveDigits) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        for (int number = 0; number < 9999; ++number) {
          expand("%C");
        }
        const std::string the_10000th = expand("%C").text;
        const std::string the_10001st = expand("%C").text;
        fprintf(stderr, "%s %s\n", the_10000th.c_str(), the_10001st.c_str());
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^9999 10000\n");
}

TEST(TemplateExpansion, TheTimeIsTheLocalTime) {
  the_clock = Clock::Real;
  setenv("TZ", "UTC-5:30", 1);
  tzset();
  const auto stamp_of_now = [] {
    const std::time_t now = time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> text{};
    (void)std::strftime(text.data(), text.size(), "%Y%m%d_%H%M%S", &local);
    return std::string(text.data());
  };
  const std::string before = stamp_of_now();
  const std::string stamp = expand("%T").text;
  EXPECT_LE(before, stamp);
  EXPECT_LE(stamp, stamp_of_now());
}

TEST(TemplateExpansion, ATimeIsWrittenWithAllItsDigits) {
  the_clock = Clock::Fixed;
  EXPECT_EQ(expand("at_%T").text, "at_20261116_073016");
}

TEST(TemplateExpansion, EachTimeReadsTheClock) {
  the_clock = Clock::Ticking;
  EXPECT_EQ(expand("%T %T %T").text, "20261116_073016 20261116_073017 20261116_073018");
}

TEST(TemplateExpansion, WithoutLocalTimeTheStampSaysSo) {
  the_clock = Clock::Failing;
  EXPECT_EQ(expand("at_%T").text, "at_(no_time)");
}

/// Expands with the formatting call after the first `calls` failing; -1: none.
Expansion expand_failing_after(int calls, const std::string& templ) {
  const tagLNBandImageParams band = band_of(3000, 1000, 64);
  the_clock = Clock::Fixed;
  calls_before_failure = calls;
  formatting_calls = 0;
  const Expansion expansion = expand(templ, &band);
  calls_before_failure = -1;
  return expansion;
}

TEST(TemplateExpansion, AnExpansionThatCannotBeFormattedEndsTheCallBehindTheTextSoFar) {
  EXPECT_EQ(expand_failing_after(0, "a%Wb"), (Expansion{false, "a"}));
  EXPECT_EQ(expand_failing_after(1, "a%Wb%Hc"), (Expansion{false, "a1000b"}));
  for (const char* const piece : {"%B", "%C", "%H", "%T", "%W"}) {
    EXPECT_EQ(expand_failing_after(0, std::string("ab") + piece + "cd"), (Expansion{false, "ab"})) << piece;
  }
}

TEST(TemplateExpansion, EachKnownSequenceIsFormattedOnce) {
  for (const char* const piece : {"%B", "%C", "%H", "%T", "%W"}) {
    EXPECT_TRUE(expand_failing_after(-1, piece).good);
    EXPECT_EQ(formatting_calls, 1) << piece;
  }
}

TEST(TemplateExpansion, UnknownSequencesAreNotFormatted) {
  EXPECT_EQ(expand_failing_after(0, "a%tb"), (Expansion{true, "ab"}));
  EXPECT_EQ(expand_failing_after(0, "a%%b%"), (Expansion{true, "ab"}));
  EXPECT_EQ(formatting_calls, 0);
}

TEST(TemplateExpansion, APieceWithoutLocalTimeIsFormattedOnce) {
  the_clock = Clock::Failing;
  formatting_calls = 0;
  EXPECT_TRUE(expand("%T").good);
  EXPECT_EQ(formatting_calls, 1);
}

using TemplateExpansionDeathTest = testing::Test;

TEST_F(TemplateExpansionDeathTest, ABandWithoutWidthEndsTheProcess) {
  const tagLNBandImageParams band = band_of(3000, 0, 64);
  EXPECT_EXIT(
      {
        std::signal(SIGFPE, SIG_DFL);
        expand("%B", &band);
      },
      testing::KilledBySignal(SIGFPE), "");
}

TEST_F(TemplateExpansionDeathTest, ABandWithoutWidthEndsTheProcessAlsoWhereTheSignalIsIgnored) {
  const tagLNBandImageParams band = band_of(3000, 0, 64);
  EXPECT_EXIT(
      {
        std::signal(SIGFPE, SIG_IGN);
        std::signal(SIGABRT, [](int) {
          if (__gcov_dump != nullptr) {
            __gcov_dump();
          }
        });
        expand("%B", &band);
      },
      testing::KilledBySignal(SIGABRT), "");
}

/// A folder for the files of one test, and what the calls print.
class BandFiles : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return (folder_.path() / name).string(); }

  [[nodiscard]] bool empty() const { return std::filesystem::is_empty(folder_.path()); }

  static std::string content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static auto open_files() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  }

  static mode_t permissions(const std::string& path) {
    struct stat file = {};
    stat(path.c_str(), &file);
    return file.st_mode & 07777U;
  }

  /// Runs `call` while no file can grow beyond `size` bytes.
  template <typename Call>
  static void with_files_limited_to(rlim_t size, const Call& call) {
    rlimit original{};
    getrlimit(RLIMIT_FSIZE, &original);
    const rlimit limit = {size, original.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    call();
    setrlimit(RLIMIT_FSIZE, &original);
    std::signal(SIGXFSZ, handler);
  }

  template <typename Call>
  static std::string printed_by(const Call& call) {
    return captured(stdout, call);
  }

  static std::string pixels() {
    std::string bytes(192000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<char>(i * 7 % 251);
    }
    return bytes;
  }

  static tagLNBandImageParams band_with(const std::string& bytes, std::int64_t stride) {
    tagLNBandImageParams band = band_of(stride, 1000, 64);
    band.data = reinterpret_cast<const unsigned char*>(bytes.data());
    return band;
  }

 private:
  TemporaryFolder folder_;
};

TEST_F(BandFiles, ABandIsSavedByteForByte) {
  const std::string bytes = pixels();
  const tagLNBandImageParams band = band_with(bytes, 3000);
  const std::string printed =
      printed_by([&] { EXPECT_TRUE(save_image_as_raw(path("%W_%H_%B").c_str(), &band)); });
  EXPECT_EQ(content(path("1000_64_24")), bytes);
  EXPECT_EQ(printed, "written: 192000 bytes.\n");
}

TEST_F(BandFiles, ABandOfNegativeStrideIsReadForward) {
  const std::string bytes = pixels();
  const tagLNBandImageParams band = band_with(bytes, -3000);
  printed_by([&] { EXPECT_TRUE(save_image_as_raw(path("%W_%H_%B").c_str(), &band)); });
  EXPECT_EQ(content(path("1000_64_24")), bytes);
}

TEST_F(BandFiles, ABandWithoutLinesIsNotSavedButIncrementsTheNumber) {
  const std::string bytes = pixels();
  tagLNBandImageParams band = band_with(bytes, 3000);
  band.top = band.bottom;
  const int number = next_number();
  const std::string printed = printed_by([&] { EXPECT_FALSE(save_image_as_raw(path("%C").c_str(), &band)); });
  EXPECT_EQ(printed, "");
  EXPECT_TRUE(empty());
  EXPECT_EQ(next_number(), number + 2);
}

TEST_F(BandFiles, ABandWithoutDataIsNotSaved) {
  const tagLNBandImageParams band = band_of(3000, 1000, 64);
  EXPECT_FALSE(save_image_as_raw(path("a").c_str(), &band));
  EXPECT_TRUE(empty());
}

TEST_F(BandFiles, ANegativeHeightIsPassedOnAsAHugeCount) {
  const std::string bytes = pixels();
  tagLNBandImageParams band = band_with(bytes, 3000);
  band.bottom = -64;
  std::optional<std::size_t> asked;
  write_instead = [&asked](std::size_t count) {
    asked = count;
    return count;
  };
  printed_by([&] { save_image_as_raw(path("a").c_str(), &band); });
  write_instead = nullptr;
  EXPECT_EQ(asked, static_cast<std::size_t>(-192000));
}

TEST_F(BandFiles, ANameOf1023BytesFits) {
  const std::string bytes = pixels();
  const tagLNBandImageParams band = band_with(bytes, 3000);
  std::string name = path("");
  name.resize(1022, '/');
  name += "a";
  printed_by([&] { EXPECT_TRUE(save_image_as_raw(name.c_str(), &band)); });
  EXPECT_EQ(content(path("a")), bytes);
}

TEST_F(BandFiles, ANameOf1024BytesIsNotSaved) {
  const std::string bytes = pixels();
  const tagLNBandImageParams band = band_with(bytes, 3000);
  std::string name = path("");
  name.resize(1023, '/');
  name += "a";
  EXPECT_EQ(printed_by([&] { EXPECT_FALSE(save_image_as_raw(name.c_str(), &band)); }), "");
  EXPECT_TRUE(empty());
}

TEST_F(BandFiles, ANameThatWasCutIsNotSaved) {
  const std::string bytes = pixels();
  const tagLNBandImageParams band = band_with(bytes, 3000);
  std::string name = path("");
  name.resize(1022, '/');
  name += "ab";
  EXPECT_EQ(printed_by([&] { EXPECT_FALSE(save_image_as_raw(name.c_str(), &band)); }), "");
  EXPECT_TRUE(empty());
}

TEST_F(BandFiles, TheModeIs0666RegardlessOfTheUmask) {
  const mode_t before = umask(077);
  printed_by([&] { EXPECT_TRUE(save_memory(path("a").c_str(), "abc", 3)); });
  umask(before);
  EXPECT_EQ(permissions(path("a")), 0666U);
}

TEST_F(BandFiles, AFileThatExistsIsReplaced) {
  std::ofstream(path("a")) << "something longer";
  printed_by([&] { EXPECT_TRUE(save_memory(path("a").c_str(), "abc", 3)); });
  EXPECT_EQ(content(path("a")), "abc");
}

TEST_F(BandFiles, NothingIsTouchedWithoutPathDataOrSize) {
  std::ofstream(path("a")) << "kept";
  const std::string printed = printed_by([&] {
    EXPECT_FALSE(save_memory(nullptr, "abc", 3));
    EXPECT_FALSE(save_memory(path("a").c_str(), nullptr, 3));
    EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 0));
  });
  EXPECT_EQ(content(path("a")), "kept");
  EXPECT_EQ(printed, "");
}

TEST_F(BandFiles, AFileThatCannotBeOpenedIsAFailureWithoutAMessage) {
  std::string printed;
  const std::string log = captured_log(
      [&] { printed = printed_by([&] { EXPECT_FALSE(save_memory(path("no/a").c_str(), "abc", 3)); }); });
  EXPECT_EQ(printed, "");
  EXPECT_EQ(log, "");
}

TEST_F(BandFiles, AFullDiskIsAFailure) {
  const std::string bytes = pixels();
  with_files_limited_to(0, [&] {
    const std::string printed =
        printed_by([&] { EXPECT_FALSE(save_memory(path("a").c_str(), bytes.data(), bytes.size())); });
    EXPECT_EQ(printed, "written: 0 bytes.\n");
  });
}

TEST_F(BandFiles, AnIncompleteFileKeepsItsModeAndIsClosed) {
  const std::string bytes = pixels();
  const auto before = open_files();
  const mode_t mask = umask(077);
  with_files_limited_to(100 * 1024, [&] {
    const std::string printed =
        printed_by([&] { EXPECT_FALSE(save_memory(path("a").c_str(), bytes.data(), bytes.size())); });
    EXPECT_EQ(printed, "written: 102400 bytes.\n");
  });
  umask(mask);
  EXPECT_EQ(open_files(), before);
  EXPECT_EQ(content(path("a")), bytes.substr(0, 100 * 1024UL));
  EXPECT_EQ(permissions(path("a")), 0600U);
}

TEST_F(BandFiles, AFailureToCloseOrToChangeTheModeIsIgnored) {
  closing_fails = true;
  printed_by([&] { EXPECT_TRUE(save_memory(path("a").c_str(), "abc", 3)); });
  closing_fails = false;
  changing_modes_fails = true;
  printed_by([&] { EXPECT_TRUE(save_memory(path("b").c_str(), "abc", 3)); });
  changing_modes_fails = false;
  EXPECT_EQ(content(path("a")), "abc");
  EXPECT_EQ(content(path("b")), "abc");
}

TEST_F(BandFiles, ASavedFileIsWholeAndClosed) {
  const std::string bytes = pixels();
  // Inside the capture, because its end flushes all open streams.
  printed_by([&] {
    const auto before = open_files();
    EXPECT_TRUE(save_memory(path("a").c_str(), bytes.data(), bytes.size()));
    EXPECT_EQ(open_files(), before);
    EXPECT_EQ(content(path("a")), bytes);
  });
}

TEST_F(BandFiles, AnExceptionIsAFailureAndLeavesNoOpenFile) {
  const auto before = open_files();
  write_instead = [](std::size_t) -> std::size_t { throw std::bad_alloc(); };
  EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 3));
  write_instead = nullptr;
  EXPECT_EQ(open_files(), before);
}

TEST_F(BandFiles, AnExceptionWhilePrintingIsAFailureAndLeavesNoOpenFile) {
  const auto before = open_files();
  printing_throws = true;
  EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 3));
  EXPECT_EQ(open_files(), before);
  EXPECT_EQ(content(path("a")), "abc");
}

TEST_F(BandFiles, EveryKindOfExceptionIsAFailureAndLeavesNoOpenFile) {
  const auto before = open_files();
  write_instead = [](std::size_t) -> std::size_t { throw 1; };
  EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 3));
  write_instead = nullptr;
  EXPECT_EQ(open_files(), before);
}

TEST_F(BandFiles, NoFailureWritesToTheLog) {
  const std::string bytes = pixels();
  const tagLNBandImageParams band = band_with(bytes, 3000);
  std::string log;
  printed_by([&] {
    log = captured_log([&] {
      EXPECT_FALSE(save_image_as_raw(std::string(1024, 'a').c_str(), &band));
      EXPECT_FALSE(save_memory(nullptr, "abc", 3));
      EXPECT_FALSE(save_memory(path("a").c_str(), nullptr, 3));
      EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 0));
      write_instead = [](std::size_t count) { return count - 1; };
      EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 3));
      write_instead = nullptr;
      printing_throws = true;
      EXPECT_FALSE(save_memory(path("a").c_str(), "abc", 3));
    });
  });
  EXPECT_EQ(log, "");
}

}  // namespace

// These replace functions of the C library.

static bool this_formatting_fails() {
  ++formatting_calls;
  return calls_before_failure >= 0 && calls_before_failure-- == 0;
}

extern "C" int snprintf(char* text, std::size_t size, const char* format, ...) noexcept {
  if (this_formatting_fails()) {
    return -1;
  }
  std::va_list values;
  va_start(values, format);
  const int length = vsnprintf(text, size, format, values);
  va_end(values);
  return length;
}

// The same in a program with _FORTIFY_SOURCE.
extern "C" [[gnu::format(printf, 5, 6)]] int __snprintf_chk(char* text, std::size_t size, int /*flag*/,
                                                            std::size_t /*room*/, const char* format,
                                                            ...) noexcept {
  if (this_formatting_fails()) {
    return -1;
  }
  std::va_list values;
  va_start(values, format);
  const int length = vsnprintf(text, size, format, values);
  va_end(values);
  return length;
}

extern "C" std::time_t time(std::time_t* result) noexcept {
  static std::time_t ticks = 16;
  std::time_t now = 16;
  if (the_clock == Clock::Real) {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    now = real.tv_sec;
  } else if (the_clock == Clock::Ticking) {
    now = ticks++;
  }
  if (result != nullptr) {
    *result = now;
  }
  return now;
}

extern "C" std::tm* localtime(const std::time_t* time) noexcept {
  static std::tm local;
  switch (the_clock) {
    case Clock::Real:
      return localtime_r(time, &local);
    case Clock::Fixed:
    case Clock::Ticking:
      local = {};
      local.tm_year = 2026 - 1900;
      local.tm_mon = 10;
      local.tm_mday = 16;
      local.tm_hour = 7;
      local.tm_min = 30;
      local.tm_sec = static_cast<int>(*time);
      return &local;
    case Clock::Failing:
      return nullptr;
  }
  return nullptr;
}

extern "C" std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* file) {
  if (write_instead) {
    return write_instead(size * count);
  }
  static const auto real = reinterpret_cast<decltype(&fwrite)>(dlsym(RTLD_NEXT, "fwrite"));
  return real(data, size, count, file);
}

static void throw_or_return() {
  if (std::exchange(printing_throws, false)) {
    throw std::bad_alloc();
  }
}

extern "C" int printf(const char* format, ...) {
  throw_or_return();
  std::va_list values;
  va_start(values, format);
  const int length = vprintf(format, values);
  va_end(values);
  return length;
}

// The same in a program with _FORTIFY_SOURCE.
extern "C" [[gnu::format(printf, 2, 3)]] int __printf_chk(int /*flag*/, const char* format, ...) {
  throw_or_return();
  std::va_list values;
  va_start(values, format);
  const int length = vprintf(format, values);
  va_end(values);
  return length;
}

extern "C" int fclose(FILE* file) {
  static const auto real = reinterpret_cast<decltype(&fclose)>(dlsym(RTLD_NEXT, "fclose"));
  const int result = real(file);
  return closing_fails ? EOF : result;
}

extern "C" int chmod(const char* path, mode_t mode) noexcept {
  static const auto real = reinterpret_cast<decltype(&chmod)>(dlsym(RTLD_NEXT, "chmod"));
  return changing_modes_fails ? -1 : real(path, mode);
}
