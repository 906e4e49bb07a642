#include "clients/preferences/words/Alerts.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/preferences/Preferences.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

TEST(Alerts, TellTheSameThingOnceADay) {
  Alerts alerts;
  EXPECT_TRUE(alerts.mayTell(AlertKind::storage, "full", 100));
  EXPECT_FALSE(alerts.mayTell(AlertKind::storage, "full", 101));
  EXPECT_TRUE(alerts.mayTell(AlertKind::storage, "gone", 101));
  EXPECT_FALSE(alerts.mayTell(AlertKind::storage, "full", 86499));
  EXPECT_TRUE(alerts.mayTell(AlertKind::storage, "full", 86500));
  EXPECT_FALSE(alerts.mayTell(AlertKind::storage, "full", 86501));
  EXPECT_TRUE(alerts.mayTell(AlertKind::storage, "full", 50)) << "a clock that was set back";
}

TEST(Alerts, TellEachTimeWhatHasNoSubject) {
  Alerts alerts;
  EXPECT_TRUE(alerts.mayTell(AlertKind::restore, "", 100));
  EXPECT_TRUE(alerts.mayTell(AlertKind::restore, "", 100));
}

TEST(Alerts, TellNothingOfAKindThatIsSwitchedOff) {
  Alerts alerts;
  alerts.setOn(AlertKind::drill, false);
  EXPECT_FALSE(alerts.mayTell(AlertKind::drill, "failed", 100));
  EXPECT_FALSE(alerts.mayTell(AlertKind::drill, "", 100));
  EXPECT_TRUE(alerts.mayTell(AlertKind::storage, "failed", 100));
  alerts.setOn(AlertKind::drill, true);
  EXPECT_TRUE(alerts.mayTell(AlertKind::drill, "", 100));
}

TEST(Alerts, NoteOnceAnHourThatTheDaemonWasReached) {
  Alerts alerts;
  EXPECT_EQ(alerts.lastReached(), 0);
  EXPECT_TRUE(alerts.noteReached(10'000));
  EXPECT_FALSE(alerts.noteReached(13'599));
  EXPECT_EQ(alerts.lastReached(), 10'000);
  EXPECT_TRUE(alerts.noteReached(13'600));
  EXPECT_TRUE(alerts.noteReached(500)) << "a clock that was set back";
  EXPECT_EQ(alerts.lastReached(), 500);
}

TEST(Alerts, AreKeptWithWhatTheyHaveTold) {
  const testing::TemporaryFolder folder;
  setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
  Preferences::forget();
  Alerts alerts = Alerts::read();
  for (const AlertSwitch& each : kAlertSwitches) {
    EXPECT_TRUE(alerts.isOn(each.kind)) << each.key;
  }
  alerts.setOn(AlertKind::noBackup, false);
  EXPECT_TRUE(alerts.mayTell(AlertKind::storage, "full", 1000));
  EXPECT_TRUE(alerts.noteReached(5000));
  alerts.write();
  Preferences::forget();
  Alerts again = Alerts::read();
  EXPECT_FALSE(again.isOn(AlertKind::noBackup));
  EXPECT_EQ(again.lastReached(), 5000);
  EXPECT_TRUE(again.isOn(AlertKind::drill));
  EXPECT_FALSE(again.mayTell(AlertKind::storage, "full", 1001));
  again.setOn(AlertKind::noBackup, true);
  again.write();
  Preferences::forget();
  EXPECT_TRUE(Alerts::read().isOn(AlertKind::noBackup));
}

}  // namespace
}  // namespace keldane
