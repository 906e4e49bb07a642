// Tells the user when a daemon holds a link and does not answer.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace keldane {

/// A program that follows the daemon for ever waits in its calls without a limit. A thread of this class
/// watches that the program's loop turns. When the loop has not turned for some time, it says so once on
/// standard error.
class StallWatch {
 public:
  /// With 0 seconds, nothing is ever said.
  explicit StallWatch(double seconds);
  ~StallWatch();
  StallWatch(const StallWatch&) = delete;
  StallWatch& operator=(const StallWatch&) = delete;

  /// Called at each turn of the loop. Returns true when the standstill before it was reported.
  bool turn();

 private:
  void watch(std::chrono::duration<double> limit);

  std::mutex mutex_;
  std::condition_variable changed_;
  bool over_ = false;
  bool turned_ = false;
  bool said_ = false;
  std::thread watcher_;
};

}  // namespace keldane
