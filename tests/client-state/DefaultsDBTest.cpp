#include "client-state/DefaultsDB.h"

#include <gtest/gtest.h>

#include "tests/support/UserPreferences.h"

namespace keldane {
namespace {

class DefaultsDBTest : public ::testing::Test {
 protected:
  /// Makes `lastReadOK` return `found`.
  void readSomething(bool found) {
    DefaultsDB::setIntProperty(1, "there");
    DefaultsDB::intProperty(found ? "there" : "not there");
    ASSERT_EQ(DefaultsDB::lastReadOK(), found);
  }
  testing::UserPreferences user_;
};

TEST_F(DefaultsDBTest, GivesTheNamesForAnnouncingAChange) {
  EXPECT_EQ(DefaultsDB::propertyChangedNotificationString(), "com.keldane.notify.defaultsPropertyChanged");
  EXPECT_EQ(DefaultsDB::propertyChangedSenderString(), "com.keldane.prefsPane");
}

TEST_F(DefaultsDBTest, ReadsABooleanAsTheStringYesExactly) {
  user_.store({{"yes", "YES"},
               {"no", "NO"},
               {"lower", "yes"},
               {"native", PropertyList::boolean(true)},
               {"one", 1},
               {"padded", "YES "}});
  EXPECT_TRUE(DefaultsDB::boolProperty("yes"));
  EXPECT_TRUE(DefaultsDB::lastReadOK());
  for (const char* key : {"no", "lower", "native", "one", "padded"}) {
    EXPECT_FALSE(DefaultsDB::boolProperty(key)) << key;
    EXPECT_TRUE(DefaultsDB::lastReadOK()) << key;
  }
  EXPECT_FALSE(DefaultsDB::boolProperty("absent"));
  EXPECT_FALSE(DefaultsDB::lastReadOK());
}

TEST_F(DefaultsDBTest, StoresABooleanAsText) {
  DefaultsDB::setBoolProperty(true, "a");
  DefaultsDB::setBoolProperty(false, "b");
  EXPECT_EQ(user_.stored(), PropertyList::dictionary({{"a", "YES"}, {"b", "NO"}}));
}

TEST_F(DefaultsDBTest, UsesTheDefaultBooleanOnlyForAMissingKey) {
  user_.store({{"no", "NO"}, {"yes", "YES"}});
  EXPECT_TRUE(DefaultsDB::boolProperty("absent", false, true));
  EXPECT_FALSE(DefaultsDB::boolProperty("absent", false, false));
  EXPECT_FALSE(DefaultsDB::boolProperty("no", false, true));
  EXPECT_TRUE(DefaultsDB::boolProperty("yes", false, false));
}

TEST_F(DefaultsDBTest, ReadsAnIntegerAsThePlatformDoes) {
  user_.store({{"number", 42},
               {"text", "42"},
               {"negative text", "-7 apples"},
               {"word", "apples"},
               {"real", 7.9},
               {"large", (std::int64_t{1} << 32) + 5},
               {"array", PropertyList::array({1})}});
  EXPECT_EQ(DefaultsDB::intProperty("number"), 42);
  EXPECT_EQ(DefaultsDB::intProperty("text"), 42);
  EXPECT_EQ(DefaultsDB::intProperty("negative text"), -7);
  EXPECT_EQ(DefaultsDB::intProperty("word"), 0);
  EXPECT_EQ(DefaultsDB::intProperty("real"), 7);
  EXPECT_EQ(DefaultsDB::intProperty("large"), 5);
  EXPECT_EQ(DefaultsDB::intProperty("array"), 0);
  EXPECT_TRUE(DefaultsDB::lastReadOK()) << "a value of another kind is a value";
  EXPECT_EQ(DefaultsDB::intProperty("absent"), 0);
  EXPECT_FALSE(DefaultsDB::lastReadOK());
}

TEST_F(DefaultsDBTest, UsesTheDefaultIntegerOnlyForAMissingKey) {
  user_.store({{"zero", 0}});
  EXPECT_EQ(DefaultsDB::intProperty("absent", false, 9), 9);
  EXPECT_EQ(DefaultsDB::intProperty("zero", false, 9), 0);
}

TEST_F(DefaultsDBTest, WritesAnIntegerThroughToStorage) {
  DefaultsDB::setIntProperty(5, "key");
  EXPECT_EQ(user_.stored()["key"], PropertyList(5));
  EXPECT_EQ(DefaultsDB::intProperty("key", true), 5);
  EXPECT_TRUE(DefaultsDB::lastReadOK());
  for (const std::int32_t extreme : {INT32_MIN, INT32_MAX}) {
    DefaultsDB::setIntProperty(extreme, "key");
    EXPECT_EQ(DefaultsDB::intProperty("key", true), extreme);
  }
}

TEST_F(DefaultsDBTest, KeepsAStringAsItIs) {
  DefaultsDB::setStringProperty("Grüße\n\"x\"", "key");
  EXPECT_EQ(user_.stored()["key"], PropertyList("Grüße\n\"x\""));
  EXPECT_EQ(DefaultsDB::stringProperty("key"), PropertyList("Grüße\n\"x\""));
  EXPECT_TRUE(DefaultsDB::lastReadOK());
  EXPECT_TRUE(DefaultsDB::stringProperty("absent").isAbsent());
  EXPECT_FALSE(DefaultsDB::lastReadOK());
}

TEST_F(DefaultsDBTest, GivesAStoredValueOfAnotherKindAsItIs) {
  user_.store({{"number", 5}});
  EXPECT_EQ(DefaultsDB::stringProperty("number"), PropertyList(5));
}

TEST_F(DefaultsDBTest, UsesTheDefaultStringOnlyForAMissingKey) {
  user_.store({{"empty", ""}});
  EXPECT_EQ(DefaultsDB::stringProperty("absent", false, "default"), PropertyList("default"));
  EXPECT_EQ(DefaultsDB::stringProperty("empty", false, "default"), PropertyList(""));
}

TEST_F(DefaultsDBTest, AWriteLeavesTheWordOnTheLastReadAlone) {
  for (const bool found : {true, false}) {
    readSomething(found);
    DefaultsDB::setIntProperty(1, "int");
    DefaultsDB::setBoolProperty(true, "bool");
    DefaultsDB::setStringProperty("x", "string");
    EXPECT_EQ(DefaultsDB::lastReadOK(), found);
  }
}

TEST_F(DefaultsDBTest, SeesWhatAnotherProcessWroteWhenItSynchronises) {
  user_.store({{"int", 1}, {"bool", "NO"}, {"string", "old"}});
  ASSERT_EQ(DefaultsDB::intProperty("int"), 1);
  user_.store({{"int", 2}, {"bool", "YES"}, {"string", "new"}});
  EXPECT_EQ(DefaultsDB::intProperty("int"), 1);
  EXPECT_EQ(DefaultsDB::intProperty("int", true), 2);
  user_.store({{"bool", "NO"}, {"string", "newer"}});
  EXPECT_TRUE(DefaultsDB::boolProperty("bool"));
  EXPECT_FALSE(DefaultsDB::boolProperty("bool", true));
  user_.store({{"string", "newest"}});
  EXPECT_EQ(DefaultsDB::stringProperty("string"), PropertyList("newer"));
  EXPECT_EQ(DefaultsDB::stringProperty("string", true), PropertyList("newest"));
}

TEST_F(DefaultsDBTest, AnAbsentStringTakesTheKeyAway) {
  DefaultsDB::setStringProperty("x", "key");
  DefaultsDB::setStringProperty({}, "key");
  EXPECT_TRUE(DefaultsDB::stringProperty("key", true).isAbsent());
}

TEST_F(DefaultsDBTest, AWriteThatFailsIsNotReported) {
  DefaultsDB::setIntProperty(1, "other");
  setenv("XDG_CONFIG_HOME", user_.file().c_str(), 1);  // a file where the folder belongs
  DefaultsDB::setIntProperty(5, "key");
  EXPECT_EQ(DefaultsDB::intProperty("key"), 5) << "it is known in memory all the same";
  EXPECT_TRUE(user_.stored()["key"].isAbsent());
}

TEST(DefaultsDBInANewProcess, HasReadNothing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // starts a new process
  EXPECT_EXIT(std::_Exit(DefaultsDB::lastReadOK() ? 1 : 0), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace keldane
