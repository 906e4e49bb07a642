// The times for which the status core waits and rests.
#pragma once

#include <chrono>

namespace keldane {

/// The times for which the status core waits and rests.
struct StatusTiming {
  using Duration = std::chrono::steady_clock::duration;
  Duration batchDelay = std::chrono::milliseconds(20);     ///< to wait for more files before asking
  Duration statePoll = std::chrono::milliseconds(1500);    ///< between two polls of the daemon's state
  Duration afterChange = std::chrono::milliseconds(1500);  ///< least rest of a folder when the state changed
  Duration unchanged = std::chrono::seconds(5);            ///< likewise while the state does not change
  Duration largeFolder = std::chrono::seconds(30);         ///< likewise above `StatusCache::kLargeFolder`
  Duration silence = std::chrono::seconds(10);    ///< of the daemon before its former answers are hidden
  Duration firstRetry = std::chrono::seconds(1);  ///< doubled with each failed attempt to connect
  Duration longestRetry = std::chrono::seconds(60);
  Duration lookAtSocket = std::chrono::seconds(2);  ///< between looks for a new socket
};

}  // namespace keldane
