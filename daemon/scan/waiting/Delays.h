// Files that could not be stored and are to be tried again later.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "daemon/store/Store.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Remembers files with the state in which they could not be stored. Such a file is not tried again until it
/// has changed or an hour has passed. Used on any thread; the mutex is a leaf.
class Delays {
 public:
  void add(const std::string& path, const FileState& state);
  /// Whether a file must not be tried yet. Otherwise its delay is removed.
  bool holds(const std::string& path, const FileState& state);
  bool isEmpty() const { return isEmpty_; }
  /// The files whose hour has passed.
  std::vector<std::string> due() const;
  void clear();

 private:
  struct Delay {
    FileState state;
    std::chrono::steady_clock::time_point until;
  };
  mutable Mutex mutex_;
  std::map<std::string, Delay> delays_ KELDANE_GUARDED_BY(mutex_);
  std::atomic<bool> isEmpty_ = true;
};

}  // namespace keldane
