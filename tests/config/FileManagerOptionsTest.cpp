#include "config/FileManagerOptions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include "tests/support/UserPreferences.h"

namespace keldane {
namespace {

using testing::UserPreferences;

FileManagerOptions with(bool emblems, bool columns, bool restoreEntries) {
  return {emblems, columns, restoreEntries};
}

TEST(FileManagerOptionsTest, AreAllOnUntilSomebodySwitchesOneOff) {
  const UserPreferences user;
  EXPECT_EQ(FileManagerOptions::read(), with(true, true, true));
  user.store({{"ShowColumns", "NO"}, {"ShowRestoreEntries", "perhaps"}});
  EXPECT_EQ(FileManagerOptions::read(), with(true, false, true));
  user.store({{"ShowEmblems", "NO"}, {"ShowColumns", "YES"}, {"ShowRestoreEntries", "NO"}});
  EXPECT_EQ(FileManagerOptions::read(), with(false, true, false));
}

TEST(FileManagerOptionsTest, NeedTheStatusOfFilesForEmblemsAndForColumns) {
  EXPECT_TRUE(with(true, false, false).needStatus());
  EXPECT_TRUE(with(false, true, false).needStatus());
  EXPECT_FALSE(with(false, false, true).needStatus());
}

TEST(FileManagerSwitchTest, SetsItsOwnOptionInTheFileAndNothingElse) {
  const UserPreferences user;
  user.store({{"UserEmail", "someone@example.org"}});
  for (const FileManagerSwitch& each : kFileManagerSwitches) {
    EXPECT_TRUE(each.set(false));
    EXPECT_EQ(user.stored()[each.key], PropertyList("NO"));
    FileManagerOptions expected;
    expected.*each.option = false;
    EXPECT_EQ(FileManagerOptions::read(), expected);
    EXPECT_TRUE(each.set(true));
    EXPECT_EQ(user.stored()[each.key], PropertyList("YES"));
    EXPECT_EQ(FileManagerOptions::read(), FileManagerOptions());
  }
  EXPECT_EQ(user.stored()["UserEmail"], PropertyList("someone@example.org"));
}

TEST(FileManagerSwitchTest, LeavesTheOptionAsItWasWhenItCannotBeWritten) {
  const UserPreferences user;
  user.store({{"ShowEmblems", "NO"}});
  EXPECT_FALSE(FileManagerOptions::read().emblems);
  const Descriptor lock(
      open((user.folder() / ".com.keldane.preferences.plist.lock").c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  EXPECT_FALSE(kFileManagerSwitches[0].set(true));
  ASSERT_EQ(flock(lock.get(), LOCK_UN), 0);
  EXPECT_FALSE(FileManagerOptions::read().emblems);
  EXPECT_EQ(user.stored()["ShowEmblems"], PropertyList("NO"));
}

}  // namespace
}  // namespace keldane
