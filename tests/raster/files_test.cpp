// SPDX-License-Identifier: Apache-2.0
// Which files the program replaces, and the mode of new files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "tests/raster/raster_streams.h"

namespace {

/// The two ways to save a page.
struct Way {
  const char* name;
  std::vector<std::string> arguments;  ///< the file's name follows
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.name;
}

class SavedFile : public Rasterdump, public testing::WithParamInterface<Way> {
 protected:
  ProgramResult save(const std::string& path) {
    std::vector<std::string> arguments = {"--quiet", "--page", "1"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    arguments.push_back(path);
    return run(arguments, write_stream({make_page(10, 20)}, CUPS_RASTER_WRITE));
  }
  void expect_refusal(const std::string& path, const std::string& why) {
    const ProgramResult result = save(path);
    EXPECT_EQ(result.exit_status, OUTPUT);
    EXPECT_EQ(result.errors, "brenvellis-rasterdump: page 1: cannot save " + path + ": " + why + "\n");
    EXPECT_EQ(result.output, "");
  }
  static std::string content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static unsigned rights(const std::string& path) {
    struct stat found = {};
    EXPECT_EQ(stat(path.c_str(), &found), 0);
    return found.st_mode & 07777U;
  }
};

/// Umask sets the umask, which a program inherits.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t before_;
};

TEST_P(SavedFile, HasTheModeThatTheUmaskAllows) {
  const Umask umask(027);
  EXPECT_EQ(save(path("page")).exit_status, 0);
  EXPECT_EQ(rights(path("page")), 0640U);
}

TEST_P(SavedFile, LargerThanItsBufferIsWhole) {
  // Lines shorter and longer than the 64 KiB that are written at once.
  for (const Page& page : {make_page(1000, 50), make_page(30000, 3)}) {
    std::vector<std::string> arguments = {"--quiet"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    arguments.insert(arguments.end(), {path("%P"), file(write_stream({page}, CUPS_RASTER_WRITE))});
    EXPECT_EQ(run(arguments).exit_status, 0);
    const std::string saved = content(path("1"));
    ASSERT_GE(saved.size(), page.pixels.size());
    EXPECT_TRUE(saved.substr(saved.size() - page.pixels.size()) == page.pixels);
  }
}

TEST_P(SavedFile, DoesNotInheritTheModeOfTheReplacedFile) {
  const std::string name = file("old", "page");
  ASSERT_EQ(chmod(name.c_str(), 06777), 0);
  const Umask umask(022);
  EXPECT_EQ(save(name).exit_status, 0);
  EXPECT_EQ(rights(name), 0644U);
  EXPECT_GE(content(name).size(), 600U);
}

TEST_P(SavedFile, DoesNotChangeAFileOfTwoNames) {
  const std::string other = file("precious", "other");
  ASSERT_EQ(link(other.c_str(), path("page").c_str()), 0);
  EXPECT_EQ(save(path("page")).exit_status, 0);
  EXPECT_EQ(content(other), "precious");
}

TEST_P(SavedFile, FollowsNoLink) {
  const std::string target = file("precious", "target");
  ASSERT_EQ(symlink(target.c_str(), path("page").c_str()), 0);
  expect_refusal(path("page"), "it is a symbolic link");
  EXPECT_EQ(content(target), "precious");
}

TEST_P(SavedFile, FollowsNoLinkOfAnotherUserInItsPath) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can make a link of another user";
  }
  constexpr uid_t another = 65534;
  ASSERT_EQ(mkdir(path("folder").c_str(), 0700), 0);
  const std::string target = file("precious", "folder/page");
  const std::string link = path("link");
  ASSERT_EQ(symlink(path("folder").c_str(), link.c_str()), 0);
  EXPECT_EQ(save(link + "/own").exit_status, 0);
  ASSERT_EQ(lchown(link.c_str(), another, another), 0);
  expect_refusal(link + "/page", "the link 'link' belongs to another user");
  EXPECT_EQ(content(target), "precious");
}

TEST_P(SavedFile, FollowsNoLinkToNothing) {
  ASSERT_EQ(symlink(path("none").c_str(), path("page").c_str()), 0);
  expect_refusal(path("page"), "it is a symbolic link");
  EXPECT_NE(access(path("none").c_str(), F_OK), 0);
}

TEST_P(SavedFile, DoesNotReplaceADevice) {
  expect_refusal("/dev/full", "it is not a regular file");
}

TEST_P(SavedFile, DoesNotWaitForAPipe) {
  ASSERT_EQ(mkfifo(path("page").c_str(), 0666), 0);
  expect_refusal(path("page"), "it is not a regular file");
}

TEST_P(SavedFile, DoesNotReplaceTheFileOfAnotherUser) {
  // Only root can create a file of another user; for other users, use a file of root.
  std::string name = "/etc/passwd";
  if (geteuid() == 0) {
    name = file("theirs", "page");
    ASSERT_EQ(chown(name.c_str(), 12345, static_cast<gid_t>(-1)), 0);
  }
  const std::string before = content(name);
  expect_refusal(name, "it belongs to another user");
  EXPECT_EQ(content(name), before);
}

INSTANTIATE_TEST_SUITE_P(Rasterdump, SavedFile,
                         testing::Values(Way{"Band", {"--bands", "50", "--capture"}},
                                         Way{"Picture", {"--pnm"}}),
                         [](const auto& the_case) { return the_case.param.name; });

}  // namespace
