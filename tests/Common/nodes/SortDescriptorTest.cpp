#include "Common/nodes/SortDescriptor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace keldane {
namespace {

TEST(SortDescriptor, ValuesAreOrderedWithinTheirKind) {
  const PropertyList inOrder[] = {PropertyList(),
                                  "",
                                  "A",
                                  "a",
                                  "\xC3\xA4",
                                  std::nan(""),
                                  std::numeric_limits<std::int64_t>::min(),
                                  -1,
                                  -0.5,
                                  0,
                                  true,
                                  1.5,
                                  2,
                                  std::numeric_limits<std::int64_t>::max(),
                                  std::numeric_limits<std::uint64_t>::max(),
                                  Date{-1},
                                  Date{1}};
  for (std::size_t i = 0; i < std::size(inOrder); ++i) {
    EXPECT_EQ(compare(inOrder[i], inOrder[i]), 0) << i;
    EXPECT_EQ(localizedCompare(inOrder[i], inOrder[i]), 0) << i;
    for (std::size_t k = i + 1; k < std::size(inOrder); ++k) {
      EXPECT_LT(compare(inOrder[i], inOrder[k]), 0) << i << ' ' << k;
      EXPECT_GT(compare(inOrder[k], inOrder[i]), 0) << i << ' ' << k;
    }
  }
}

TEST(SortDescriptor, ContainersAreOrderedByTheirCounts) {
  const PropertyList empty = PropertyList::array({});
  const PropertyList one = PropertyList::array({1});
  EXPECT_LT(compare(empty, one), 0);
  EXPECT_EQ(compare(one, PropertyList::array({2})), 0);
}

TEST(SortDescriptor, DataIsOrderedByItsLength) {
  const PropertyList two = PropertyList::data(Bytes{1, 2});
  EXPECT_LT(compare(PropertyList::data(Bytes{9}), two), 0);
  EXPECT_EQ(compare(PropertyList::data(Bytes{9, 9}), two), 0);
}

TEST(SortDescriptor, TheLocalesOrderFallsBackOnTheBytes) {
  EXPECT_LT(localizedCompare("a", "b"), 0);
  EXPECT_NE(localizedCompare(std::string("a\0b", 3), std::string("a\0c", 3)), 0);
  EXPECT_LT(localizedCompare("z", 1), 0) << "kinds come first";
}

}  // namespace
}  // namespace keldane
