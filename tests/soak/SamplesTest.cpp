#include "tests/soak/Samples.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <thread>

#include "platform/files/Descriptor.h"
#include "tests/support/Wait.h"

namespace keldane::soak {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Nine samples; `change` is applied to all but the first.
std::vector<Sample> samplesLike(const std::function<void(Sample& sample, int index)>& change) {
  std::vector<Sample> samples;
  for (int i = 0; i < 9; ++i) {
    Sample sample = {static_cast<double>(i),
                     static_cast<std::uint64_t>(100 * i),
                     {20'000, 1'000, 2, 10},
                     {9'000, 0, 4, 12}};
    if (i > 0) {
      change(sample, i);
    }
    samples.push_back(sample);
  }
  return samples;
}

TEST(Samples, WhatStaysIsFine) {
  EXPECT_THAT(findings(samplesLike([](Sample&, int) {}), true), IsEmpty());
}

TEST(Samples, AFewAreNoneAtAll) {
  EXPECT_THAT(findings(std::vector<Sample>(5), true), ElementsAre(HasSubstr("too few")));
}

TEST(Samples, AnythingMayHappenInTheFirstThird) {
  EXPECT_THAT(findings(samplesLike([](Sample& sample, int index) {
                         if (index < 3) {
                           sample.host = {90'000, 50'000, 7, 70};
                         }
                       }),
                       true),
              IsEmpty());
}

TEST(Samples, OneThreadOrDescriptorMoreIsFoundWhereverItIs) {
  for (const int at : {3, 8}) {
    for (long Holdings::*count : {&Holdings::threads, &Holdings::descriptors}) {
      for (Holdings Sample::*process : {&Sample::host, &Sample::daemon}) {
        EXPECT_THAT(
            findings(samplesLike(
                         [&](Sample& sample, int index) { sample.*process.*count += index == at ? 1 : 0; }),
                     false),
            ElementsAre(HasSubstr(std::string(count == &Holdings::threads ? "threads" : "descriptors") +
                                  (process == &Sample::host ? " of the host" : " of the daemon"))));
      }
    }
  }
}

TEST(Samples, MemoryThatGrowsIsFound) {
  EXPECT_THAT(findings(samplesLike([](Sample& sample, int index) { sample.host.heap += 30 * index; }), true),
              ElementsAre("The heap of the host grew from 1120 to 1210 KiB."));
  EXPECT_THAT(
      findings(samplesLike([](Sample& sample, int index) { sample.host.resident += 300 * index; }), true),
      ElementsAre(HasSubstr("resident memory of the host grew")));
  EXPECT_THAT(
      findings(samplesLike([](Sample& sample, int index) { sample.daemon.resident += 300 * index; }), true),
      ElementsAre(HasSubstr("resident memory of the daemon grew")));
}

TEST(Samples, MemoryThatBreathesOrShrinksIsFine) {
  EXPECT_THAT(findings(samplesLike([](Sample& sample, int index) {
                         sample.host.heap += index % 4 == 0 ? 2'000 : 0;
                         sample.host.resident -= 500 * index;
                         sample.daemon.resident += 100 * index;
                       }),
                       true),
              IsEmpty());
}

TEST(Samples, MemoryIsLeftOutWhenAsked) {
  EXPECT_THAT(
      findings(samplesLike([](Sample& sample, int index) { sample.host.heap += 3'000 * index; }), false),
      IsEmpty());
}

TEST(Samples, ALineStandsUnderItsHeading) {
  const std::string heading = tableHeading();
  const std::string line = tableLine({12.34, 56789, {20'000, 1'000, 2, 10}, {9'000, 0, 4, 12}});
  EXPECT_EQ(line, "    12.3       56789 |    20000     1000     2     10  |     9000     4     12");
  EXPECT_EQ(line.find('|'), heading.find('|'));
}

TEST(Samples, AProcessHoldsWhatItHolds) {
  const Holdings before = Holdings::ofThisProcess();
  EXPECT_GT(before.resident, 1'000);
  EXPECT_GE(before.threads, 1);
  const Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
  std::atomic<bool> done = false;
  std::thread thread([&] { done.wait(false); });
  const Holdings now = Holdings::of(getpid());
  done = true;
  done.notify_all();
  thread.join();
  EXPECT_EQ(now.descriptors, before.descriptors + 1);
  EXPECT_EQ(now.threads, before.threads + 1);
  EXPECT_FALSE(now.sameThreadsAndDescriptors(before));
  EXPECT_EQ(Holdings::of(0).threads, 0) << "no such process";
}

TEST(Samples, WhatIsAllocatedIsInUse) {
#if defined(KELDANE_SANITIZED)  // the allocator is the sanitizer's, and keeps freed memory
  GTEST_SKIP();
#else
  const long before = Holdings::ofThisProcess().heap;
  const std::vector<char> block(3'000'000, 'x');
  EXPECT_NEAR(static_cast<double>(Holdings::ofThisProcess().heap - before), 3'000'000.0 / 1024, 100);
#endif
}

}  // namespace
}  // namespace keldane::soak
