#include "daemon/engine/restic/program/SftpCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace keldane::testing {
namespace {

TEST(SftpCommandTest, NamesTheServerAsTheLocationDoes) {
  EXPECT_THAT(sftpCommand("sftp:me@host:/srv/backup").value(),
              ::testing::EndsWith("ServerAliveCountMax=3 me@host -s sftp"));
  EXPECT_THAT(sftpCommand("sftp:host:relative").value(), ::testing::EndsWith(" host -s sftp"));
  EXPECT_THAT(sftpCommand("sftp://me@host:2222//srv").value(),
              ::testing::EndsWith(" -p 2222 me@host -s sftp"));
  EXPECT_THAT(sftpCommand("sftp://host/srv").value(), ::testing::EndsWith("=3 host -s sftp"));
}

TEST(SftpCommandTest, LeavesTheRestToTheStorageProgram) {
  EXPECT_EQ(sftpCommand("rest:http://host/"), std::nullopt);
  EXPECT_EQ(sftpCommand("sftp:-oProxyCommand=x:/srv"), std::nullopt);
  EXPECT_EQ(sftpCommand("sftp:a b:/srv"), std::nullopt);
  EXPECT_EQ(sftpCommand("sftp://[::1]:22/srv"), std::nullopt);
  EXPECT_EQ(sftpCommand("sftp:"), std::nullopt);
}

}  // namespace
}  // namespace keldane::testing
