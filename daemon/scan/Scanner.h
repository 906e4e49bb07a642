// Finds what is to be stored by looking at the disk.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/rules/RuleBook.h"
#include "daemon/scan/Delays.h"
#include "daemon/scan/FileFacts.h"
#include "daemon/scan/FolderEntries.h"
#include "daemon/scan/KnownMounts.h"
#include "daemon/scan/PendingFiles.h"
#include "daemon/scan/ReadAhead.h"
#include "daemon/scan/ScanFailures.h"
#include "daemon/store/ChildRecords.h"
#include "daemon/store/Store.h"
#include "daemon/watch/Watcher.h"

namespace keldane {

/// Compares the disk with the rules and the catalogue, keeps the list of pending files, and notes in the
/// catalogue which stored files are no longer there, which folders cannot be read, and in the rules what is
/// to be ignored. Folders are watched before they are read. What lies on a disk that is not connected is left
/// as it is known. Looking at folders is for one thread; the rest may be called on any.
class Scanner {
 public:
  /// Without a watcher nothing is watched.
  Scanner(Store& store, RuleBook& rules, PendingFiles& pending, Watcher* watcher = nullptr);

  /// A look at a place and everything below it, links not followed, in steps.
  struct Walk {
    std::string place;
    std::uint32_t scan = 0;
    std::vector<std::string> folders;  ///< that are left
    bool news = false;                 ///< a file has come to wait that did not wait before
    bool isDone = false;
    std::unique_ptr<ReadAhead> ahead;  ///< reads while others are compared; none for a few folders
  };
  Walk begin(const std::string& place);
  /// Whether a second thread reads ahead, which takes less time, or nobody is to notice the step.
  enum class Pace { fast, quiet };
  /// Looks at the next folders, about so many.
  void step(Walk& walk, std::size_t folders, Pace pace = Pace::fast);
  /// All of it. Ends early when `cancelled` becomes true. Answers whether a file has come to wait.
  bool scan(const std::string& place, const std::atomic<bool>& cancelled);
  /// Looks at a folder's direct entries; what has to be looked at below is put into `below`: folders that are
  /// new, and everything when it is to be ignored from now on or no longer. Answers whether a file has come
  /// to wait.
  bool look(const std::string& folder, std::vector<std::string>& below);

  /// Whether a path lies on a disk that is not connected.
  bool isHidden(const std::string& path) const { return knownMounts_.isHidden(path); }

  /// Looks at one path that is no folder. Answers whether it has come to wait.
  bool consider(const std::string& path);

  /// Notes that a file in this state could not be stored: it waits no longer, and is tried again when it has
  /// changed or an hour has gone by.
  void putOff(const std::string& path, const FileState& state);
  /// Files that were put off and whose hour has gone by.
  std::vector<std::string> dueAgain() const { return delays_.due(); }
  /// A person asked for it: everything that was put off is tried again.
  void forgetDelays() { delays_.clear(); }

 private:
  /// What is found out about one folder.
  struct Folder {
    const std::string& path;
    const FolderEntries& entries;
    std::optional<bool> selected;  // all of its files; absent: each has to be asked about
    bool heedsAttribute = false;
    std::vector<WaitingName> waiting;
    std::set<std::string, std::less<>> failing;  // files that are wanted and do not wait
    std::vector<std::string> missing;            // files that are stored and not there
    std::set<std::string, std::less<>> withRecords;
  };

  void read(FolderRead& folder) const;
  bool lookAt(FolderRead& read, std::vector<std::string>& below, bool& isChanged);
  void compareFiles(Folder& folder);
  void compare(Folder& folder, const FolderEntries::File& file, const BackupRecord* record);
  bool isWanted(Folder& folder, const FolderEntries::File& file);
  void findBelow(const Folder& folder, std::vector<std::string>& below);
  void noteMissing(const Folder& folder);
  void couldNotRead(const std::string& path, int error);
  void settleFailures(const Folder& folder);
  void noteRemoved(const std::string& path);
  bool noteOtherFileSystem(const std::string& path);
  bool consider(const std::string& path, const struct stat* status, const BackupRecord* record);

  Store& store_;
  RuleBook& rules_;
  PendingFiles& pending_;
  Watcher* const watcher_;
  KnownMounts knownMounts_;
  Delays delays_;
  // Of the thread that looks at folders:
  ChildRecords records_;
  FolderRead folder_;
  MountTable mounts_;
  ScanFailures failures_;
  std::uint32_t failuresOf_ = 0;  // the walk that they were loaded for
};

}  // namespace keldane
