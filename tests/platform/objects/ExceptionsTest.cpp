#include "platform/objects/Exceptions.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(Exceptions, AnAssertionSaysWhereAndWhat) {
  const AssertionFailure failure("-[Thing do:]", "Common/Thing", 12, "that must not be");
  EXPECT_STREQ(failure.what(), "*** Assertion failure in -[Thing do:], Common/Thing:12: that must not be");
  EXPECT_EQ(failure.method(), "-[Thing do:]");
  EXPECT_EQ(failure.file(), "Common/Thing");
  EXPECT_EQ(failure.line(), 12);
  EXPECT_EQ(failure.description(), "that must not be");
  EXPECT_EQ(failure.name(), "NSInternalInconsistencyException");
}

TEST(Exceptions, HaveANameAndAReason) {
  EXPECT_STREQ(InvalidArgument("no such thing").what(), "NSInvalidArgumentException: no such thing");
  EXPECT_STREQ(RangeError("index 3").what(), "NSRangeException: index 3");
  EXPECT_THROW(throw RangeError("x"), Exception);
}

}  // namespace
}  // namespace keldane
