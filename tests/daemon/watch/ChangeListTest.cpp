#include "daemon/watch/ChangeList.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

using Changes = std::vector<Change>;

Change entry(const char* path) { return {Change::Extent::entry, path}; }
Change folder(const char* path) { return {Change::Extent::folder, path}; }
Change tree(const char* path) { return {Change::Extent::tree, path}; }

TEST(ChangeListTest, WhatChangesOftenIsNamedOnce) {
  ChangeList list;
  EXPECT_TRUE(list.isEmpty());
  for (int i = 0; i < 100; ++i) {
    list.addEntry("/a", "b");
  }
  list.addEntry("/", "c");
  EXPECT_EQ(list.take(), (Changes{entry("/c"), entry("/a/b")}));
  EXPECT_TRUE(list.isEmpty());
  EXPECT_TRUE(list.take().empty());
}

TEST(ChangeListTest, ManyEntriesBecomeTheirFolder) {
  ChangeList list;
  for (int i = 0; i < 1000; ++i) {
    list.addEntry("/a", std::to_string(i));
  }
  list.addFolder("/b");
  list.addEntry("/b", "x");
  EXPECT_EQ(list.take(), (Changes{folder("/a"), folder("/b")}));
}

TEST(ChangeListTest, ATreeStandsForAllBelowIt) {
  ChangeList list;
  list.addTree("/a/b");
  list.addTree("/a");
  list.addTree("/ab");
  list.addFolder("/a");
  list.addFolder("/a/c");
  list.addEntry("/a/c", "x");
  list.addEntry("/a", "b");
  list.addFolder("/a b");
  EXPECT_EQ(list.take(), (Changes{tree("/a"), tree("/ab"), folder("/a b")}));
}

TEST(ChangeListTest, TheRootStandsForEverything) {
  ChangeList list;
  list.addTree("/");
  list.addTree("/a");
  list.addEntry("/", "x");
  EXPECT_EQ(list.take(), (Changes{tree("/")}));
}

}  // namespace
}  // namespace keldane
