// SPDX-License-Identifier: Apache-2.0
#include "monitor/output_file.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "tests/support/temporary_folder.h"

namespace {

std::string text_of(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(OutputFile, TheTextIsInTheFileAndNothingBesideIt) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "metrics.prom";
  EXPECT_EQ(write_whole(path, "first\n"), "");
  EXPECT_EQ(write_whole(path, "second\n"), "");
  EXPECT_EQ(text_of(path), "second\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

std::filesystem::perms permissions(const std::filesystem::path& path) {
  return std::filesystem::status(path).permissions();
}

TEST(OutputFile, ANewOneHasTheModeOfTheUmask) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "page.html";
  const mode_t before = umask(027);
  EXPECT_EQ(write_whole(path, "text"), "");
  umask(before);
  EXPECT_EQ(permissions(path), std::filesystem::perms(0640));
}

TEST(OutputFile, AnOldOneKeepsItsMode) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "page.html";
  EXPECT_EQ(write_whole(path, "old"), "");
  std::filesystem::permissions(path, std::filesystem::perms(0604));
  EXPECT_EQ(write_whole(path, "new"), "");
  EXPECT_EQ(permissions(path), std::filesystem::perms(0604));
}

TEST(OutputFile, LinksAreFollowed) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.path() / "inner");
  const auto link = folder.path() / "link";
  std::filesystem::create_symlink("second", link);
  std::filesystem::create_symlink("inner/file", folder.path() / "second");
  for (const char* text : {"to nothing yet", "to a file"}) {
    EXPECT_EQ(write_whole(link, text), "");
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << text;
    EXPECT_EQ(text_of(folder.path() / "inner/file"), text);
  }
}

TEST(OutputFile, AnOpenOldFileKeepsTheOldText) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "metrics.prom";
  EXPECT_EQ(write_whole(path, "old"), "");
  std::ifstream reader(path);
  EXPECT_EQ(write_whole(path, "new and longer"), "");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
}

TEST(OutputFile, AMissingFolderIsNamed) {
  const TemporaryFolder folder;
  const auto path = (folder.path() / "nowhere/metrics.prom").string();
  EXPECT_EQ(write_whole(path, "text"), path + ": No such file or directory");
}

TEST(OutputFile, AFolderIsNotReplaced) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "folder";
  std::filesystem::create_directory(path);
  EXPECT_EQ(write_whole(path, "text"), path.string() + ": Is a directory");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

std::size_t files_in(const std::filesystem::path& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(OutputFile, ALoopOfLinksIsAnError) {
  const TemporaryFolder folder;
  const auto path = (folder.path() / "loop").string();
  std::filesystem::create_symlink("loop", path);
  EXPECT_EQ(write_whole(path, "text"), path + ": Too many levels of symbolic links");
}

TEST(OutputFile, AFifoIsLeftAloneWithAndWithoutAReader) {
  const TemporaryFolder folder;
  const auto path = (folder.path() / "fifo").string();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(write_whole(path, "text"), path + ": not a regular file");
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(write_whole(path, "text"), path + ": not a regular file");
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
  EXPECT_EQ(files_in(folder.path()), 1U);
}

TEST(OutputFile, ADeviceIsLeftAlone) {
  EXPECT_EQ(write_whole("/dev/null", "text"), "/dev/null: not a regular file");
}

TEST(OutputFile, AReplacementNeverHasMoreRightsThanANewFile) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "page.html";
  const mode_t before = umask(027);
  for (const unsigned planted : {0777U, 0666U, 04755U, 02777U, 01644U}) {
    EXPECT_EQ(write_whole(path, "old"), "");
    std::filesystem::permissions(path, std::filesystem::perms(planted));
    EXPECT_EQ(write_whole(path, "new"), "");
    EXPECT_EQ(permissions(path), std::filesystem::perms(0640)) << std::oct << planted;
  }
  umask(before);
}

TEST(OutputFile, AFailureLeavesNothingBehind) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "full.html";
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto* ignored = std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR ? "" : "ignored";
  ASSERT_STREQ(ignored, "ignored");
  rlimit small = before;
  small.rlim_cur = 10;
  setrlimit(RLIMIT_FSIZE, &small);
  const std::string error = write_whole(path, std::string(1000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(error, path.string() + ": File too large");
  EXPECT_EQ(files_in(folder.path()), 0U);
}

/// Attacks by another user. Only root can act as both.
class OutputFileOfTwoUsers : public testing::Test {
 protected:
  static constexpr uid_t OTHER = 54321;

  OutputFileOfTwoUsers() {
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    std::filesystem::create_directory(folder.path() / "open");
    std::filesystem::permissions(folder.path() / "open", std::filesystem::perms(01777));
    std::ofstream(victim) << "precious";
  }

  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can act for two users";
    }
  }

  /// Runs a function as the other user. Returns its text.
  static std::string as_other(const std::function<std::string()>& function) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
      const bool changed = setgroups(0, nullptr) == 0 && setgid(OTHER) == 0 && setuid(OTHER) == 0;
      const std::string text = changed ? function() : "cannot become another user";
      _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::array<char, 4096> text{};
    const ssize_t length = read(ends[0], text.data(), text.size());
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return {text.data(), static_cast<std::size_t>(length)};
  }

  void plant_link(const std::filesystem::path& target, const std::filesystem::path& link) const {
    std::filesystem::create_symlink(target, link);
    ASSERT_EQ(lchown(link.c_str(), OTHER, OTHER), 0);
  }

  TemporaryFolder folder;
  std::filesystem::path shared = folder.path() / "open";
  std::filesystem::path victim = folder.path() / "victim";
};

TEST_F(OutputFileOfTwoUsers, ALinkOfTheOtherIsNotFollowed) {
  const auto link = shared / "index.html";
  plant_link(victim, link);
  EXPECT_EQ(write_whole(link, "text"), link.string() + ": the link 'index.html' belongs to another user");
  EXPECT_EQ(text_of(victim), "precious");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(files_in(shared), 1U);
}

TEST_F(OutputFileOfTwoUsers, AFolderOfTheOthersThatWasMadeALinkIsNotFollowed) {
  // The owner of /var/lib/prometheus can do this with its subfolder.
  const auto parent = folder.path() / "theirs";
  std::filesystem::create_directory(parent);
  ASSERT_EQ(chown(parent.c_str(), OTHER, OTHER), 0);
  plant_link(folder.path(), parent / "metrics");
  const auto path = parent / "metrics/victim";
  EXPECT_EQ(write_whole(path, "text"), path.string() + ": the link 'metrics' belongs to another user");
  EXPECT_EQ(text_of(victim), "precious");
}

TEST_F(OutputFileOfTwoUsers, ALinkOfTheOtherBehindALinkOfRootIsNotFollowed) {
  plant_link(victim, shared / "second");
  std::filesystem::create_symlink("open/second", folder.path() / "first");
  const auto path = folder.path() / "first";
  EXPECT_EQ(write_whole(path, "text"), path.string() + ": the link 'second' belongs to another user");
  EXPECT_EQ(text_of(victim), "precious");
}

TEST_F(OutputFileOfTwoUsers, LinksOfRootAndOnesOwnAreFollowedByAnOrdinaryUser) {
  std::filesystem::create_symlink("of-other", shared / "of-root");
  plant_link("file", shared / "of-other");
  EXPECT_EQ(as_other([&] { return write_whole(shared / "of-root", "text"); }), "");
  EXPECT_EQ(text_of(shared / "file"), "text");
}

TEST_F(OutputFileOfTwoUsers, AnOrdinaryUserDoesNotFollowTheLinkOfAThird) {
  const auto link = shared / "index.html";
  std::filesystem::create_symlink("file", link);
  ASSERT_EQ(lchown(link.c_str(), OTHER + 1, OTHER + 1), 0);
  EXPECT_EQ(as_other([&] { return write_whole(link, "text"); }),
            link.string() + ": the link 'index.html' belongs to another user");
  EXPECT_FALSE(std::filesystem::exists(shared / "file"));
}

TEST_F(OutputFileOfTwoUsers, APlantedFileIsReplacedByOneOfTheCaller) {
  const auto path = shared / "index.html";
  std::ofstream(path) << "planted";
  ASSERT_EQ(chown(path.c_str(), OTHER, OTHER), 0);
  ASSERT_EQ(chmod(path.c_str(), 06666), 0);
  const mode_t before = umask(027);
  EXPECT_EQ(write_whole(path, "text"), "");
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, getegid());
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(OutputFileOfTwoUsers, TheGroupOfOnesOwnFileIsKept) {
  const auto path = folder.path() / "index.html";
  EXPECT_EQ(write_whole(path, "old"), "");
  ASSERT_EQ(chown(path.c_str(), 0, OTHER), 0);
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  EXPECT_EQ(write_whole(path, "new"), "");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, OTHER);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(OutputFileOfTwoUsers, AFifoOfTheOtherDoesNotBlock) {
  const auto path = shared / "index.html";
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  ASSERT_EQ(chown(path.c_str(), OTHER, OTHER), 0);
  EXPECT_EQ(write_whole(path, "text"), path.string() + ": not a regular file");
}

TEST_F(OutputFileOfTwoUsers, NothingGetsPastTheCheckWhileTheOtherSwapsLinkAndFile) {
  const auto theirs = folder.path() / "theirs";
  std::filesystem::create_directory(theirs);
  std::filesystem::create_directory(theirs / "page");
  plant_link(folder.path(), theirs / "link");
  ASSERT_EQ(chown(theirs.c_str(), OTHER, OTHER), 0);
  const pid_t swapper = fork();
  if (swapper == 0) {
    if (setgid(OTHER) != 0 || setuid(OTHER) != 0) {
      _exit(1);
    }
    for (;;) {
      renameat2(AT_FDCWD, (theirs / "page").c_str(), AT_FDCWD, (theirs / "link").c_str(), RENAME_EXCHANGE);
    }
  }
  int written = 0;
  int refused = 0;
  for (int i = 0; i < 2000 && (written < 20 || refused < 20); ++i) {
    (write_whole(theirs / "page/victim", "text").empty() ? written : refused) += 1;
  }
  kill(swapper, SIGKILL);
  int status = 0;
  waitpid(swapper, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_GT(written, 0);
  EXPECT_GT(refused, 0);
  EXPECT_EQ(text_of(victim), "precious");
}

}  // namespace
