// The thread that finds what is to be backed up and has it backed up.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "daemon/engine/BackupEngine.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"

namespace keldane {

/// Keeps the list of pending files, priority files first, and works through it. Files are found again when a
/// rule changes and every minute. Any thread may call; the mutex guards the lists, and no lock is held while
/// a file is read.
class BackupWorker {
 public:
  BackupWorker(Store& store, const RuleBook& rules, std::unique_ptr<BackupEngine> engine);
  ~BackupWorker();
  BackupWorker(const BackupWorker&) = delete;
  BackupWorker& operator=(const BackupWorker&) = delete;

  void start();
  /// Ends after the block that is being read.
  void stop();

  /// Looks again at a path whose rule changed: a file at once, a folder on the worker's thread.
  void reconsider(const std::string& path);
  /// Looks again everywhere.
  void reconsiderAll();
  /// Takes the file next, even while automatic backup is off.
  void prioritize(const std::string& path);

  struct Modes {
    bool enabled = true;
    bool automatic = true;
    bool lowerPriority = false;
    std::int64_t pausedUntil = 0;  ///< seconds since boot
  };
  void setModes(const Modes& modes);

  struct Progress {
    std::uint64_t pendingFiles = 0, pendingBytes = 0;  ///< less what of the current file is done
    std::string currentFile;                           ///< empty when none
    std::size_t placesToScan = 0;
  };
  Progress progress() const;
  bool isPending(const std::string& path) const;
  bool isPendingBelow(const std::string& folder) const;
  bool isPrioritized(const std::string& path) const;

 private:
  void run();
  void willScan(const std::string& place);
  std::optional<std::string> nextPlace();
  void rescan(const std::string& place);
  void scanFolder(const std::string& folder);
  void forgetBelow(const std::string& path);
  void considerFile(const std::string& path);
  std::optional<std::string> nextFile();
  void backUp(const std::string& path);
  void waitForWork();
  bool mayWork(bool hasPriority) const;

  Store& store_;
  const RuleBook& rules_;
  const std::unique_ptr<BackupEngine> engine_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by mutex_:
  Modes modes_;
  std::map<std::string, std::uint64_t> pending_;  // bytes by path
  std::uint64_t pendingBytes_ = 0;
  std::map<std::string, std::int64_t> priorities_;  // order by path
  std::int64_t lastPriority_ = 0;
  std::deque<std::string> toScan_;  // each once
  std::set<std::string> toBeScanned_;
  std::string scanned_;  // empty when none
  std::string currentFile_;

  BackupJob job_;  // cancelled once and for all, when the worker stops
  std::thread thread_;
};

}  // namespace keldane
