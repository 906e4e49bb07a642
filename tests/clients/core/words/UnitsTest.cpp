#include "clients/core/words/Units.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tests/support/Printing.h"

namespace keldane {
namespace {

struct SizeCase {
  std::uint64_t bytes;
  const char* text;
};

TEST(Units, SizesHaveOneDecimalBelowTen) {
  const SizeCase cases[] = {{0, "0 B"},
                            {1, "1 B"},
                            {1023, "1023 B"},
                            {1024, "1.0 KiB"},
                            {1536, "1.5 KiB"},
                            {10188, "9.9 KiB"},
                            {10239, "10 KiB"},
                            {1048063, "1023 KiB"},
                            {1048064, "1.0 MiB"},
                            {std::uint64_t{1} << 30, "1.0 GiB"},
                            {~std::uint64_t{0}, "16 EiB"}};
  for (const SizeCase& each : cases) {
    EXPECT_EQ(bytesText(each.bytes), each.text) << each.bytes;
  }
}

TEST(Units, CountsAreGroupedByThreeDigits) {
  EXPECT_EQ(countText(0), "0");
  EXPECT_EQ(countText(999), "999");
  EXPECT_EQ(countText(1000), "1,000");
  EXPECT_EQ(countText(1234567), "1,234,567");
  EXPECT_EQ(filesText(1), "1 file");
  EXPECT_EQ(filesText(1000), "1,000 files");
}

TEST(Units, DurationsHaveTwoUnitsAtMost) {
  const auto text = [](int count) { return durationText(std::chrono::seconds(count)); };
  EXPECT_EQ(text(0), "0 s");
  EXPECT_EQ(text(59), "59 s");
  EXPECT_EQ(text(60), "1 min");
  EXPECT_EQ(text(125), "2 min 5 s");
  EXPECT_EQ(text(3600), "1 h");
  EXPECT_EQ(text(3840), "1 h 4 min");
  EXPECT_EQ(text(3 * 86400 + 7200 + 59), "3 d 2 h");
}

TEST(Units, DatesAreLocalAndAbsentOnesEmpty) {
  const char* zone = std::getenv("TZ");
  const std::string before = zone == nullptr ? "" : zone;
  setenv("TZ", "UTC-2", 1);
  tzset();
  EXPECT_EQ(dateText(Date::fromUnixTime(0)), "1970-01-01 02:00");
  if (zone == nullptr) {
    unsetenv("TZ");
  } else {
    setenv("TZ", before.c_str(), 1);
  }
  tzset();
  EXPECT_EQ(dateText({}), "");
  EXPECT_EQ(dateText("2026-11-21"), "");
  EXPECT_EQ(dateText(Date{1e300}), "");
  EXPECT_EQ(dateText(Date{std::numeric_limits<double>::quiet_NaN()}), "");
}

}  // namespace
}  // namespace keldane
