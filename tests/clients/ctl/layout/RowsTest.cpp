#include "clients/ctl/layout/Rows.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

std::string printed(const Rows& rows) {
  testing::internal::CaptureStdout();
  rows.print(Terminal());
  return testing::internal::GetCapturedStdout();
}

TEST(Rows, ValuesStandInOneColumn) {
  Rows rows(6);
  rows.add("One", "1");
  rows.add("Two", "2");
  EXPECT_EQ(printed(rows), "One   1\nTwo   2\n");
}

TEST(Rows, ALongLabelMovesAllValues) {
  Rows rows(4);
  rows.add("One", "1");
  rows.add("Zweitausend", "2000");
  EXPECT_EQ(rows.labelColumns(), 12U);
  EXPECT_EQ(printed(rows), "One         1\nZweitausend 2000\n");
}

TEST(Rows, ARowFindsItsPlaceLater) {
  Rows rows(4);
  rows.add("A", "1");
  rows.add("C", "3");
  rows.insert(1, "B", "2");
  rows.insert(99, "D", "4");
  EXPECT_EQ(printed(rows), "A   1\nB   2\nC   3\nD   4\n");
}

}  // namespace
}  // namespace keldane
