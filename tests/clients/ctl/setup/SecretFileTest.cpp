#include "clients/ctl/setup/SecretFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <functional>

#include "clients/ctl/Session.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

const std::string kFileKey = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567ABCDEFGHIJKLMNOPQRST";

std::string failureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const CommandFailure& failure) {
    return failure.what();
  }
  return "none";
}

TEST(SecretFile, IsWrittenForItsOwnerAlone) {
  const testing::TemporaryFolder folder;
  writeSecretFile(folder / "key", "secret\n");
  struct stat status {};
  ASSERT_EQ(stat((folder / "key").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(testing::readWhole(folder / "key"), "secret\n");
}

TEST(SecretFile, OverwritesNothing) {
  const testing::TemporaryFolder folder;
  const std::string file = folder.write("there", "precious");
  EXPECT_EQ(failureOf([&] { writeSecretFile(file, "x"); }),
            file + " is there already and is not overwritten.");
  EXPECT_EQ(testing::readWhole(file), "precious");
  std::filesystem::create_symlink(folder / "elsewhere", folder / "link");
  EXPECT_NE(failureOf([&] { writeSecretFile(folder / "link", "x"); }), "none");
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
  EXPECT_NE(failureOf([&] { writeSecretFile(folder / "no/folder", "x"); }).find("cannot be written"),
            std::string::npos);
}

TEST(SecretFile, LeavesNothingBehindWhenThereIsNoRoom) {
  const testing::TemporaryFolder folder;
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{2, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string failure = failureOf([&] { writeSecretFile(folder / "key", "secret"); });
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(failure, "The file " + (folder / "key") + " cannot be written: File too large.");
  EXPECT_FALSE(std::filesystem::exists(folder / "key"));
}

TEST(SecretFile, ReadsAKeyAndSaysWhyItCannot) {
  const testing::TemporaryFolder folder;
  EXPECT_EQ(readKeyFile(folder.write("key", kFileKey + "\n")), kFileKey);
  const std::string wrong = folder.write("wrong", kFileKey + "AAAA");
  EXPECT_EQ(failureOf([&] { readKeyFile(wrong); }),
            wrong + " cannot be used. The check group does not fit the key: a letter was misread.");
  EXPECT_EQ(failureOf([&] { readKeyFile(folder / "none"); }),
            "The file " + (folder / "none") + " cannot be read: No such file or directory.");
  EXPECT_NE(
      failureOf([&] { readKeyFile(folder.write("large", std::string(70'000, 'x'))); }).find("too large"),
      std::string::npos);
}

TEST(SecretFile, ReadsAnEnvironment) {
  const PropertyList::Entries entries =
      environmentFrom("# keys\n\nA=1\r\n  export B_2=\"two words\"\nC='it''s'\nD=\nE=a=b\nF=\"open\n");
  const PropertyList environment = PropertyList::dictionary(entries);
  ASSERT_EQ(environment.count(), 6U);
  EXPECT_EQ(environment["A"].string(), "1");
  EXPECT_EQ(environment["B_2"].string(), "two words");
  EXPECT_EQ(environment["C"].string(), "it''s");
  EXPECT_EQ(environment["D"].string(), "");
  EXPECT_EQ(environment["E"].string(), "a=b");
  EXPECT_EQ(environment["F"].string(), "\"open");
}

TEST(SecretFile, NamesTheLineThatIsNoneAndNotWhatIsInIt) {
  for (const char* text : {"A=1\nsecret", "\n=secret", "# a\nA B=secret", "A=1\nA-B=secret"}) {
    EXPECT_EQ(failureOf([&] { environmentFrom(text); }), "Line 2 of the environment is not NAME=VALUE.")
        << text;
  }
}

}  // namespace
}  // namespace keldane
