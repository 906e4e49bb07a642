// The time limit of a command-line program.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "platform/threads/Mutex.h"

namespace keldane {

/// The longest limit, in seconds: a year.
inline constexpr std::int64_t kLongestDeadline = 31'536'000;

/// Ends the process when the time is over. It is needed because a call to the daemon waits without a limit,
/// and only the program knows how long its user will wait. A thread of its own watches the time. A Deadline
/// that is destroyed before the time is over does nothing.
class Deadline {
 public:
  /// 0 seconds means no limit; more than a year counts as a year. When the time is over, `sentence` is
  /// written to standard error and `status` is the exit status.
  Deadline(double seconds, std::string sentence, int status);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  /// Starts the time anew, for a program that asks more than once.
  void renew();

 private:
  void watch(std::chrono::duration<double> limit);

  const std::string sentence_;
  const int status_;
  Mutex mutex_{{.name = "Deadline.mutex", .leaf = true}};
  Condition changed_;
  bool over_ KELDANE_GUARDED_BY(mutex_) = false;
  bool renewed_ KELDANE_GUARDED_BY(mutex_) = false;
  std::thread watcher_;
};

}  // namespace keldane
