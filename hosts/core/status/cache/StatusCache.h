// The known status of the files that are shown, and the next questions about them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hosts/core/status/FileStatus.h"
#include "hosts/core/status/StatusTiming.h"

namespace keldane {

/// Keeps the status by folder, because the daemon answers for a whole folder in one call. Its size is
/// bounded: the least recently used folders are dropped first. Paths are absolute. The caller must serialise
/// calls from several threads.
class StatusCache {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kMostFiles = 20'000;
  static constexpr std::size_t kMostFolders = 256;
  static constexpr std::size_t kLargeFolder = 2'000;  ///< a folder with more is asked about less often
  static constexpr std::size_t kWorthListing = 16;  ///< for so many files or more, the whole folder is listed
  static constexpr std::size_t kMostInABatch = 256;
  static constexpr std::size_t kSlowToOpen = 1'000;  ///< above it, emblems come after the icons

  explicit StatusCache(const StatusTiming& timing) : timing_(timing) {}

  /// The status of a file that is shown. Null when the daemon must be asked first; the file is then queued.
  /// Also null when a known file of a large folder is shown for the first time; the next `takeLate` returns
  /// it.
  const FileStatus* find(const std::string& path);
  /// The paths of the files whose status is known but was held back by `find`, once they are due.
  std::vector<std::string> takeLate(Clock::time_point now);
  /// Tells that a folder is about to be shown. Unless the folder is known already, it is listed as a whole at
  /// once.
  void expect(const std::string& folder);

  /// The next question for the daemon.
  struct Question {
    std::string folder;
    std::vector<std::string> names;
    bool whole = false;  ///< list the folder; `names` is then empty
  };
  /// Absent when nothing is due at this time.
  std::optional<Question> nextQuestion(Clock::time_point now);
  /// The time at which something will be due; never earlier than `now`. Absent when no folder is shown.
  std::optional<Clock::time_point> nextDue(Clock::time_point now) const;
  /// Marks a folder as one with too many entries to be listed as a whole.
  void setTooLarge(const std::string& folder);

  /// Puts the names from index `begin` on, which were not asked about, back into the queue.
  void putBack(Question& question, std::size_t begin);

  using Answer = std::unordered_map<std::string, FileStatus>;  ///< by name
  /// Keeps an answer that took `cost`. Returns the paths of the files that are shown and have changed.
  std::vector<std::string> keep(const Question& question, const Answer& answer, StatusTiming::Duration cost);

  /// Tells that the daemon's state has changed. All folders are then due sooner.
  void stateChanged() { ++state_; }
  /// Makes these files due at once, if they are shown.
  void hurry(const std::vector<std::string>& paths);
  /// Forgets the status of all files and makes all folders due. Returns the paths of the files whose status
  /// was shown.
  std::vector<std::string> forgetAll();
  /// The paths of the files that are shown and of which something is known.
  std::vector<std::string> shown() const;
  /// Makes all folders due now. The known status is kept.
  void askAnew();

  struct OpenFolder {
    std::string path;
    std::vector<std::string> samples;  ///< paths of some of the files that are shown
  };
  std::vector<OpenFolder> openFolders() const;
  void close(const std::string& folder);
  bool isEmpty() const { return folders_.empty(); }
  std::size_t count() const { return count_; }

 private:
  struct Entry {
    FileStatus status;
    bool isKnown = false;
    bool isShown = false;
  };
  struct NameHash : std::hash<std::string_view> {
    using is_transparent = void;
  };
  struct Folder {
    std::unordered_map<std::string, Entry, NameHash, std::equal_to<>> files;
    std::vector<std::string> queue;  // names to ask about
    Clock::time_point queuedAt{};    // the first of them
    std::vector<std::string> late;   // known names that `takeLate` will return
    Clock::time_point lateSince{};   // the first of them
    Clock::time_point askedAt{};     // when all was asked about last
    bool wasAsked = false, isTooLarge = false, isExpected = false;
    StatusTiming::Duration cost{};
    std::uint64_t stateSeen = 0, used = 0;
  };
  Folder& folderAt(std::string_view path);
  Clock::time_point dueTime(const Folder& folder, Clock::time_point now) const;
  StatusTiming::Duration rest(const Folder& folder, bool changed) const;
  void makeRoom(const Folder& wanted);
  void dropFolder(std::map<std::string, Folder, std::less<>>::iterator folder);
  static void queueShown(Folder& folder);
  template <class Keep>
  void dropMissing(Folder& folder, const Answer& answer, const Keep& keepOne);

  const StatusTiming timing_;
  std::map<std::string, Folder, std::less<>> folders_;
  std::size_t count_ = 0;  // files in all folders
  std::uint64_t uses_ = 0, state_ = 1;
};

}  // namespace keldane
