#include "daemon/engine/restic/program/ResticProgram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

class ResticProgramTest : public ::testing::Test {
 protected:
  std::string program(const std::string& line) const {
    std::string path =
        folder_.write("restic", "#!/bin/sh\necho x >> " + (folder_ / "runs") + "\n" + line + "\n");
    ::chmod(path.c_str(), 0755);
    return path;
  }
  ResticProgram::Found find(const std::string& path) {
    ResticProgram restic(path);
    return restic.find(job_);
  }
  TemporaryFolder folder_;
  EngineJob job_;
};

TEST_F(ResticProgramTest, FindsTheInstalledOne) {
  const ResticProgram::Found found = find("restic");
  EXPECT_EQ(found.answer.health, Health::ready) << found.answer.detail;
  EXPECT_THAT(found.path, ::testing::EndsWith("/restic"));
  EXPECT_GE(found.minor, 14U);
}

TEST_F(ResticProgramTest, TellsAMissingOne) {
  for (const std::string& name : {std::string("keldane-no-such-program"), folder_ / "none",
                                  folder_.write("text", "x"), std::string("./restic")}) {
    const ResticProgram::Found found = find(name);
    EXPECT_EQ(found.answer.health, Health::engineMissing) << name;
    EXPECT_THAT(found.answer.detail, ::testing::HasSubstr("Install"));
  }
}

TEST_F(ResticProgramTest, TellsOneThatIsTooOld) {
  const ResticProgram::Found found = find(program("echo restic 0.9.6 compiled with go1.13"));
  EXPECT_EQ(found.answer.health, Health::engineTooOld);
  EXPECT_THAT(found.answer.detail, ::testing::HasSubstr("restic 0.9.6. Install"));
  EXPECT_EQ(find(program("echo something else")).answer.health, Health::engineTooOld);
  EXPECT_EQ(find(program("echo restic 1.0.0")).minor, 999U);
  EXPECT_EQ(find(program("echo restic 0.18.1-dev")).minor, 18U);
  EXPECT_EQ(find(program("exit 3")).answer.health, Health::failed);
}

TEST_F(ResticProgramTest, AsksAgainOnlyWhenItHasChanged) {
  ResticProgram restic(program("echo restic 0.14.0"));
  EXPECT_EQ(restic.find(job_).minor, 14U);
  EXPECT_EQ(restic.find(job_).minor, 14U);
  EXPECT_EQ(readWhole(folder_ / "runs"), "x\n");
  program("echo restic 0.16.10");
  EXPECT_EQ(restic.find(job_).minor, 16U);
  job_.cancelled = true;
  program("echo restic 0.17.1111");
  EXPECT_EQ(restic.find(job_).answer.health, Health::cancelled);
  job_.cancelled = false;
  EXPECT_EQ(restic.find(job_).minor, 17U);
}

}  // namespace
}  // namespace keldane::testing
