#include "monitor/output_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST(OutputFile, AllMayReadIt) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "page.html";
  const mode_t before = umask(077);
  EXPECT_EQ(write_whole(path, "text"), "");
  umask(before);
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0644));
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
