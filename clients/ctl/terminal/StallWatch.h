// Tells the user of a daemon that holds a link and does not answer.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace keldane {

/// A program that follows the daemon for ever waits in its calls without a limit. This watches, on a thread
/// of its own, that the program's loop turns, and says so once on standard error when it has not for some
/// time.
class StallWatch {
 public:
  /// 0 seconds: nothing is ever said.
  explicit StallWatch(double seconds);
  ~StallWatch();
  StallWatch(const StallWatch&) = delete;
  StallWatch& operator=(const StallWatch&) = delete;

  /// At each turn of the loop; true when it had been said that the loop does not turn.
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
