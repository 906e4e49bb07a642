#include "daemon/backup/batch/Manifest.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

ManifestHead head() {
  ManifestHead head;
  head.computerNumber = 5;
  head.number = 17;
  head.date = 1234.5;
  head.full = true;
  head.prefix = "/p";
  head.rules = {{"/a \"b\"", true}, {"/c", false}};
  head.types = {{".txt", 6}};
  head.settings = {{"enabled", "1"}};
  head.profile = {{"ServerURL", "x"}};
  return head;
}

TEST(ManifestTest, ReadsWhatItWrote) {
  const testing::TemporaryFolder folder;
  const std::string file = folder / "m/17/keldane-manifest.jsonl";
  const ManifestFile entry{"/d/ü\n", {1, 2, 3}, 9, 0.25};
  writeManifest(file, head(), [&](const auto& write) { write(entry); });
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  std::ifstream stream(file);
  std::vector<ManifestFile> files;
  const std::optional<ManifestHead> read =
      readManifest(stream, [&](const ManifestFile& found) { files.push_back(found); });
  ASSERT_TRUE(read);
  EXPECT_EQ(read->computerNumber, 5U);
  EXPECT_EQ(read->number, 17U);
  EXPECT_EQ(read->date, 1234.5);
  EXPECT_TRUE(read->full);
  EXPECT_EQ(read->prefix, "/p");
  EXPECT_EQ(read->rules, head().rules);
  EXPECT_EQ(read->types, head().types);
  EXPECT_EQ(read->settings, head().settings);
  EXPECT_EQ(read->profile, head().profile);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(files[0].path, entry.path);
  EXPECT_EQ(files[0].state, entry.state);
  EXPECT_EQ(files[0].version, 9U);
  EXPECT_EQ(files[0].date, 0.25);
}

TEST(ManifestTest, WhatIsNoManifestIsAbsent) {
  for (const char* text : {"", "{}", "[1]", "no JSON", "{\"keldaneManifest\": 99}"}) {
    std::istringstream stream(text);
    EXPECT_FALSE(readManifest(stream, [](const ManifestFile&) {})) << text;
  }
}

TEST(ManifestTest, ALineThatCannotBeReadIsPassedOver) {
  const testing::TemporaryFolder folder;
  const std::string file = folder / "keldane-manifest.jsonl";
  writeManifest(file, head(), [](const auto& write) { write({"/a", {}, 1, 0}); });
  std::ofstream(file, std::ios::app) << "[\"/b\"]\nrubbish\n[\"/c\",2,3,4,5,6]\n";
  std::ifstream stream(file);
  std::vector<std::string> paths;
  EXPECT_TRUE(readManifest(stream, [&](const ManifestFile& found) { paths.push_back(found.path); }));
  EXPECT_EQ(paths, (std::vector<std::string>{"/a", "/c"}));
}

TEST(ManifestTest, ANameThatIsNoTextIsLeftOut) {
  const testing::TemporaryFolder folder;
  const std::string file = folder / "keldane-manifest.jsonl";
  writeManifest(file, head(), [](const auto& write) { write({"/a\xff", {}, 1, 0}); });
  std::ifstream stream(file);
  int files = 0;
  EXPECT_TRUE(readManifest(stream, [&](const ManifestFile&) { ++files; }));
  EXPECT_EQ(files, 0);
}

TEST(ManifestTest, AFolderThatCannotBeWrittenIsAnError) {
  EXPECT_THROW(writeManifest("/proc/none/m", head(), [](const auto&) {}), std::exception);
}

}  // namespace
}  // namespace keldane
