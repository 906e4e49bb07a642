#include "clients/ctl/administration/Metrics.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace keldane {
namespace {

constexpr double kNow = 1'800'000'000;

std::string fullText() {
  return metricsText(PropertyList::dictionary({{"health", "full"},
                                               {"size", std::uint64_t{5'000'000'000}},
                                               {"snapshots", std::uint64_t{12}},
                                               {"lastGoodBackup", Date::fromUnixTime(kNow - 3600)},
                                               {"lastDrill", Date::fromUnixTime(kNow + 5)},
                                               {"drillFailed", std::uint64_t{0}}}),
                     PropertyList::dictionary({{"pendingFileCount", std::uint64_t{3}},
                                               {"pendingFileSize", std::uint64_t{1} << 40},
                                               {"failureCount", std::uint64_t{1}},
                                               {"paused", true}}),
                     kNow);
}

bool has(const std::string& text, const std::string& line) {
  return text.find("\n" + line + "\n") != std::string::npos;
}

TEST(Metrics, TellTheStandingOfADaemon) {
  const std::string text = fullText();
  for (const char* line :
       {"keldane_up 1", "keldane_pending_files 3", "keldane_pending_bytes 1099511627776",
        "keldane_failed_files 1", "keldane_paused 1", "keldane_repository_size_bytes 5000000000",
        "keldane_repository_snapshots 12", "keldane_repository_health{keldane_repository_health=\"full\"} 1",
        "keldane_repository_health{keldane_repository_health=\"ready\"} 0",
        "keldane_last_good_backup_timestamp_seconds 1799996400.000",
        "keldane_last_good_backup_age_seconds 3600.000", "keldane_last_drill_age_seconds 0.000",
        "keldane_last_drill_failed_files 0"}) {
    EXPECT_TRUE(has(text, line)) << line;
  }
  EXPECT_EQ(text.find("last_check"), std::string::npos) << "what never was has no time";
}

TEST(Metrics, SayThatADaemonIsAway) {
  const std::string text = metricsText({}, {}, kNow);
  EXPECT_TRUE(has(text, "keldane_up 0"));
  EXPECT_EQ(text.find("keldane_pending"), std::string::npos);
  EXPECT_TRUE(text.ends_with("\n# EOF\n"));
}

// Each family begins with its type, its samples follow, and no family occurs twice.
TEST(Metrics, AreOpenMetricsText) {
  std::istringstream lines(fullText());
  std::set<std::string> families;
  std::string family, line, last;
  while (std::getline(lines, line)) {
    last = line;
    std::istringstream words(line);
    std::string first, second, third;
    words >> first >> second >> third;
    if (line.starts_with("# TYPE ")) {
      family = third;
      EXPECT_TRUE(families.insert(family).second) << family;
    } else if (line.starts_with("# UNIT ")) {
      std::string unit;
      words >> unit;
      EXPECT_EQ(third, family);
      EXPECT_TRUE(family.ends_with("_" + unit)) << family;
    } else if (!line.starts_with("#")) {
      EXPECT_EQ(first.substr(0, first.find('{')), family);
    }
  }
  EXPECT_EQ(last, "# EOF");
  EXPECT_GT(families.size(), 10U);
}

}  // namespace
}  // namespace keldane
