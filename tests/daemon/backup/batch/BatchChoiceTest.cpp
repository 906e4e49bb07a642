#include "daemon/backup/batch/BatchChoice.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

class BatchChoiceTest : public ::testing::Test {
 protected:
  // The files in "/1…" belong to user 1.
  void add(const std::string& path, std::uint64_t bytes) {
    pending_.add(path, bytes, static_cast<uid_t>(path[1] - '0'));
  }
  static std::string pathsOf(const std::vector<PendingFiles::File>& files) {
    std::string text;
    for (const PendingFiles::File& file : files) {
      text += (text.empty() ? "" : " ") + file.path;
    }
    return text;
  }
  static constexpr BatchBounds kAll = {100, kLargeFile};
  PendingFiles pending_;
  BatchChoice choice_{pending_};
};

TEST_F(BatchChoiceTest, TakesOfEachOwnerTheFirstFiles) {
  for (const char* path : {"/1/a", "/1/b", "/1/c", "/1/d", "/2/a", "/2/b", "/2/c"}) {
    add(path, 1);
  }
  EXPECT_EQ(pathsOf(choice_.ordinary({4, 100}).files), "/1/a /1/b /2/a /2/b");
  EXPECT_EQ(pathsOf(choice_.ordinary(kAll).files), "/1/a /1/b /1/c /1/d /2/a /2/b /2/c");
}

TEST_F(BatchChoiceTest, LargeFilesGoByThemselves) {
  add("/1/large", kLargeFile);
  add("/1/small", kLargeFile - 1);
  add("/2/large", kLargeFile * 2);
  const BatchChoice::Choice choice = choice_.ordinary(kAll);
  EXPECT_EQ(pathsOf(choice.files), "/1/small");
  ASSERT_EQ(choice.large.size(), 2U);
  EXPECT_EQ(choice.large[0].path, "/1/large");
  EXPECT_EQ(choice.large[1].owner, 2U);
  EXPECT_FALSE(choice.large[1].isPreferred);
}

TEST_F(BatchChoiceTest, PreferredFilesComeInTheirOrderAndNotAmongTheOthers) {
  for (const char* path : {"/1/a", "/1/b", "/1/c", "/2/z"}) {
    add(path, 1);
  }
  add("/2/large", kLargeFile);
  for (const char* path : {"/1/c", "/1/a", "/2/z", "/2/large", "/not-pending"}) {
    pending_.preferNext(path);
  }
  EXPECT_EQ(pathsOf(choice_.preferred(kAll).files), "/1/c /1/a /2/z");
  EXPECT_EQ(pathsOf(choice_.preferred({2, 100}).files), "/1/c /2/z");
  EXPECT_EQ(pathsOf(choice_.ordinary(kAll).files), "/1/b");
  ASSERT_EQ(choice_.preferredLarge().size(), 1U);
  EXPECT_EQ(choice_.preferredLarge()[0].path, "/2/large");
  EXPECT_TRUE(choice_.preferredLarge()[0].isPreferred);
}

}  // namespace
}  // namespace keldane
