#include "daemon/rules/IgnoreList.h"

#include <gtest/gtest.h>

#include "platform/files/UserFolders.h"

namespace keldane {
namespace {

TEST(IgnoreListTest, TheStandardNamesCachesAndTrash) {
  const IgnoreList list;
  EXPECT_EQ(list.match("/home/me/.cache", true), "~/.cache/");
  EXPECT_EQ(list.match("/root/.cache", true), "~/.cache/");
  EXPECT_EQ(list.match((homeFolder() / ".cache").string(), true), "~/.cache/");
  EXPECT_EQ(list.match("/home/me/project/.cache", true), "") << "not a home's own";
  EXPECT_EQ(list.match("/home/me/.cache", false), "") << "a file";
  EXPECT_EQ(list.match("/home/me/.local/share/Trash", true), ".local/share/Trash/");
  EXPECT_EQ(list.match("/media/disk/.Trash-1000", true), ".Trash-[0-9]*/");
  EXPECT_EQ(list.match("/media/disk/.Trash-me", true), "");
  for (const Mark mark : {Mark::cacheTag, Mark::attribute, Mark::otherFileSystem}) {
    EXPECT_TRUE(list.heeds(mark));
  }
  EXPECT_FALSE(list.heeds(Mark::none));
  EXPECT_FALSE(list.isForFiles());
}

TEST(IgnoreListTest, APersonsListReplacesTheStandard) {
  const IgnoreList list("# mine\n\n  *.iso \r\n/srv/[a-c]*/tmp\nbuild/out\n@attribute\n");
  EXPECT_EQ(list.match("/a/b/x.iso", false), "*.iso");
  EXPECT_EQ(list.match("/a/x.iso", true), "*.iso");
  EXPECT_EQ(list.match("/srv/bob/tmp", true), "/srv/[a-c]*/tmp");
  EXPECT_EQ(list.match("/srv/bob/x/tmp", true), "") << "a star stands for no slash";
  EXPECT_EQ(list.match("/other/srv/bob/tmp", true), "");
  EXPECT_EQ(list.match("/x/build/out", true), "build/out");
  EXPECT_EQ(list.match("/x/out", true), "");
  EXPECT_EQ(list.match("/home/me/.cache", true), "");
  EXPECT_EQ(list.match("# mine", false), "");
  EXPECT_TRUE(list.heeds(Mark::attribute));
  EXPECT_FALSE(list.heeds(Mark::cacheTag));
  EXPECT_TRUE(list.isForFiles());
}

TEST(IgnoreListTest, NothingIsIgnoredByAnEmptyListOrABrokenPattern) {
  for (const char* text : {"", "\n\n", "[", "/", "*/"}) {
    const IgnoreList list(text);
    EXPECT_EQ(list.match("/a/b", false), "") << text;
    EXPECT_FALSE(list.heeds(Mark::cacheTag));
  }
}

}  // namespace
}  // namespace keldane
