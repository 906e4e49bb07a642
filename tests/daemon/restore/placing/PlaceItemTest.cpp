#include "daemon/restore/placing/PlaceItem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "platform/files/Descriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {
namespace {

std::string named(const std::string& name, unsigned attempt) {
  char out[NAME_MAX + 1];
  restoredName(name.c_str(), attempt, out);
  return out;
}

class PlaceItemTest : public ::testing::Test {
 protected:
  PlaceItemTest() {
    for (const char* name : {"from", "to"}) {
      std::filesystem::create_directory(folder_ / name);
    }
    from_ = Descriptor(open((folder_ / "from").c_str(), O_RDONLY | O_CLOEXEC));
    to_ = Descriptor(open((folder_ / "to").c_str(), O_PATH | O_CLOEXEC));
  }
  PlaceResult place(const char* name, Conflict conflict) {
    folder_.write(std::string("from/") + name, "new");
    return placeItem(from_.get(), name, to_.get(), name, conflict);
  }
  TemporaryFolder folder_;
  Descriptor from_, to_;
};

TEST(RestoredNameTest, StandsBeforeTheExtension) {
  EXPECT_EQ(named("letter.txt", 1), "letter (restored).txt");
  EXPECT_EQ(named("letter.txt", 2), "letter (restored 2).txt");
  EXPECT_EQ(named("letter.txt", 4'294'967'295U), "letter (restored 4294967295).txt");
  EXPECT_EQ(named("letter", 10), "letter (restored 10)");
  EXPECT_EQ(named(".profile", 1), ".profile (restored)");
  EXPECT_EQ(named("dot.", 1), "dot. (restored)");
  EXPECT_EQ(named("a.b.c", 1), "a.b (restored).c");
}

TEST(RestoredNameTest, IsNeverLongerThanANameMayBe) {
  EXPECT_EQ(named(std::string(255, 'a'), 1), std::string(244, 'a') + " (restored)");
  EXPECT_EQ(named(std::string(251, 'a') + ".txt", 1), std::string(240, 'a') + " (restored).txt");
  EXPECT_EQ(named("a." + std::string(253, 'b'), 1).size(), 255U);
  // A character of two bytes must not be split.
  const std::string umlauts = named("x" + std::string(254, '\xc3'), 1);
  EXPECT_LE(umlauts.size(), 255U);
  std::string text = "x";
  for (int i = 0; i < 127; ++i) {
    text += "\xc3\xa4";
  }
  EXPECT_EQ(named(text, 1).size(), 254U);
}

TEST_F(PlaceItemTest, MovesToAFreeName) {
  EXPECT_EQ(place("a.txt", Conflict::skip).kind, PlaceResult::placed);
  EXPECT_EQ(readWhole(folder_ / "to/a.txt"), "new");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "from/a.txt"));
}

TEST_F(PlaceItemTest, DealsWithWhatIsThere) {
  folder_.write("to/a.txt", "old");
  EXPECT_EQ(place("a.txt", Conflict::skip).kind, PlaceResult::skipped);
  EXPECT_EQ(place("a.txt", Conflict::keepBoth).kind, PlaceResult::placed);
  EXPECT_EQ(readWhole(folder_ / "to/a.txt"), "old");
  EXPECT_EQ(readWhole(folder_ / "to/a (restored).txt"), "new");
  EXPECT_EQ(place("a.txt", Conflict::replace).kind, PlaceResult::placed);
  EXPECT_EQ(readWhole(folder_ / "to/a.txt"), "new");
}

TEST_F(PlaceItemTest, NeverReplacesAFolder) {
  std::filesystem::create_directory(folder_ / "to/a");
  const PlaceResult result = place("a", Conflict::replace);
  EXPECT_EQ(result.kind, PlaceResult::failed);
  EXPECT_EQ(result.error, EISDIR);
}

TEST_F(PlaceItemTest, KeepsBothWhateverComesInBetween) {
  folder_.write("to/a.txt", "old");
  constexpr int kThreads = 4;
  constexpr int kEach = 50;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kEach; ++i) {
        const std::string name = std::to_string(thread) + "-" + std::to_string(i);
        folder_.write("from/" + name, "new");
        EXPECT_EQ(placeItem(from_.get(), name.c_str(), to_.get(), "a.txt", Conflict::keepBoth).error, 0);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_ / "to"), {}), kThreads * kEach + 1);
  EXPECT_EQ(readWhole(folder_ / "to/a.txt"), "old");
}

TEST_F(PlaceItemTest, OpensNoFolderThroughALink) {
  std::filesystem::create_directory_symlink(folder_ / "from", folder_ / "to/link");
  folder_.write("to/file", "");
  EXPECT_EQ(openFolderIn(to_.get(), "link", O_PATH), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(openFolderIn(to_.get(), "link", O_RDONLY), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(openFolderIn(to_.get(), "file", O_PATH), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(openFolderIn(to_.get(), "none", O_PATH), -1);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace keldane::testing
