// What is known of the files that are shown, and what is to be asked about them next.
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

/// One folder at a time, because the daemon answers for a whole folder in one go. Bounded: the folders that
/// were looked at least recently go first. Paths are absolute. Not for several threads at once.
class StatusCache {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kMostFiles = 20'000;
  static constexpr std::size_t kMostFolders = 256;
  static constexpr std::size_t kLargeFolder = 2'000;  ///< more entries are asked about less often
  static constexpr std::size_t kWorthListing = 16;    ///< from so many files on the whole folder is asked for
  static constexpr std::size_t kMostInABatch = 256;
  static constexpr std::size_t kSlowToOpen = 1'000;  ///< a folder of more is opened first, and told of then

  explicit StatusCache(const StatusTiming& timing) : timing_(timing) {}

  /// What is known of a file that is shown; null when it is to be asked about first, which is noted. Null as
  /// well when a file of a large folder is shown for the first time: it is among the next `takeLate`.
  const FileStatus* find(const std::string& path);
  /// The paths of what is to be shown though `find` has not told it, when they are due.
  std::vector<std::string> takeLate(Clock::time_point now);
  /// A folder is about to be shown: it is asked about as a whole, at once, unless it is known already.
  void expect(const std::string& folder);

  /// What to ask the daemon next.
  struct Question {
    std::string folder;
    std::vector<std::string> names;
    bool whole = false;  ///< list the folder; there are no names then
  };
  /// Nothing when nothing is due at this time.
  std::optional<Question> nextQuestion(Clock::time_point now);
  /// When something will be due; nothing when nobody shows anything. Not earlier than `now`.
  std::optional<Clock::time_point> nextDue(Clock::time_point now) const;
  /// That a folder has too many entries to be listed as a whole.
  void setTooLarge(const std::string& folder);

  /// The names of a question from this one on were not asked about, and are to be later.
  void putBack(Question& question, std::size_t begin);

  using Answer = std::unordered_map<std::string, FileStatus>;  ///< by name
  /// Keeps an answer that took this long, and answers the paths of what is shown and has changed.
  std::vector<std::string> keep(const Question& question, const Answer& answer, StatusTiming::Duration cost);

  /// The daemon's state has changed: all folders are due sooner.
  void stateChanged() { ++state_; }
  /// These are to be asked about at once, if they are shown.
  void hurry(const std::vector<std::string>& paths);
  /// Nothing is known any more, and everything is to be asked about anew. Answers the paths of what was
  /// shown.
  std::vector<std::string> forgetAll();
  /// The paths of what is shown and of which something is known.
  std::vector<std::string> shown() const;
  /// Everything is due now; what is known stays.
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
    std::vector<std::string> late;   // names to tell of
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
