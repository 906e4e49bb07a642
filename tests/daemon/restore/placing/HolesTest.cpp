#include "daemon/restore/placing/Holes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files/Descriptor.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

class HolesTest : public ::testing::Test {
 protected:
  struct stat made(const std::string& content, mode_t mode = 0644) {
    const std::string path = folder_.write("file", content);
    chmod(path.c_str(), mode);
    const timespec times[] = {{1, 2}, {3, 4}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
    const Descriptor folder(open(folder_.path().c_str(), O_RDONLY | O_CLOEXEC));
    makeHoles(folder.get(), "file", [] { return true; });
    struct stat status {};
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777, mode);
    EXPECT_EQ(status.st_mtim.tv_sec, 3);
    EXPECT_EQ(status.st_mtim.tv_nsec, 4);
    chmod(path.c_str(), 0644);
    EXPECT_EQ(readWhole(path), content);
    return status;
  }
  TemporaryFolder folder_;
};

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

TEST_F(HolesTest, TakesTheRoomOfZerosBack) {
  EXPECT_EQ(made(std::string(4 * kMegabyte, '\0')).st_blocks, 0);
  EXPECT_LT(made("begin" + std::string(4 * kMegabyte, '\0') + "end").st_blocks * 512, 256 * 1024);
}

TEST_F(HolesTest, LeavesModeAndContentOfAFileThatMayNotBeWritten) {
  EXPECT_LT(made(std::string(2 * kMegabyte, '\0') + "end", 0400).st_blocks * 512, 256 * 1024);
}

TEST_F(HolesTest, NeverChangesContent) {
  Random random(7);
  for (int round = 0; round < 5; ++round) {
    std::string content;
    while (content.size() < 2 * kMegabyte) {
      content.append(random.below(200'000), random.below(2) == 0 ? '\0' : 'x');
    }
    made(content);
  }
}

TEST_F(HolesTest, KeepsRunsOfZerosThatAreTooShort) {
  std::string content(2 * kMegabyte, '\0');
  for (std::size_t i = 0; i < content.size(); i += 60'000) {
    content[i] = 'x';
  }
  EXPECT_GE(made(content).st_blocks * 512, static_cast<blkcnt_t>(content.size()));
}

}  // namespace
}  // namespace keldane::testing
