#include "clients/ctl/layout/ProgressLine.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(FittedLine, HasThePartsThatFit) {
  const Terminal terminal;  // standard output is no terminal: 80 columns, of which the last stays free
  FittedLine line(terminal);
  EXPECT_EQ(line.columnsLeft(), 79U);
  line.add("one");
  line.add("");
  line.add(std::string(75, 'x'));
  line.add("two");
  EXPECT_EQ(line.text(), "one  two");
  EXPECT_EQ(line.columnsLeft(), 71U);
}

TEST(FittedLine, HasABarWithItsPercentage) {
  FittedLine line{Terminal()};
  line.addBar(0.5);
  EXPECT_TRUE(line.text().ends_with("  50%")) << line.text();
  EXPECT_TRUE(line.text().starts_with("["));
}

TEST(FittedLine, HasTheEndOfAPathIfThereIsRoomForIt) {
  FittedLine line{Terminal()};
  line.add(std::string(50, 'x'));
  line.addPath("/a/long/path/of/many/folders/and/a/file.txt");
  EXPECT_TRUE(line.text().ends_with("and/a/file.txt"));
  EXPECT_EQ(line.columnsLeft(), 0U);
  FittedLine full{Terminal()};
  full.add(std::string(70, 'x'));
  full.addPath("/a/long/path/of/many/folders");
  EXPECT_EQ(full.text(), std::string(70, 'x'));
}

TEST(RateText, IsEmptyWhileNothingMoves) {
  BackupProgress progress;
  const auto start = BackupProgress::Clock::now();
  progress.update(10, 10'240, start);
  EXPECT_EQ(rateText(progress), "");
  progress.update(5, 5'120, start + std::chrono::seconds(5));
  EXPECT_EQ(rateText(progress), "1.0 KiB/s, 5 s left");
}

}  // namespace
}  // namespace keldane
