#include "clients/ctl/service/ServiceLog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::readWhole;
using testing::TemporaryFolder;

TEST(ServiceLog, GoesOnWithItsFile) {
  const TemporaryFolder folder;
  const std::string file = folder / "a/b/log";
  ServiceLog(file).write("first\n");
  ServiceLog(file).write("second\n");
  EXPECT_EQ(readWhole(file), "first\nsecond\n");
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(ServiceLog, KeepsOneFileBeforeTheLast) {
  const TemporaryFolder folder;
  const std::string file = folder / "log";
  ServiceLog log(file, 10);
  for (const char* line : {"123456\n", "abcdef\n", "ABCDEF\n"}) {
    log.write(line);
  }
  EXPECT_EQ(readWhole(file), "ABCDEF\n");
  EXPECT_EQ(readWhole(file + ".1"), "abcdef\n");
  EXPECT_FALSE(std::filesystem::exists(file + ".2"));
}

TEST(ServiceLog, LosesWhatCannotBeWritten) {
  const TemporaryFolder folder;
  ServiceLog log(folder.write("file", "") + "/log");
  log.write("lost\n");
  EXPECT_EQ(readWhole(folder / "file"), "");
}

}  // namespace
}  // namespace keldane
