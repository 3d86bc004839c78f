#include "monitor/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
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

TEST(OutputFile, AFifoIsWrittenTo) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(write_whole(path, "text"), "");
  std::string text(10, ' ');
  EXPECT_EQ(read(reader, text.data(), text.size()), 4);
  close(reader);
  EXPECT_TRUE(std::filesystem::is_fifo(path));
}

TEST(OutputFile, WhoHasTheOldFileOpenReadsTheOldText) {
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

TEST(OutputFile, AFailedRenameLeavesNothingBehind) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "folder";
  std::filesystem::create_directory(path);
  EXPECT_EQ(write_whole(path, "text"), path.string() + ": Is a directory");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

}  // namespace
