#include "daemon/restore/RequestCheck.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

namespace keldane::testing {
namespace {

RestoreRequest requestFor(const std::string& path) {
  RestoreRequest request;
  request.items = {{path, 0}};
  request.user = geteuid();
  return request;
}

TEST(RequestCheckTest, BringsPathsIntoTheirPlainForm) {
  RestoreRequest request = requestFor("//a//b/");
  request.target = "/t/";
  EXPECT_EQ(refusalFor(request), "");
  EXPECT_EQ(request.items[0].path, "/a/b");
  EXPECT_EQ(request.target, "/t");
  request = requestFor("/");
  EXPECT_EQ(refusalFor(request), "");
  EXPECT_EQ(request.items[0].path, "/");
}

TEST(RequestCheckTest, RefusesPathsThatSayNothingByThemselves) {
  for (const std::string& path :
       {std::string("a"), std::string(), std::string("/a/../b"), std::string("/a/."), std::string("/a\0b", 4),
        "/" + std::string(300, 'x'), std::string(5000, '/')}) {
    RestoreRequest request = requestFor(path);
    EXPECT_EQ(refusalFor(request), "A path to restore is not usable.") << path;
    request = requestFor("/a");
    request.target = path;
    EXPECT_EQ(refusalFor(request), path.empty() ? "" : "The target is no usable path.") << path;
  }
}

TEST(RequestCheckTest, TakesAPathOfItsOwnForASingleItemOnly) {
  RestoreRequest request = requestFor("/a");
  request.exactPath = "/x";
  EXPECT_EQ(refusalFor(request), "");
  request.items.push_back({"/b", 0});
  EXPECT_EQ(refusalFor(request), "Only a single item can be restored to a path of its own.");
  request = requestFor("/a");
  request.exactPath = "/";
  EXPECT_NE(refusalFor(request), "");
  request.items.clear();
  EXPECT_EQ(refusalFor(request), "Nothing was named that could be restored.");
}

TEST(RequestCheckTest, RefusesAConflictThatIsNotKnown) {
  RestoreRequest request = requestFor("/a");
  request.conflict = static_cast<Conflict>(3);
  EXPECT_NE(refusalFor(request), "");
}

TEST(RequestCheckTest, RestoresForOthersAsRootOnly) {
  constexpr uid_t kOwn = 4123456;
  if (geteuid() != 0) {
    GTEST_SKIP() << "Only root can take another user's place.";
  }
  RestoreRequest request = requestFor("/a");
  request.user = kOwn;
  EXPECT_EQ(refusalFor(request), "");
  std::thread([&] {
    ASSERT_EQ(syscall(SYS_setresuid, kOwn, kOwn, kOwn), 0);  // changes this thread only
    EXPECT_EQ(refusalFor(request), "");
    request.user = 0;
    EXPECT_EQ(refusalFor(request), "");
    request.user = kOwn + 1;
    EXPECT_EQ(refusalFor(request), "Only a daemon that runs as the administrator restores for other users.");
  }).join();
}

}  // namespace
}  // namespace keldane::testing
