#include "daemon/engine/restic/output/ResticFailure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace keldane::testing {
namespace {

EngineAnswer judged(const std::string& errors, int exitStatus = 1) {
  ChildEnd end;
  end.exitStatus = exitStatus;
  return judgedEnd(end, errors, Secrets());
}

Health healthOf(const std::string& errors, int exitStatus = 1) { return judged(errors, exitStatus).health; }

TEST(ResticFailureTest, ReadsTheWordsOfOldVersions) {
  const std::string where = "Is there a repository at the following location?\nrest:http://u:***@h/\n";
  EXPECT_EQ(healthOf("Fatal: wrong password or no key found"), Health::wrongKey);
  EXPECT_EQ(
      healthOf(
          "unable to create lock in backend: repository is already locked by PID 1 on vm by root (UID 0)"),
      Health::locked);
  EXPECT_EQ(
      healthOf("Fatal: unable to open config file: stat /r/config: no such file or directory\n" + where),
      Health::missing);
  EXPECT_EQ(healthOf("Fatal: unable to open config file: <config/> does not exist\n" + where),
            Health::missing);
  EXPECT_EQ(
      healthOf(
          "Fatal: unable to open config file: client.Head: Head \"http://h/config\": dial tcp 127.0.0.1:1: "
          "connect: connection refused\n" +
          where),
      Health::unreachable);
  EXPECT_EQ(
      healthOf("Fatal: unable to open config file: client.Head: dial tcp: lookup h: no such host\n" + where),
      Health::unreachable);
  EXPECT_EQ(healthOf("Fatal: unable to open config file: unexpected HTTP response (401): 401 Unauthorized\n" +
                     where),
            Health::denied);
  EXPECT_EQ(
      healthOf("subprocess ssh: ssh: connect to host h port 22: Connection refused\nFatal: unable to open "
               "repository at sftp:h:/x: unable to start the sftp session, error: EOF"),
      Health::unreachable);
  EXPECT_EQ(
      healthOf(
          "subprocess ssh: u@h: Permission denied (publickey).\nFatal: unable to open repository at sftp:h: "
          "unable to start the sftp session, error: EOF"),
      Health::denied);
  EXPECT_EQ(healthOf("Fatal: unable to save snapshot: write /r/tmp: no space left on device"), Health::full);
  EXPECT_EQ(healthOf("decrypting blob 12 failed: ciphertext verification failed"), Health::damaged);
  EXPECT_EQ(healthOf("Fatal: something that nobody knows"), Health::failed);
}

TEST(ResticFailureTest, ReadsTheExitStatusesOfNewVersions) {
  EXPECT_EQ(healthOf("", 10), Health::missing);
  EXPECT_EQ(healthOf("", 11), Health::locked);
  EXPECT_EQ(healthOf("", 12), Health::wrongKey);
  EXPECT_EQ(healthOf("", 0), Health::ready);
}

TEST(ResticFailureTest, TellsWhenNoMoreTryHasAChance) {
  constexpr const char* kRefused =
      "Stat(<config/>) returned error, retrying after 896.0ms: dial tcp 127.0.0.1:9: connect: connection "
      "refused";
  constexpr const char* kLater = "Load(<data/1>) returned error, retrying after 896.0ms: connection refused";
  EXPECT_TRUE(triesInVain(kRefused, false, false));
  EXPECT_FALSE(triesInVain(kLater, false, false)) << "the server may come back";
  EXPECT_TRUE(triesInVain(kLater, false, true));
  constexpr const char* kLost = "Save(<data/f9264ca0e7>) failed: ssh command exited: exit status 255";
  EXPECT_TRUE(triesInVain(kLost, false, true));
  EXPECT_FALSE(triesInVain(kLost, false, false));
  EXPECT_FALSE(triesInVain("Fatal: unable to open config file: connection refused", false, true));
}

TEST(ResticFailureTest, TellsTheLineThatDecided) {
  EXPECT_EQ(judged("some noise\nFatal: disk: No Space Left On Device.\nmore noise\n").detail,
            "No room is left where the repository is: disk: No Space Left On Device. Make room there, or "
            "keep fewer "
            "versions.");
  EXPECT_EQ(judged("noise\nFatal: odd thing\nnoise").detail, "The storage program failed: odd thing.");
  EXPECT_EQ(judged("").detail, "The storage program failed: exit status 1.");
  const std::string lengthy = judged("Fatal: " + std::string(1000, 'x') + "ü").detail;
  EXPECT_LT(lengthy.size(), 400U);
}

TEST(ResticFailureTest, TellsEndsThatAreNoneOfTheProgramsOwn) {
  ChildEnd end;
  end.signal = 9;
  EXPECT_EQ(judgedEnd(end, "", Secrets()).health, Health::failed);
  end.cancelled = true;
  EXPECT_EQ(judgedEnd(end, "", Secrets()).health, Health::cancelled);
  end = ChildEnd();
  end.exitStatus = 130;
  EXPECT_EQ(judgedEnd(end, "\x1b[2Ksignal interrupt received, cleaning up\n", Secrets()).detail,
            "The storage program failed: something interrupted it.");
  end = ChildEnd();
  end.startError = ENOENT;
  EXPECT_EQ(judgedEnd(end, "", Secrets()).health, Health::engineMissing);
  end.startError = EMFILE;
  EXPECT_EQ(judgedEnd(end, "", Secrets()).health, Health::failed);
}

TEST(ResticFailureTest, HasASentenceForEachHealth) {
  for (int health = static_cast<int>(Health::notSetUp); health <= static_cast<int>(Health::failed);
       ++health) {
    const EngineAnswer answer = answerFor(static_cast<Health>(health));
    EXPECT_EQ(static_cast<int>(answer.health), health);
    EXPECT_THAT(answer.detail, ::testing::EndsWith("."));
  }
  EXPECT_EQ(answerFor(Health::ready).detail, "");
}

}  // namespace
}  // namespace keldane::testing
