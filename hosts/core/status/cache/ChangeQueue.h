// The queue between the thread that learns of changes and the window's thread, which has them drawn a few at
// a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/threads/Mutex.h"

namespace keldane {

/// Holds the paths of files that are to be drawn anew. A file manager needs a good part of a millisecond of
/// the window's thread for one file, often some moments later, so ten thousand files at once would block the
/// thread for seconds. The queue hands out so few files that most of the thread's time is left for other
/// work. It hands out none while the thread is busy anyway, for example while it still opens the folder.
/// Files are drawn in the order of their names. A few files that are added at once, such as those of a
/// command, go ahead of all others.
///
/// `add` and `clear` may be called on any thread, the other operations on the window's thread only.
class ChangeQueue {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr auto kBeat = std::chrono::milliseconds(40);  ///< between two calls of `take`
  static constexpr std::size_t kFew = 64;  ///< up to so many files added at once go ahead

  /// The processor time that the window's thread has used by a moment.
  struct Work {
    Clock::time_point time;
    Clock::duration used;  ///< processor time

    /// Measures the calling thread.
    static Work now();
  };

  /// True when the caller must start to call `take` at every beat.
  bool add(std::vector<std::string> paths);
  /// The paths that are to be drawn now; may be empty. Absent when the queue is empty. Then `take` must not
  /// be called before `add` has answered true again.
  std::optional<std::vector<std::string>> take(const Work& work);
  void clear();

 private:
  /// The usual order of lists, with numbers sorted by their value.
  struct ByName {
    bool operator()(const std::string& one, const std::string& other) const;
  };
  std::size_t mayTake(const Work& work, std::size_t waiting);

  Mutex mutex_;
  std::vector<std::string> few_ KELDANE_GUARDED_BY(mutex_);
  std::set<std::string, ByName> many_ KELDANE_GUARDED_BY(mutex_);
  bool isBeating_ KELDANE_GUARDED_BY(mutex_) = false;  // `take` is called

  // These fields are used only by the window's thread.
  Work last_{};
  bool hasBegun_ = false;
  double busy_ = 0;  // the share of its time that the thread has recently used
  std::size_t slice_ = kFew;
  Clock::time_point taken_{};  // when something was taken last
};

}  // namespace keldane
