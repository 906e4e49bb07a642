#include "Common/DaemonText.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(DaemonText, SaysTheSameInEnglish) {
  for (const char* text :
       {"Backed up", "Could not be backed up: Permission denied", "Backing up: 1,234 files to go",
        "Backing up: 1 file to go", "Resting: The battery is at 12 %; 3 files to go",
        "Stored data is damaged: a: b. Run a check to have it stored anew.",
        "/a: b is not restored: it has 3 bytes, and 4 were stored.", "what nobody knows", "", "%s",
        "%s file"}) {
    EXPECT_EQ(daemonText(text), text);
  }
}

TEST(DaemonText, OneDayIsOneDay) {
  EXPECT_EQ(daemonText("The last good backup is 1 days old."), "The last good backup is 1 day old.");
}

}  // namespace
}  // namespace keldane
