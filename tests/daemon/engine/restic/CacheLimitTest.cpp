#include "daemon/engine/restic/program/CacheLimit.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

TEST(CacheLimitTest, RemovesThePacksThatWereNotUsedForTheLongest) {
  const TemporaryFolder folder;
  const auto write = [&](const std::string& name, std::time_t used) {
    std::string path = folder.write(name, std::string(1000, 'x'));
    const timespec times[2] = {{used, 0}, {1, 0}};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    return path;
  };
  const std::string index = write("repository/index/00/1", 1);
  const std::string oldest = write("repository/data/00/2", 2);
  const std::string older = write("repository/data/01/3", 3);
  const std::string newest = write("repository/data/01/4", 4);
  limitCache(folder.path(), 4000);
  EXPECT_TRUE(std::filesystem::exists(oldest));
  limitCache(folder.path(), 2500);
  EXPECT_FALSE(std::filesystem::exists(oldest));
  EXPECT_FALSE(std::filesystem::exists(older));
  EXPECT_TRUE(std::filesystem::exists(newest));
  limitCache(folder.path(), 0);
  EXPECT_FALSE(std::filesystem::exists(newest));
  EXPECT_TRUE(std::filesystem::exists(index));
  limitCache(folder / "none", 0);
}

}  // namespace
}  // namespace keldane::testing
