// A limit to the patience of a command-line program.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace keldane {

/// The longest patience that counts, in seconds: a year.
inline constexpr std::int64_t kLongestDeadline = 31'536'000;

/// Ends the process when the time is over: a call to the daemon waits without a limit, and only the program
/// knows how long its user would. Its own thread watches; gone before the time is over, it does nothing.
class Deadline {
 public:
  /// 0 seconds: no limit; more than a year counts as a year. `sentence` goes to standard error and `status`
  /// is the exit status.
  Deadline(double seconds, std::string sentence, int status);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  /// Starts anew: for a program that asks more than once.
  void renew();

 private:
  void watch(std::chrono::duration<double> limit);

  const std::string sentence_;
  const int status_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool over_ = false;
  bool renewed_ = false;
  std::thread watcher_;
};

}  // namespace keldane
