// What the daemon knows, in an SQLite file: rules, settings, jobs, and the catalogue of what is stored.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/threads/Mutex.h"

namespace keldane {

struct SnapshotTable;

/// How a file looked when it was stored. Times are nanoseconds since the UNIX epoch.
struct FileState {
  std::uint64_t size = 0;          ///< bytes
  std::int64_t modified = 0;       ///< of the contents
  std::int64_t statusChanged = 0;  ///< of anything: contents, mode, owner, name
  bool operator==(const FileState&) const = default;
};

/// The newest stored version of a file.
struct BackupRecord : FileState {
  double date = 0;            ///< of the backup, seconds since the UNIX epoch
  std::uint32_t version = 0;  ///< the number of the backup that stored it
  bool damaged = false;       ///< a check found that its stored bytes are not whole
  bool removed = false;       ///< it was deleted on the disk
};

/// One stored version of a file.
struct VersionRecord : FileState {
  std::uint32_t version = 0;
  double date = 0;
  std::string snapshot;  ///< one that has it
  std::string prefix;    ///< what stands before the file's path there; empty but for gathered versions
  bool damaged = false;
};

/// A snapshot of this computer. Its number is the number of the versions that it was first to store.
struct SnapshotRecord {
  std::uint32_t number = 0;
  std::string id;
  double time = 0;    ///< seconds since the UNIX epoch
  bool full = false;  ///< it holds everything that was selected at that time
  std::string prefix;
};

/// A file that a batch has stored.
struct StoredFile {
  std::string path;
  FileState state;
};

/// A file that could not be stored, and why.
struct FailureRecord {
  std::string path;
  std::string reason;
  double since = 0;  ///< seconds since the UNIX epoch
};

/// Rules, settings and catalogue. Every change is on its way to the file when an operation returns: the
/// write-ahead log keeps it through the death of this process. The catalogue can be made anew from the
/// repository; rules and settings are also in each snapshot's manifest. Throws SQLite::Exception when the
/// file cannot be used.
///
/// Any thread. There is a connection that writes and one that reads, each under a mutex of its own, so that a
/// question about a file does not wait for what is being written. Long operations write in transactions of
/// some hundred rows; if the process dies between two of them, what is missing counts as not stored. Paths
/// are bytes, need not be UTF-8, and are ordered by their bytes.
class Store {
 public:
  /// Opens or makes the file, readable to its owner alone. A symbolic link, and a file of another user, is
  /// not used; nor is a file of a newer format. A file of an older format keeps its rules, types, priorities,
  /// settings and profile; its records knew of nothing that was stored and go.
  explicit Store(const std::string& file);

  /// The file, without symbolic links.
  const std::string& path() const { return path_; }

  // --- Rules and settings ---

  /// Whether a path is included, by path.
  std::map<std::string, bool> rules();
  void setRule(const std::string& path, bool included);
  void removeRule(const std::string& path);

  /// The toggle of a file type, by type.
  std::map<std::string, std::uint32_t> types();
  void setType(const std::string& type, std::uint32_t toggle);
  void removeType(const std::string& type);

  /// When a path was given priority, as a growing number, by path.
  std::map<std::string, std::int64_t> priorities();
  void addPriority(const std::string& path);
  void removePriority(const std::string& path);

  /// Settings of the daemon itself and profile values of its clients are kept apart by `table`.
  enum class Table { settings, profile };
  std::optional<std::string> value(Table table, const std::string& key);
  void setValue(Table table, const std::string& key, const std::string& value);
  std::map<std::string, std::string> values(Table table);
  /// From now on `value` answers this one, if nothing was set, or always, if it is fixed: then `setValue`
  /// leaves all as it is. Not kept in the file. Before any other thread uses the store.
  void administer(Table table, const std::string& key, const std::string& value, bool fixed);
  bool isFixed(Table table, const std::string& key) const;

  /// Why rules and settings cannot be written, a sentence for people; absent while all is well. When the last
  /// change could not be written this tries a small one itself, at most every two seconds, so that it is over
  /// when the cause is.
  std::optional<std::string> trouble();

  // --- What is stored ---

  /// The newest version of a file; absent when none is stored.
  std::optional<BackupRecord> record(const std::string& path);
  /// The files whose newest version is damaged.
  std::set<std::string> damagedFiles();
  /// The records of a folder's direct children, by path. `folders` takes what foldersWithRecordsIn answers.
  std::map<std::string, BackupRecord> recordsIn(const std::string& folder,
                                                std::vector<std::string>* folders = nullptr);
  /// The names (last components) of the folders directly in a folder that have records somewhere below them,
  /// those of removed files included, in the order of their bytes.
  std::vector<std::string> foldersWithRecordsIn(const std::string& folder);
  /// Whether something below a folder is stored, removed files included.
  bool hasRecordBelow(const std::string& folder);
  /// Whether a file that was not removed is stored at or below a path.
  bool holdsFiles(const std::string& path);
  /// Called with each record at or below a path, in the order of the paths; false ends it. No lock is held
  /// during the call, so it may use the store.
  using VisitRecord = std::function<bool(const std::string& path, const BackupRecord& record)>;
  void visitRecords(const std::string& path, const VisitRecord& visit);

  /// The versions of a file that a snapshot holds, newest first, at most `most`.
  std::vector<VersionRecord> versions(const std::string& path, std::size_t most = 100);
  /// The files at or below a path as they were at a backup: of each the newest version whose number is at
  /// most `number` (0: the newest of all) and whose date is at most `before` (0: no bound). A file that was
  /// removed before that is left out, unless `number` is 0 and `before` is 0. The snapshots that are named
  /// are as few as is cheap to tell. Loads all of it.
  std::vector<std::pair<std::string, VersionRecord>> versionsBelow(const std::string& path,
                                                                   std::uint32_t number, double before);

  /// What was directly in a folder at a time: files with their newest version up to then, and folders with
  /// something in them; paths, sorted by their bytes.
  struct FolderState {
    std::vector<std::pair<std::string, VersionRecord>> files;
    std::vector<std::string> folders;
  };
  FolderState folderAt(const std::string& folder, double time);

  /// The paths of random stored files that were not removed, each at most once.
  std::vector<std::string> sample(std::size_t most);

  struct Totals {
    /// Of the newest versions of what is still there. More bytes than a number holds are the largest number.
    std::uint64_t files = 0, bytes = 0;
  };
  Totals totals();

  /// The highest number that a backup ever had; 0 before the first.
  std::uint32_t highestNumber();
  /// Takes the next number. It is on the disk when this returns and is never given again, whatever becomes of
  /// the backup.
  std::uint32_t takeNumber();
  void raiseHighestNumber(std::uint32_t number);

  /// Notes a finished snapshot and what it stored: `stored` are new versions with the snapshot's number,
  /// `confirmed` are paths whose newest version up to that number the snapshot holds as well; one of which
  /// nothing is stored is passed over. Clears what failed of them, and that they were removed before the
  /// snapshot's time.
  void addSnapshot(const SnapshotRecord& snapshot, const std::vector<StoredFile>& stored,
                   const std::vector<std::string>& confirmed);
  /// Notes a partial snapshot with a prefix, into which stored versions were copied: paths with the numbers
  /// of their versions. What is no longer known is passed over.
  void addGathered(const SnapshotRecord& snapshot,
                   const std::vector<std::pair<std::string, std::uint32_t>>& versions);
  /// All that are known, by number.
  std::vector<SnapshotRecord> snapshots();
  /// Takes snapshots out, and the versions that no other snapshot holds. A file whose newest version goes has
  /// the newest that is left; one that has none left is not stored.
  void removeSnapshots(const std::vector<std::uint32_t>& numbers);
  /// Sets the snapshots' whole ids, by number.
  void setSnapshotIds(const std::map<std::uint32_t, std::string>& ids);

  /// `removed`: notes that the file, and every file below that path, is no longer on the disk since `date`,
  /// and drops what failed there. A file that was removed earlier keeps its date. Otherwise notes that the
  /// file of exactly that path is there again.
  void setRemoved(const std::string& path, bool removed, double date);

  /// What retention keeps.
  struct Retention {
    double keepDeleted = 90 * 86400.0;  ///< seconds for which versions of deleted files are kept
  };
  /// The snapshots that may be forgotten at a time, in seconds since the UNIX epoch. Retention.h tells the
  /// rules. Takes up to some seconds, during which nobody waits for it.
  std::vector<SnapshotRecord> forgettable(double now, const Retention& rules);
  /// Versions for whose sake alone many snapshots are kept. When they were stored again together, each at the
  /// prefix of a new snapshot, and noted by addGathered, those snapshots may be forgotten. Each version names
  /// a snapshot and a prefix to fetch it from. Empty while it is not worth the work; at most about
  /// `mostBytes`.
  std::vector<std::pair<std::string, VersionRecord>> gatherable(double now, const Retention& rules,
                                                                std::uint64_t mostBytes);

  /// The version of a file that a snapshot holds is damaged: it has a part in a damaged pack. The snapshot's
  /// id may be a beginning of it, of at least 8 digits.
  void setDamaged(const std::string& path, const std::string& snapshot);

  // --- Failures ---

  /// Notes why a file could not be stored. When it failed first is kept.
  void setFailure(const std::string& path, const std::string& reason, double date);
  void clearFailure(const std::string& path);
  std::optional<std::string> failure(const std::string& path);
  /// In the order of the paths.
  std::vector<FailureRecord> failures(std::size_t most = 1000);
  std::uint64_t failureCount();
  /// Whether something failed at a folder or below it.
  bool hasFailureBelow(const std::string& folder);
  /// The failures at or below a path, by path, with their reasons.
  std::map<std::string, std::string> failuresBelow(const std::string& path);
  /// Drops what failed at a path and below it.
  void clearFailuresBelow(const std::string& path);

  // --- Making the catalogue anew ---

  /// Drops the whole catalogue, failures included; rules, settings, jobs of restoring and numbers stay.
  void clearCatalogue();
  /// Notes what a snapshot holds, as its manifest and contents tell it. A version that another snapshot told
  /// of is the same version. Snapshots may come in any order (that of their numbers, up or down, takes the
  /// least room), more than once, and each in several parts. Raises the highest number.
  struct RebuiltVersion {
    std::string path;
    FileState state;
    std::uint32_t version = 0;
    double date = 0;
  };
  void addRebuilt(const SnapshotRecord& snapshot, const std::vector<RebuiltVersion>& versions);

  // --- Jobs of restoring ---

  struct RestoreRecord {
    std::uint32_t number = 0;  ///< set by addRestore, never given again
    std::string request;       ///< a binary property list
    std::uint32_t status = 0;
    std::string report;  ///< a binary property list
    std::uint32_t user = 0;
  };
  /// Takes the next number, keeps the job and answers the number.
  std::uint32_t addRestore(const RestoreRecord& job);
  /// Does nothing for an unknown number.
  void setRestore(const RestoreRecord& job);
  /// By number.
  std::vector<RestoreRecord> restores();
  void removeRestore(std::uint32_t number);

 private:
  template <class... Values>
  void execute(const char* sql, const Values&... values);
  template <class Work>
  void writing(const Work& work) KELDANE_REQUIRES(mutex_);
  template <class Work>
  void inSlices(std::size_t count, const Work& work);
  template <class Work>
  void untilDone(const Work& work);
  void addSnapshotRow(const SnapshotRecord& snapshot);
  void removeHeld();
  std::shared_ptr<const SnapshotTable> snapshotTable() KELDANE_REQUIRES(readMutex_);
  void snapshotsHaveChanged();  // to be called after the transaction
  void removeUnheld();
  void finishRemoval();
  template <class OnFile, class OnFolder>
  void visitChildren(const std::string& folder, const OnFile& onFile, const OnFolder& onFolder);

  struct Administered {
    std::string value;
    bool fixed = false;
  };

  const std::string path_;
  std::map<std::pair<Table, std::string>, Administered> administered_;  // does not change once threads use it
  Mutex mutex_{{.name = "Store.mutex"}};
  SQLite::Database database_ KELDANE_GUARDED_BY(mutex_);
  std::atomic<bool> hasTrouble_ = false;
  std::string trouble_ KELDANE_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point nextTry_ KELDANE_GUARDED_BY(mutex_);  // of a small change
  Mutex readMutex_{{.name = "Store.readMutex", .leaf = true}};
  SQLite::Database reader_ KELDANE_GUARDED_BY(readMutex_);  // never writes
  // Kept, because to make it takes longer than to ask it, and a menu asks four times a file.
  std::optional<SQLite::Statement> recordQuery_ KELDANE_GUARDED_BY(readMutex_);
  std::shared_ptr<const SnapshotTable> snapshotTable_ KELDANE_GUARDED_BY(readMutex_);  // null: to be read
  Mutex removalMutex_{{.name = "Store.removalMutex"}};  // taken before the others
};

}  // namespace keldane
