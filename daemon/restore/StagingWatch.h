// How far a restore into a staging has come, while the storage program works.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace keldane {

/// Once a second adds up the bytes of a staging, of as many files as can be looked at in passing, and tells
/// them on a thread of its own. Ends with its owner, after which nothing is told any more.
class StagingWatch {
 public:
  StagingWatch(int folder, std::function<void(std::uint64_t bytes)> tell);
  ~StagingWatch();
  StagingWatch(const StagingWatch&) = delete;
  StagingWatch& operator=(const StagingWatch&) = delete;

 private:
  void run();

  const int folder_;
  const std::function<void(std::uint64_t)> tell_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool isEnded_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace keldane
