// Between the thread that learns of changes and the window's, which has them drawn a few at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace keldane {

/// Paths of files that are to be drawn anew. What a file manager does for one of them, often some moments
/// later, takes the window's thread a good part of a millisecond, so ten thousand at once would hold it up
/// for seconds. Here the thread takes as many as leave it most of its time for everything else, and none
/// while it is busy anyway, as when it still opens the folder. What stands first by its name is drawn first.
/// A few files, such as those of a command, go ahead of all.
///
/// `add` and `clear` may be called on any thread, the rest on the window's.
class ChangeQueue {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr auto kBeat = std::chrono::milliseconds(40);  ///< between two calls of `take`
  static constexpr std::size_t kFew = 64;                       ///< added at once, they go ahead

  /// The processor time that the window's thread has used by a moment.
  struct Work {
    Clock::time_point time;
    Clock::duration used;  ///< of the processor

    /// Measures the thread that calls.
    static Work now();
  };

  /// True when `take` is to be called from now on.
  bool add(std::vector<std::string> paths);
  /// What is to be drawn now, which may be nothing. Absent when nothing waits any more: then `take` is not to
  /// be called before `add` says so again.
  std::optional<std::vector<std::string>> take(const Work& work);
  void clear();

 private:
  /// As lists are sorted usually: numbers by their value.
  struct ByName {
    bool operator()(const std::string& one, const std::string& other) const;
  };
  std::size_t mayTake(const Work& work, std::size_t waiting);

  std::mutex mutex_;
  std::vector<std::string> few_;
  std::set<std::string, ByName> many_;
  bool isBeating_ = false;  // `take` is called

  // The window's thread alone.
  Work last_{};
  bool hasBegun_ = false;
  double busy_ = 0;  // the part of its time that the thread has used of late
  std::size_t slice_ = kFew;
  Clock::time_point taken_{};  // when something was taken last
};

}  // namespace keldane
