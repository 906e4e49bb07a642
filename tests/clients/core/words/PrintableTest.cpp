#include "clients/core/words/Printable.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

TEST(Printable, WhatWouldDoSomethingToATerminalIsEscaped) {
  EXPECT_EQ(printable("plain ä 😀"), "plain ä 😀");
  EXPECT_EQ(printable("a\nb\tc\rd"), "a\\nb\\tc\\rd");
  EXPECT_EQ(printable("\x1b[2J"), "\\x1b[2J");
  EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(printable("\x7f"), "\\x7f");
  EXPECT_EQ(printable("\u009b"), "\\x9b");
  EXPECT_EQ(printable("\u202e"), "\\u202e");
  EXPECT_EQ(printable("\u2066"), "\\u2066");
  EXPECT_EQ(printable("a\xff"), "a\\xff");
}

}  // namespace
}  // namespace keldane
