// Finds the files that are to be stored.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/rules/RuleBook.h"
#include "daemon/scan/ScanFailures.h"
#include "daemon/scan/disk/FileFacts.h"
#include "daemon/scan/disk/FolderEntries.h"
#include "daemon/scan/disk/KnownMounts.h"
#include "daemon/scan/disk/ReadAhead.h"
#include "daemon/scan/waiting/Delays.h"
#include "daemon/scan/waiting/PendingFiles.h"
#include "daemon/store/ChildRecords.h"
#include "daemon/store/Store.h"
#include "daemon/watch/Watcher.h"

namespace keldane {

/// Compares the disk with the rules and the catalogue, and keeps the list of pending files. It notes removed
/// files and unreadable folders in the catalogue, and marks that exclude folders in the rules. It watches a
/// folder before it reads the folder. The records of a disk that is not connected do not change. Only one
/// thread scans folders; the other functions may be called on any thread.
class Scanner {
 public:
  /// `watcher` may be null; then no folder is watched.
  Scanner(Store& store, RuleBook& rules, PendingFiles& pending, Watcher* watcher = nullptr);

  /// A scan of a place and everything below it, in steps. Links are not followed.
  struct Walk {
    std::string place;
    std::uint32_t scan = 0;
    std::vector<std::string> folders;  ///< those that are left
    bool news = false;                 ///< a file has become pending
    bool isDone = false;
    std::unique_ptr<ReadAhead> ahead;  ///< reads folders meanwhile; null for few folders
  };
  Walk begin(const std::string& place);
  /// `fast` reads ahead on a second thread; `quiet` uses one thread, so that nobody notices the scan.
  enum class Pace { fast, quiet };
  /// Scans about so many of the next folders.
  void step(Walk& walk, std::size_t folders, Pace pace = Pace::fast);
  /// Scans a whole place. Ends early when `cancelled` becomes true. Returns whether a file has become
  /// pending.
  bool scan(const std::string& place, const std::atomic<bool>& cancelled);
  /// Scans a folder's direct entries. `below` receives the folders that must be scanned with everything below
  /// them: new ones, and the folder itself when its marks have changed. Returns whether a file has become
  /// pending.
  bool look(const std::string& folder, std::vector<std::string>& below);

  /// Whether a path lies on a disk that is not connected.
  bool isHidden(const std::string& path) const { return knownMounts_.isHidden(path); }

  /// Compares one path that is not a folder. Returns whether it has become pending.
  bool consider(const std::string& path);

  /// Notes that a file in this state could not be stored. It is no longer pending. It is tried again when it
  /// has changed or an hour has passed.
  void putOff(const std::string& path, const FileState& state);
  /// The files that were put off and whose hour has passed.
  std::vector<std::string> dueAgain() const { return delays_.due(); }
  /// Allows all files that were put off to be tried again. A person asked for a backup.
  void forgetDelays() { delays_.clear(); }

 private:
  /// The facts about one folder while it is compared.
  struct Folder {
    const std::string& path;
    const FolderEntries& entries;
    std::optional<bool> selected;  // for all of its files; absent: it differs from file to file
    bool heedsAttribute = false;
    std::vector<WaitingName> waiting;
    std::set<std::string, std::less<>> failing;  // selected files that cannot be stored
    std::vector<std::string> missing;            // stored files that are gone
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
  // Used by the scanning thread only:
  ChildRecords records_;
  FolderRead folder_;
  MountTable mounts_;
  ScanFailures failures_;
  std::uint32_t failuresOf_ = 0;  // the scan that failures_ was loaded for
};

}  // namespace keldane
