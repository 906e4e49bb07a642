#include "daemon/engine/RepositoryConfig.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

TEST(RepositoryConfigTest, everythingThatIsKnownOfARepositoryIsKept) {
  const testing::TemporaryFolder folder;
  RepositoryConfig configuration;
  configuration.location = "sftp:host:folder";
  configuration.repositoryId = "12ab";
  configuration.computerNumber = 5;
  configuration.hostName = "alpha";
  configuration.formerComputer = 4;
  configuration.formerHighest = 17;
  configuration.fileSystemUuid = "uuid";
  configuration.options = {{"sftp.command", "ssh host"}};
  RepositoryFiles({folder / "data"}).setConfiguration(configuration);

  const RepositoryConfig kept = RepositoryFiles({folder / "data"}).configuration().value();
  EXPECT_EQ(kept.location, configuration.location);
  EXPECT_EQ(kept.repositoryId, configuration.repositoryId);
  EXPECT_EQ(kept.computerNumber, configuration.computerNumber);
  EXPECT_EQ(kept.hostName, configuration.hostName);
  EXPECT_EQ(kept.formerComputer, configuration.formerComputer);
  EXPECT_EQ(kept.formerHighest, configuration.formerHighest);
  EXPECT_EQ(kept.fileSystemUuid, configuration.fileSystemUuid);
  EXPECT_EQ(kept.options, configuration.options);
}

}  // namespace
}  // namespace keldane
