#include "log/KeldaneLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/LogCapture.h"

namespace keldane {
namespace {

constexpr char kSwitch[] = "/tmp/keldane_logging";

/// Counts how often its printed form is asked for.
struct Described {
  operator PropertyList() const {
    ++count;
    return "described";
  }
  mutable int count = 0;
};

// This is one test, because a machine has only one switch file, and the log stays on once it is on.
TEST(KeldaneLog, IsOffUntilTheSwitchFileIsThereAndOnEverAfter) {
  const testing::LogCapture log;
  EXPECT_FALSE(KeldaneLogEnabled());
  KeldaneCLog("nobody reads %d", 1);
  KeldaneLog(std::string("nor %@"), "this");
  const Described object;
  KeldaneCLog("%@", object);
  KeldaneLog(std::string("%@"), object);
  EXPECT_EQ(object.count, 0) << "nothing is formatted while the log is off";
  EXPECT_TRUE(log.lines().empty());

  const bool wasThere = access(kSwitch, F_OK) == 0;
  if (!wasThere) {
    KeldaneLogStart();
    EXPECT_FALSE(KeldaneLogEnabled());
    close(open(kSwitch, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  }
  KeldaneLogStart();
  if (!wasThere) {
    unlink(kSwitch);
  }
  EXPECT_TRUE(KeldaneLogEnabled());
  KeldaneLogStart();
  EXPECT_TRUE(KeldaneLogEnabled()) << "taking the file away switches nothing off";

  KeldaneCLog("error: %ld.", -609L);
  KeldaneLog(std::string("%@"), PropertyList("object"));
  KeldaneCLog("%@", object);
  EXPECT_EQ(object.count, 1);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"error: -609.", "object", "described"}));

  if (!wasThere && mkdir(kSwitch, 0700) == 0) {
    gLoggingEnabled = false;  // as in a new process
    KeldaneLogStart();
    rmdir(kSwitch);
    EXPECT_TRUE(KeldaneLogEnabled()) << "a folder is a switch too";
  }
}

}  // namespace
}  // namespace keldane
