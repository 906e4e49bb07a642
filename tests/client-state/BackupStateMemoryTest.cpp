// Tests of the account values that are remembered for times when the daemon is away.
#include <gtest/gtest.h>

#include "client-state/DefaultsDB.h"
#include "tests/client-state/BackupStateFixture.h"

namespace keldane {

/// Gives a test access to private operations.
class BackupStatePrivateMethods {
 public:
  static PropertyList proxyOrCacheStringWithArg(const BackupState& state, std::string_view method,
                                                const PropertyList& arg, const char* forItem) {
    return state.proxyOrCacheStringWithArg(method, arg, forItem);
  }
};

namespace {

using testing::BackupStateTest;

struct Remembered {
  const char* label;
  const char* method;
  const char* key;
  PropertyList (BackupState::*read)() const;
};

void PrintTo(const Remembered& row, std::ostream* out) { *out << row.label; }

class RememberedText : public BackupStateTest, public ::testing::WithParamInterface<Remembered> {
 protected:
  PropertyList read() const { return (state_.*GetParam().read)(); }
};

TEST_P(RememberedText, IsTheStoredOneWhileTheDaemonIsAway) {
  user_.store({{GetParam().key, "stored"}});
  EXPECT_EQ(read(), PropertyList("stored"));
}

TEST_P(RememberedText, IsEmptyWhenNobodyKnows) { EXPECT_EQ(read(), PropertyList("")); }

TEST_P(RememberedText, IsTheDaemonsAndIsWrittenOnceWhenItDiffers) {
  user_.store({{GetParam().key, "old"}, {"other", 1}});
  connect();
  daemon_->answer(GetParam().method, "new");
  testing::Writes writes(user_);
  EXPECT_EQ(read(), PropertyList("new"));
  EXPECT_EQ(writes.count(), 1U);
  EXPECT_EQ(user_.stored()[GetParam().key], PropertyList("new"));
  EXPECT_EQ(user_.stored()["other"], PropertyList(1));
  EXPECT_EQ(read(), PropertyList("new"));
  EXPECT_EQ(writes.count(), 1U);
  state_.onEnd();
  EXPECT_EQ(read(), PropertyList("new"));
}

TEST_P(RememberedText, IsNotWrittenWhenItIsTheSame) {
  user_.store({{GetParam().key, "same"}});
  connect();
  daemon_->answer(GetParam().method, "same");
  const ino_t before = user_.writeMark();
  EXPECT_EQ(read(), PropertyList("same"));
  EXPECT_EQ(user_.writeMark(), before);
}

TEST_P(RememberedText, OfADaemonWithoutAnAnswerIsEmptyAndStoredAsSuch) {
  connect();
  EXPECT_EQ(read(), PropertyList(""));
  EXPECT_EQ(user_.stored()[GetParam().key], PropertyList(""));
}

TEST_P(RememberedText, OfAnotherKindIsEmptyAndStoredAsSuch) {
  user_.store({{GetParam().key, "stored"}});
  connect();
  daemon_->answer(GetParam().method, PropertyList::array({1, "x"}));
  EXPECT_EQ(read(), PropertyList(""));
  EXPECT_EQ(user_.stored()[GetParam().key], PropertyList(""));
}

TEST_P(RememberedText, StaysWhenTheDaemonDiesWhileItIsAsked) {
  user_.store({{GetParam().key, "stored"}});
  connect();
  diesWhenAsked(GetParam().method);
  EXPECT_EQ(read(), PropertyList("stored"));
  EXPECT_EQ(user_.stored()[GetParam().key], PropertyList("stored"));
}

INSTANTIATE_TEST_SUITE_P(
    BackupState, RememberedText,
    ::testing::Values(Remembered{"ServerURL", "serverURL", "lastServerURLStr", &BackupState::serverURL},
                      Remembered{"UserEmail", "userEmail", "lastAcctEmailStr", &BackupState::userEmail},
                      Remembered{"SkinId", "stringValueForProfileKey:", "lastSkinIdStr",
                                 &BackupState::skinId}),
    testing::byLabel);

TEST_F(BackupStateTest, AsksForTheSkinByItsProfileKey) {
  connect();
  daemon_->answer("stringValueForProfileKey:", "blue");
  EXPECT_EQ(state_.skinId(), PropertyList("blue"));
  EXPECT_EQ(daemon_->calls(),
            (std::vector<testing::DaemonCall>{{"stringValueForProfileKey:", {PropertyList("SkinId")}}}));
}

TEST_F(BackupStateTest, SendsAMethodWithoutAColonWithoutAnArgument) {
  connect();
  daemon_->answer("userEmail", "a@b");
  EXPECT_EQ(BackupStatePrivateMethods::proxyOrCacheStringWithArg(state_, "userEmail", "argument", "key"),
            PropertyList("a@b"));
  EXPECT_EQ(daemon_->calls(), (std::vector<testing::DaemonCall>{{"userEmail", {}}}));
}

TEST_F(BackupStateTest, TheComputersNumberIsTheStoredOneWhileTheDaemonIsAway) {
  EXPECT_EQ(state_.computerNumber(), PropertyList(0));
  DefaultsDB::setIntProperty(7, "lastComputerNumberInt");
  EXPECT_EQ(state_.computerNumber(), PropertyList(7));
}

TEST_F(BackupStateTest, TheComputersNumberIsWrittenOnlyWhenItDiffers) {
  user_.store({{"lastComputerNumberInt", 7}});
  connect();
  daemon_->answer("computerNumber", 7);
  const ino_t before = user_.writeMark();
  EXPECT_EQ(state_.computerNumber(), PropertyList(7));
  EXPECT_EQ(user_.writeMark(), before);
  daemon_->answer("computerNumber", 8);
  testing::Writes writes(user_);
  EXPECT_EQ(state_.computerNumber(), PropertyList(8));
  EXPECT_EQ(writes.count(), 1U);
  EXPECT_EQ(user_.stored()["lastComputerNumberInt"], PropertyList(8));
}

TEST_F(BackupStateTest, TheComputersNumberStaysWhenTheDaemonDiesWhileItIsAsked) {
  user_.store({{"lastComputerNumberInt", 7}});
  connect();
  diesWhenAsked("computerNumber");
  EXPECT_EQ(state_.computerNumber(), PropertyList(7));
  EXPECT_EQ(user_.stored()["lastComputerNumberInt"], PropertyList(7));
}

TEST_F(BackupStateTest, TheStateAndTheQuotasLimitStayWhenTheDaemonDiesWhileItIsAsked) {
  connect();
  daemon_->answer("daemonState", PropertyList::dictionary({{"isQuotaLimited", true}}));
  state_.updateDaemonState();
  EXPECT_TRUE(state_.isQuotaLimited());
  diesWhenAsked("daemonState");
  state_.updateDaemonState();
  EXPECT_TRUE(state_.daemonState()["isQuotaLimited"].boolValue());
  EXPECT_TRUE(state_.isQuotaLimited());
  EXPECT_EQ(user_.stored()["isQuotaLimited"], PropertyList(1));
}

TEST_F(BackupStateTest, AComputersNumberThatTheDaemonDoesNotKnowIsStoredAsZero) {
  connect();
  EXPECT_EQ(state_.computerNumber(), PropertyList(0));
  EXPECT_EQ(user_.stored()["lastComputerNumberInt"], PropertyList(0));
}

TEST_F(BackupStateTest, AComputersNumberOfAnotherKindIsANumberAllTheSame) {
  connect();
  daemon_->answer("computerNumber", "12");
  EXPECT_EQ(state_.computerNumber(), PropertyList(12));
  daemon_->answer("computerNumber", PropertyList::dictionary({{"a", 1}}));
  EXPECT_EQ(state_.computerNumber(), PropertyList(0));
}

TEST_F(BackupStateTest, TheQuotasLimitIsTheStoredOneWhileTheDaemonIsAway) {
  EXPECT_FALSE(state_.isQuotaLimited());
  for (const std::int32_t stored : {0, 1, 2, -1}) {
    DefaultsDB::setIntProperty(stored, "isQuotaLimited");
    EXPECT_EQ(state_.isQuotaLimited(), stored == 1) << stored;
  }
}

TEST_F(BackupStateTest, AStoredQuotasLimitOfAnyOtherNumberIsANoAlready) {
  connect();
  DefaultsDB::setIntProperty(2, "isQuotaLimited");
  testing::Writes writes(user_);
  EXPECT_FALSE(state_.isQuotaLimited());
  EXPECT_EQ(writes.count(), 0U);
  EXPECT_EQ(user_.stored()["isQuotaLimited"], PropertyList(2));
  DefaultsDB::setIntProperty(1, "isQuotaLimited");
  testing::Writes change(user_);
  EXPECT_FALSE(state_.isQuotaLimited());
  EXPECT_EQ(change.count(), 1U);
  EXPECT_EQ(user_.stored()["isQuotaLimited"], PropertyList(0));
}

TEST_F(BackupStateTest, TheQuotasLimitIsRememberedWhenItChanges) {
  connect();
  EXPECT_FALSE(state_.isQuotaLimited());
  EXPECT_EQ(user_.stored()["isQuotaLimited"], PropertyList(0)) << "nothing was stored, so it is written";
  const ino_t before = user_.writeMark();
  EXPECT_FALSE(state_.isQuotaLimited());
  EXPECT_EQ(user_.writeMark(), before);
  daemon_->answer("daemonState", PropertyList::dictionary({{"isQuotaLimited", true}}));
  state_.updateDaemonState();
  EXPECT_TRUE(state_.isQuotaLimited());
  EXPECT_EQ(user_.stored()["isQuotaLimited"], PropertyList(1));
  state_.onEnd();
  EXPECT_TRUE(state_.isQuotaLimited());
}

}  // namespace
}  // namespace keldane
