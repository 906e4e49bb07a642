// The daemon's memory, an SQLite file: rules, settings, jobs of restoring, and the catalogue of stored files.
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

#include "daemon/store/snapshots/PathsByFolder.h"
#include "platform/threads/Mutex.h"

namespace keldane {

struct SnapshotTable;

/// The state of a file when it was stored. Times are nanoseconds since the UNIX epoch.
struct FileState {
  std::uint64_t size = 0;          ///< bytes
  std::int64_t modified = 0;       ///< the last change of the contents
  std::int64_t statusChanged = 0;  ///< the last change of anything: contents, mode, owner, name
  bool operator==(const FileState&) const = default;
};

/// The newest stored version of a file.
struct BackupRecord : FileState {
  double date = 0;            ///< the time of the backup, seconds since the UNIX epoch
  std::uint32_t version = 0;  ///< the number of the backup that stored it
  bool damaged = false;       ///< a check found that its stored bytes are not whole
  bool removed = false;       ///< it was deleted on the disk
};

/// One stored version of a file.
struct VersionRecord : FileState {
  std::uint32_t version = 0;
  double date = 0;
  std::string snapshot;  ///< a snapshot that holds it
  std::string prefix;    ///< precedes the file's path in the snapshot; empty except for gathered versions
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

/// Rules, settings and catalogue. When an operation returns, its change is in the write-ahead log and
/// survives the death of this process. The catalogue can be made anew from the repository; rules and settings
/// are also in each snapshot's manifest. Throws SQLite::Exception when the file cannot be used.
///
/// Used on any thread. There is a connection that writes and one that reads, each under a mutex of its own,
/// so that a question about a file does not wait for what is being written. Long operations write in
/// transactions of some hundred rows; if the process dies between two of them, what is missing counts as not
/// stored. Paths are bytes, need not be UTF-8, and are ordered by their bytes.
class Store {
 public:
  /// Opens or makes the file, readable to its owner alone. A symbolic link, and a file of another user, is
  /// not used; nor is a file of a newer format. A file of an older format keeps its rules, types, priorities,
  /// settings and profile; its records of files are dropped, because they did not describe anything stored.
  explicit Store(const std::string& file);

  /// The file, without symbolic links.
  const std::string& path() const { return path_; }

  // --- Rules and settings ---

  /// The rules: whether a path is included, by path.
  std::map<std::string, bool> rules();
  void setRule(const std::string& path, bool included);
  void removeRule(const std::string& path);

  /// The toggle of a file type, by type.
  std::map<std::string, std::uint32_t> types();
  void setType(const std::string& type, std::uint32_t toggle);
  void removeType(const std::string& type);

  /// The paths with priority. The number grows with each path, so it tells their order.
  std::map<std::string, std::int64_t> priorities();
  void addPriority(const std::string& path);
  void removePriority(const std::string& path);

  /// Settings of the daemon itself and profile values of its clients are kept apart by `table`.
  enum class Table { settings, profile };
  std::optional<std::string> value(Table table, const std::string& key);
  void setValue(Table table, const std::string& key, const std::string& value);
  std::map<std::string, std::string> values(Table table);
  /// Sets a value of the administrator's, which is not kept in the file. `value` returns it while nothing
  /// else was set, or always when it is fixed; `setValue` then changes nothing. This is called before any
  /// other thread uses the store.
  void administer(Table table, const std::string& key, const std::string& value, bool fixed);
  bool isFixed(Table table, const std::string& key) const;

  /// The reason why rules and settings cannot be written, as a sentence for people; absent while they can.
  /// After a failed change this function itself tries a small write, at most every two seconds, so that it
  /// notices when the cause is gone.
  std::optional<std::string> trouble();

  /// The marks that the last scans found at paths, as numbers that the caller gives; 0 removes a path. They
  /// are part of the catalogue.
  std::map<std::string, std::uint32_t> marks();
  void setMark(const std::string& path, std::uint32_t mark);
  /// Takes out what lies at or below a path.
  void removeMarks(const std::string& path);

  // --- What is stored ---

  /// The newest version of a file; absent when none is stored.
  std::optional<BackupRecord> record(const std::string& path);
  /// The files whose newest version is damaged.
  std::set<std::string> damagedFiles();
  /// The records of a folder's direct children, by path. `folders` takes what foldersWithRecordsIn returns.
  std::map<std::string, BackupRecord> recordsIn(const std::string& folder,
                                                std::vector<std::string>* folders = nullptr);
  /// The names (last components) of the folders directly in a folder that have records somewhere below them,
  /// those of removed files included, in the order of their bytes.
  std::vector<std::string> foldersWithRecordsIn(const std::string& folder);
  /// Whether something below a folder is stored, removed files included.
  bool hasRecordBelow(const std::string& folder);
  /// Whether a file that was not removed is stored at or below a path.
  bool holdsFiles(const std::string& path);
  /// Called with each record at or below a path, in the order of the paths. It returns false to end the
  /// visit. No lock is held during the call, so it may use the store.
  using VisitRecord = std::function<bool(const std::string& path, const BackupRecord& record)>;
  void visitRecords(const std::string& path, const VisitRecord& visit);

  /// The versions of a file that a snapshot holds, newest first, at most `most`.
  std::vector<VersionRecord> versions(const std::string& path, std::size_t most = 100);
  /// The files at or below a path as they were at a backup. For each file it returns the newest version whose
  /// number is at most `number` (0: any) and whose date is at most `before` (0: any). A file that was removed
  /// before that is left out, unless both are 0. The versions name few different snapshots, as far as that is
  /// cheap to find out. All of them are in memory at once.
  std::vector<std::pair<std::string, VersionRecord>> versionsBelow(const std::string& path,
                                                                   std::uint32_t number, double before);

  /// The direct contents of a folder at a time: files with their newest version up to then, and folders with
  /// something in them; paths, sorted by their bytes.
  struct FolderState {
    std::vector<std::pair<std::string, VersionRecord>> files;
    std::vector<std::string> folders;
  };
  FolderState folderAt(const std::string& folder, double time);

  /// The paths of random stored files that were not removed, each at most once.
  std::vector<std::string> sample(std::size_t most);

  struct Totals {
    /// These count the newest versions of files that are still on the disk. A sum of bytes beyond the range
    /// is the largest number.
    std::uint64_t files = 0, bytes = 0;
  };
  Totals totals();

  /// The highest number that a backup ever had; 0 before the first.
  std::uint32_t highestNumber();
  /// Takes the next number. It is on the disk when this returns and is never given again, whether or not the
  /// backup succeeds.
  std::uint32_t takeNumber();
  void raiseHighestNumber(std::uint32_t number);

  /// Records a finished snapshot. `stored` are new versions with the snapshot's number. `confirmed` are paths
  /// whose newest version up to that number is also in the snapshot; paths without a stored version are
  /// ignored. The failures of all these paths are cleared, and removals before the snapshot's time are
  /// cancelled.
  void addSnapshot(const SnapshotRecord& snapshot, const std::vector<StoredFile>& stored,
                   const PathsByFolder& confirmed);
  /// Records a partial snapshot with a prefix, into which stored versions were copied. The versions are given
  /// as paths and numbers; unknown ones are ignored.
  void addGathered(const SnapshotRecord& snapshot,
                   const std::vector<std::pair<std::string, std::uint32_t>>& versions);
  /// All known snapshots, by number.
  std::vector<SnapshotRecord> snapshots();
  /// Removes snapshots, and the versions that no other snapshot holds. If the newest version of a file is
  /// removed, the newest remaining one takes its place. A file without a remaining version counts as not
  /// stored.
  void removeSnapshots(const std::vector<std::uint32_t>& numbers);
  /// Sets the snapshots' whole ids, by number.
  void setSnapshotIds(const std::map<std::uint32_t, std::string>& ids);

  /// With `removed`, records that the file and every file below that path are no longer on the disk since
  /// `date`, and clears their failures. A file that was removed earlier keeps its date. Without `removed`,
  /// records that the file of exactly that path is there again.
  void setRemoved(const std::string& path, bool removed, double date);

  /// The settings of retention.
  struct Retention {
    double keepDeleted = 90 * 86400.0;  ///< seconds for which versions of deleted files are kept
  };
  /// The snapshots that may be forgotten at the time `now`, in seconds since the UNIX epoch. Retention.h has
  /// the rules. This can take some seconds, but no other operation waits for it.
  std::vector<SnapshotRecord> forgettable(double now, const Retention& rules);
  /// The versions that are the only reason for keeping many snapshots. Once they were stored again together
  /// under the prefix of a new snapshot, and recorded by addGathered, those snapshots may be forgotten. Each
  /// version names a snapshot and a prefix to fetch it from. The result is empty while gathering is not worth
  /// the work, and has at most about `mostBytes`.
  std::vector<std::pair<std::string, VersionRecord>> gatherable(double now, const Retention& rules,
                                                                std::uint64_t mostBytes);

  /// Records that the version of a file in a snapshot is damaged, because a part of it is in a damaged pack.
  /// `snapshot` is an id or the beginning of one, of at least 8 digits.
  void setDamaged(const std::string& path, const std::string& snapshot);

  // --- Failures ---

  /// Records why a file could not be stored. The date of its first failure is kept.
  void setFailure(const std::string& path, const std::string& reason, double date);
  void clearFailure(const std::string& path);
  std::optional<std::string> failure(const std::string& path);
  /// The failures in the order of their paths, at most `most`.
  std::vector<FailureRecord> failures(std::size_t most = 1000);
  std::uint64_t failureCount();
  /// Whether something failed at a folder or below it.
  bool hasFailureBelow(const std::string& folder);
  /// The failures at or below a path, by path, with their reasons.
  std::map<std::string, std::string> failuresBelow(const std::string& path);
  /// Removes the failures at a path and below it.
  void clearFailuresBelow(const std::string& path);

  // --- Making the catalogue anew ---

  /// Deletes the whole catalogue with its failures. Rules, settings, jobs of restoring and numbers stay.
  void clearCatalogue();
  /// Records what a snapshot holds according to its manifest and contents. Versions with the same number that
  /// are found in several snapshots are one version. Snapshots may be recorded in any order, more than once,
  /// and each in several parts; the rising or falling order of their numbers takes the least room. The
  /// highest number is raised.
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
  /// Takes the next number, keeps the job and returns the number.
  std::uint32_t addRestore(const RestoreRecord& job);
  /// Replaces the record of a job. It does nothing for an unknown number.
  void setRestore(const RestoreRecord& job);
  /// All jobs, by number.
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
  void snapshotsHaveChanged();  // called after the transaction
  void removeUnheld();
  void finishRemoval();
  template <class OnFile, class OnFolder>
  void visitChildren(const std::string& folder, const OnFile& onFile, const OnFolder& onFolder);

  struct Administered {
    std::string value;
    bool fixed = false;
  };

  const std::string path_;
  std::map<std::pair<Table, std::string>, Administered> administered_;  // set before other threads come
  Mutex mutex_{{.name = "Store.mutex"}};
  SQLite::Database database_ KELDANE_GUARDED_BY(mutex_);
  std::atomic<bool> hasTrouble_ = false;
  std::string trouble_ KELDANE_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point nextTry_ KELDANE_GUARDED_BY(mutex_);  // next small write
  Mutex readMutex_{{.name = "Store.readMutex", .leaf = true}};
  SQLite::Database reader_ KELDANE_GUARDED_BY(readMutex_);  // never writes
  // The query is kept, because preparing it takes longer than running it, and a menu runs it four times for
  // each file.
  std::optional<SQLite::Statement> recordQuery_ KELDANE_GUARDED_BY(readMutex_);
  std::shared_ptr<const SnapshotTable> snapshotTable_ KELDANE_GUARDED_BY(readMutex_);  // null: not read yet
  Mutex removalMutex_{{.name = "Store.removalMutex"}};  // taken before the others
};

}  // namespace keldane
