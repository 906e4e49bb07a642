// The threads that find the files to be stored and have them stored.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "daemon/backup/RepositoryKeeper.h"
#include "daemon/backup/RepositoryWatch.h"
#include "daemon/backup/batch/BatchChoice.h"
#include "daemon/backup/batch/BatchRun.h"
#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/scan/LookList.h"
#include "daemon/scan/QuietLook.h"
#include "daemon/scan/Scanner.h"
#include "daemon/scan/waiting/PendingFiles.h"
#include "daemon/store/Store.h"
#include "daemon/watch/Watcher.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Keeps the list of pending files and works through it in batches. Files that a user prefers have batches of
/// their own, which start at once. One thread receives changes, one looks at the disk, one stores pending
/// files, one stores preferred files, and one stores large files, one at a time, so that no other file waits
/// for them. The owners of the files have equal shares of each batch; owners of large files take turns. Files
/// are looked for when the kernel tells of a change and when a rule changes, and everywhere after a start,
/// after a suspend and every few hours. Any thread may call. The mutex guards the lists. It is not held
/// while a file is read or the engine runs; then only the lane's own lock is.
class BackupWorker {
 public:
  struct Timing {
    /// The time from the first noticed change to its batch. The delay lets one batch take many changes.
    std::chrono::milliseconds batchDelay = std::chrono::seconds(45);
    QuietLook::Timing looks = {};
    std::chrono::seconds fullInterval = std::chrono::hours(24);
    /// The time for which one owner's large file may keep another's waiting. A file that was interrupted for
    /// that reason has twice as much time at its next attempt, so that it is stored in the end.
    std::chrono::milliseconds turn = std::chrono::minutes(10);
  };

  BackupWorker(Store& store, RuleBook& rules, BackupEngine& engine, const RepositoryFiles& files,
               RepositoryWatch& watch, RepositoryKeeper& keeper, const Timing& timing);
  ~BackupWorker();
  BackupWorker(const BackupWorker&) = delete;
  BackupWorker& operator=(const BackupWorker&) = delete;

  void start();
  /// Ends the running calls of the engine, and the threads.
  void stop();

  /// Looks again at a path whose rule changed: a file at once, a folder on the scanning thread. Files that
  /// are found are stored without the delay. When this returns, files that the rules exclude now are no
  /// longer pending. A batch that is about to store such a file is ended.
  void reconsider(const std::string& path);
  /// While an object lives, a rule is about to be changed and its path to be looked at again. Meanwhile the
  /// progress counts a place to be scanned.
  class Intention {
   public:
    explicit Intention(BackupWorker& worker) : worker_(worker) { worker_.addIntention(1); }
    ~Intention() { worker_.addIntention(-1); }
    Intention(const Intention&) = delete;
    Intention& operator=(const Intention&) = delete;

   private:
    BackupWorker& worker_;
  };
  /// Looks again everywhere.
  void reconsiderAll();
  /// Stores the file next, even while automatic backup is off.
  void prioritize(const std::string& path);
  /// Removes the preference of files at or below a path whose rule changed, if they no longer belong into the
  /// backup. They are not preferred when they are included again.
  void endUnwantedPreferences(const std::string& path);
  /// Tries the repository at once, because it was changed or came back.
  void repositoryChanged();
  /// Called when stored bytes are damaged. The next batches read every file, even files that earlier
  /// snapshots have.
  void bytesLost();
  /// Lets the lanes look again at what they may do.
  void wake();
  /// Keeps batches from starting for as long as it lives.
  struct Stillness {
    std::unique_lock<Mutex> ordinary, preferred, large;
  };
  /// Ends the running batches and returns when they have ended. A lane's own thread may call it with the
  /// lane's job; that lane is not waited for.
  [[nodiscard]] Stillness holdStill(const EngineJob* own = nullptr);

  struct Modes {
    bool enabled = true;
    bool automatic = true;
    bool lowerPriority = false;
    std::int64_t pausedUntil = 0;  ///< seconds since boot
    std::int64_t restsUntil = 0;   ///< seconds since boot; preferred files are stored meanwhile
  };
  void setModes(const Modes& modes);

  struct Progress {
    std::uint64_t pendingFiles = 0, pendingBytes = 0;  ///< without the finished part of running batches
    std::string currentFile;                           ///< empty when none
    /// The number of places that are still to be scanned, including the current one. While there is one,
    /// there may be more to store than the pending files.
    std::size_t placesToScan = 0;
    bool hasPreferred = false;  ///< some of the pending files are preferred
    bool isStoring = false;     ///< a batch runs
    bool isReady = false;       ///< the repository was made ready since the start
  };
  Progress progress() const;
  bool isPending(const std::string& path) const { return pending_.contains(path); }
  bool isPendingBelow(const std::string& folder) const;
  /// Whether a waiting or running scan will visit that path.
  bool isToBeScanned(const std::string& path) const;
  /// The approximate part of a file that has been read, from 0 to 1; absent unless the file is being stored
  /// now.
  std::optional<double> partStored(const std::string& path) const;
  /// Whether a path lies on a disk that held stored files and is not connected.
  bool isNotConnected(const std::string& path) const { return scanner_.isHidden(path); }
  /// Whether a file is preferred and still has to be stored or looked at. A preference ends with its batch, a
  /// moment after the file has left the list of pending files.
  bool isPrioritized(const std::string& path) const;

 private:
  /// The kind of files that a lane stores.
  enum class Work { ordinary, preferred, large };

  /// A thread that runs one batch at a time.
  struct Lane {
    explicit Lane(Work whichWork) : work(whichWork) {}
    const Work work;
    EngineJob job;
    // Held while a batch is prepared and runs.
    Mutex running{{.name = "BackupWorker.running", .heldWhileWaiting = true}};
    bool isStoring KELDANE_GUARDED_BY(&BackupWorker::mutex_) = false;
    // Its batch has preferred files.
    bool isForced KELDANE_GUARDED_BY(&BackupWorker::mutex_) = false;
    // Null unless it is being stored.
    const Batch* batch KELDANE_GUARDED_BY(&BackupWorker::mutex_) = nullptr;
    std::uint64_t filesDone KELDANE_GUARDED_BY(&BackupWorker::mutex_) = 0;
    std::uint64_t bytesDone KELDANE_GUARDED_BY(&BackupWorker::mutex_) = 0;
    std::string current KELDANE_GUARDED_BY(&BackupWorker::mutex_);
    // Bytes, when `current` became the current file.
    std::uint64_t doneBeforeCurrent KELDANE_GUARDED_BY(&BackupWorker::mutex_) = 0;
    // The paths whose rules changed while the batch runs.
    std::vector<std::string> reconsidered KELDANE_GUARDED_BY(&BackupWorker::mutex_);
    std::thread thread;
  };

  void runScanner();
  bool lookAtNext();
  bool lookAtChange();
  bool lookAtTree();
  std::chrono::milliseconds lookQuietly();
  void giveMemoryBack();
  void noteLook(bool news) KELDANE_REQUIRES(mutex_);
  void filesChanged(const std::vector<Change>& changes);
  void dropExcluded(const std::string& path);
  void runLane(Lane& lane);
  bool step(Lane& lane);
  bool prepare(Lane& lane);
  std::optional<Batch> nextBatch(const Lane& lane);
  std::optional<Batch> nextOrdinary();
  std::optional<Batch> nextLarge();
  std::vector<LargeFile> waitingLarge() KELDANE_REQUIRES(mutex_);
  Batch batchOf(const std::vector<PendingFiles::File>& files, const Lane& lane);
  std::set<std::string> aboutToBeStoredBesides(const Lane& lane) const;
  void noteProgress(Lane& lane, std::uint64_t files, std::uint64_t bytes, const std::string& current);
  void endIfExcluded(Lane& lane) KELDANE_REQUIRES(mutex_);
  void endOfTurn(Lane& lane) KELDANE_REQUIRES(mutex_);
  void addIntention(int change);
  void forgetFailuresBelow(const std::string& path);
  void noteStoredAnew();
  void addAgain(Batch& batch);
  bool isBatchDue() const KELDANE_REQUIRES(mutex_);
  bool isFullDue() const KELDANE_REQUIRES(mutex_);
  bool runBatch(Lane& lane, const Batch& batch);
  bool learnFrom(const Lane& lane, const Batch& batch, const BatchEnd& end,
                 std::chrono::steady_clock::duration took);
  void noteRest(const Batch& batch);
  bool waitForWork(std::chrono::milliseconds time);
  void willScan(const std::string& place, bool urgent) KELDANE_REQUIRES(mutex_);
  bool mayWork(bool preferred) const KELDANE_REQUIRES(mutex_);
  void cancelWhatMayNotRun() KELDANE_REQUIRES(mutex_);
  void endAfterSuspend() KELDANE_REQUIRES(mutex_);

  Store& store_;
  RuleBook& rules_;
  BackupEngine& engine_;
  RepositoryWatch& watch_;
  RepositoryKeeper& keeper_;
  const Timing timing_;
  PendingFiles pending_;
  BatchChoice choice_;
  Watcher watcher_;
  Scanner scanner_;
  BatchRun run_;

  mutable Mutex mutex_{{.name = "BackupWorker.mutex"}};
  Condition changed_;
  Modes modes_ KELDANE_GUARDED_BY(mutex_);
  LookList looksWaiting_ KELDANE_GUARDED_BY(mutex_);
  // The tree that is being scanned; empty when none is.
  std::string placeScanned_ KELDANE_GUARDED_BY(mutex_);
  bool placesMayChange_ KELDANE_GUARDED_BY(mutex_) = false;  // the watcher must be told the new places
  int intentions_ KELDANE_GUARDED_BY(mutex_) = 0;
  // Upkeep of the repository is running, perhaps under a lock.
  bool isCaring_ KELDANE_GUARDED_BY(mutex_) = false;
  // The time of the first change since the last batch began.
  std::optional<std::chrono::steady_clock::time_point> noticed_ KELDANE_GUARDED_BY(mutex_);
  bool urgent_ KELDANE_GUARDED_BY(mutex_) = true;  // a person waits for it
  bool ready_ KELDANE_GUARDED_BY(mutex_) = false;
  std::uint64_t wakes_ KELDANE_GUARDED_BY(mutex_) = 0;  // how often something changed
  SnapshotRecord lastFull_ KELDANE_GUARDED_BY(mutex_);
  std::string newest_ KELDANE_GUARDED_BY(mutex_);  // the id of the newest snapshot
  bool changedSinceFull_ KELDANE_GUARDED_BY(mutex_) = false;
  bool lostBytes_ KELDANE_GUARDED_BY(mutex_);  // stored bytes were lost since the last full snapshot
  std::size_t mostFiles_ KELDANE_GUARDED_BY(mutex_);
  std::uint64_t mostBytes_ KELDANE_GUARDED_BY(mutex_);
  // Seconds of the computer's sleep that were noticed so far.
  std::int64_t suspended_ KELDANE_GUARDED_BY(mutex_) = 0;
  struct Hour {
    std::int64_t number = 0;
    std::string parent;                      // the newest snapshot of this hour
    std::map<std::string, BatchFile> files;  // by path
  };
  Hour hour_ KELDANE_GUARDED_BY(mutex_);
  // The turn of the owner whose large file is being stored.
  struct Turn {
    LargeFile file;
    std::chrono::steady_clock::time_point end, nextLook;
  };
  Turn turn_ KELDANE_GUARDED_BY(mutex_);
  std::vector<LargeFile> foundLarge_ KELDANE_GUARDED_BY(mutex_);  // files that wait, or have waited
  // How often the turn of an interrupted large file was doubled, by path.
  std::map<std::string, unsigned> doublings_ KELDANE_GUARDED_BY(mutex_);

  std::atomic<bool> stopping_ = false;
  // Held by the one lane that makes the repository ready.
  Mutex preparing_{{.name = "BackupWorker.preparing", .heldWhileWaiting = true}};
  Lane ordinary_{Work::ordinary}, preferred_{Work::preferred}, large_{Work::large};
  const std::array<Lane*, 3> lanes_ = {&ordinary_, &preferred_, &large_};
  std::thread scanning_;
  // Used by the scanning thread alone:
  std::optional<Scanner::Walk> walk_;  // the walk through placeScanned_
  bool wasStoring_ = false;
  QuietLook quiet_;
};

}  // namespace keldane
