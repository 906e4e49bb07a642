#include "hosts/core/status/cache/ChangeQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace keldane {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> files(int count) {
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    paths.push_back("/folder/" + std::to_string(i) + ".txt");
  }
  return paths;
}

/// A simulated window's thread. It calls `take` at each beat, and works between two beats as the test says.
class Window {
 public:
  explicit Window(ChangeQueue& queue) : queue_(queue) {}

  std::optional<std::vector<std::string>> beat(milliseconds used = milliseconds(0)) {
    work_.time += ChangeQueue::kBeat;
    work_.used += used;
    return queue_.take(work_);
  }
  /// The number of files that the window got in `beats` beats when each file costs `each` of processor time.
  std::size_t taken(int beats, std::chrono::microseconds each, milliseconds other = milliseconds(0)) {
    std::size_t count = 0, last = 0;
    for (int i = 0; i < beats; ++i) {
      const auto some = beat(other + std::chrono::duration_cast<milliseconds>(last * each));
      last = some ? some->size() : 0;
      count += last;
    }
    return count;
  }

 private:
  ChangeQueue& queue_;
  ChangeQueue::Work work_{};
};

TEST(ChangeQueueTest, HandsFewOverAtOnceAndAheadOfMany) {
  ChangeQueue queue;
  Window window(queue);
  EXPECT_TRUE(queue.add(files(1'000)));
  queue.add({"/z/2", "/z/1"});
  EXPECT_THAT(window.beat().value(), ElementsAre("/z/2", "/z/1"));
}

TEST(ChangeQueueTest, HandsManyOverInTheOrderOfTheirNames) {
  ChangeQueue queue;
  Window window(queue);
  std::vector<std::string> expected = files(100);
  queue.add({expected.rbegin(), expected.rend()});
  queue.add(files(70));  // some of them are added again
  std::vector<std::string> all;
  while (const auto some = window.beat()) {
    all.insert(all.end(), some->begin(), some->end());
  }
  EXPECT_EQ(all, expected);
}

TEST(ChangeQueueTest, TellsWhenTheBeatIsToBeginAndWhenItEnds) {
  ChangeQueue queue;
  Window window(queue);
  EXPECT_FALSE(queue.add({}));
  EXPECT_TRUE(queue.add({"/a/1"}));
  EXPECT_FALSE(queue.add({"/a/2"})) << "it beats already";
  EXPECT_THAT(window.beat().value(), ElementsAre("/a/1", "/a/2"));
  EXPECT_FALSE(queue.add({"/a/3"})) << "it beats until it is told to end";
  EXPECT_THAT(window.beat().value(), ElementsAre("/a/3"));
  EXPECT_EQ(window.beat(), std::nullopt);
  EXPECT_TRUE(queue.add({"/a/4"}));
}

TEST(ChangeQueueTest, LeavesAThreadThatIsFreeMostOfItsTime) {
  ChangeQueue queue;
  Window window(queue);
  queue.add(files(10'000));
  const std::size_t inFiveSeconds = window.taken(125, std::chrono::microseconds(200));
  // A thousand files cost 200 ms, so the limits are a tenth and a third of the time.
  EXPECT_GT(inFiveSeconds, 2'500U);
  EXPECT_LT(inFiveSeconds, 8'000U);
}

TEST(ChangeQueueTest, IsQuickWhereAFileCostsLittle) {
  ChangeQueue queue;
  Window window(queue);
  queue.add(files(10'000));
  EXPECT_EQ(window.taken(75, std::chrono::microseconds(5)), 10'000U);
}

TEST(ChangeQueueTest, WaitsForAThreadThatIsBusyAndGoesOnAfterwards) {
  ChangeQueue queue;
  Window window(queue);
  queue.add(files(5'000));
  window.beat();
  const std::size_t whileItOpens = window.taken(75, std::chrono::microseconds(0), ChangeQueue::kBeat);
  EXPECT_LE(whileItOpens, 100U);
  EXPECT_GT(whileItOpens, 0U) << "a thread that is always busy gets some all the same";
  EXPECT_EQ(whileItOpens + window.taken(200, std::chrono::microseconds(5)), 5'000U);
}

TEST(ChangeQueueTest, ForgetsWhatIsNotToBeToldAnyMore) {
  ChangeQueue queue;
  Window window(queue);
  queue.add(files(1'000));
  EXPECT_THAT(window.beat().value(), IsEmpty()) << "it is not known yet how busy the thread is";
  queue.clear();
  EXPECT_EQ(window.beat(), std::nullopt);
  EXPECT_TRUE(queue.add({"/a/1"}));
  EXPECT_THAT(window.beat().value(), ElementsAre("/a/1"));
}

TEST(ChangeQueueTest, KnowsTheWorkOfItsThread) {
  const ChangeQueue::Work before = ChangeQueue::Work::now();
  volatile unsigned counted = 0;
  while (ChangeQueue::Work::now().used - before.used < milliseconds(5)) {
    counted = counted + 1;
  }
  const ChangeQueue::Work after = ChangeQueue::Work::now();
  EXPECT_GE(after.time - before.time, milliseconds(5) - milliseconds(1));
}

}  // namespace
}  // namespace keldane
