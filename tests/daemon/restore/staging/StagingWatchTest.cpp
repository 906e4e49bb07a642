#include "daemon/restore/staging/StagingWatch.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>

#include "platform/files/Descriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"

namespace keldane::testing {
namespace {

TEST(StagingWatchTest, TellsTheBytesThatAreThere) {
  const TemporaryFolder folder;
  folder.write("a", std::string(1000, 'x'));
  folder.write("b/c", std::string(234, 'x'));
  const Descriptor opened(open(folder.path().c_str(), O_RDONLY | O_CLOEXEC));
  std::atomic<std::uint64_t> told = 0;
  {
    const StagingWatch watch(opened.get(), [&](std::uint64_t bytes) { told = bytes; });
    EXPECT_TRUE(eventually([&] { return told == 1234U; }));
  }
  told = 0;
  folder.write("d", "more");
  EXPECT_EQ(told, 0U);
}

}  // namespace
}  // namespace keldane::testing
