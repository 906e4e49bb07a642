#include "daemon/store/snapshots/PathsByFolder.h"

#include <gtest/gtest.h>

#include <utility>

namespace keldane {
namespace {

TEST(PathsByFolderTest, KnowsWhatWasAdded) {
  PathsByFolder paths;
  EXPECT_FALSE(paths.contains("/a"));
  for (const char* path : {"/d/b", "/a", "/d/a", "/d", "/d/e/f", "/d/new\nline"}) {
    paths.add(path);
    EXPECT_TRUE(paths.contains(path)) << path;
  }
  EXPECT_EQ(paths.size(), 6U);
  for (const char* path : {"/d/a", "/a", "/d", "/d/e/f", "/d/new\nline", "/d/b"}) {
    EXPECT_TRUE(paths.contains(path)) << path;
  }
  for (const char* path : {"/b", "/d/e", "/d/", "/", "/d/new", "/e/f", "/d/e/f/g", ""}) {
    EXPECT_FALSE(paths.contains(path)) << path;
  }
}

TEST(PathsByFolderTest, AnswersAnewAfterAFolderGrew) {
  PathsByFolder paths({"/d/b"});
  EXPECT_FALSE(paths.contains("/d/a"));
  paths.add("/d/a");
  EXPECT_TRUE(paths.contains("/d/a"));
  const PathsByFolder moved = std::move(paths);
  EXPECT_TRUE(moved.contains("/d/b"));
  EXPECT_FALSE(moved.contains("/d/c"));
}

TEST(PathsByFolderTest, IsReadFolderByFolder) {
  const PathsByFolder paths({"/d/b", "/z", "/d/a", "/d/e/f", "/d/a"});
  ASSERT_EQ(paths.size(), 5U);
  PathsByFolder::Reader reader(paths);
  for (const char* path : {"/z", "/d/b", "/d/a", "/d/a", "/d/e/f"}) {
    EXPECT_EQ(reader.next(), path);
  }
}

}  // namespace
}  // namespace keldane
