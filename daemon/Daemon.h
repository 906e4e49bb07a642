// The daemon: its store, rules, engine, worker, restores, settings and state.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/SystemConfig.h"
#include "daemon/backup/BackupWorker.h"
#include "daemon/backup/RepositoryWatch.h"
#include "daemon/backup/Surroundings.h"
#include "daemon/care/BackupAge.h"
#include "daemon/care/RepositoryCare.h"
#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/restore/RestoreJobs.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/server/Permissions.h"
#include "daemon/server/nodes/NodeBuilder.h"
#include "daemon/store/Store.h"
#include "platform/plist/PropertyList.h"
#include "platform/threads/Mutex.h"

namespace keldane {

struct DaemonOptions {
  std::string socket, store;       ///< see DefaultPlaces.h for the usual ones
  std::string data;                ///< the daemon's own folder; empty: that of the store
  std::string root = "/";          ///< paths outside of it are barred from the backup
  bool allowSharedFolder = false;  ///< socket and store may lie where others can write
  bool verbose = false;
  SystemConfig config;  ///< the administrator's settings
  BackupWorker::Timing timing;
};

/// Makes the engine for the repository that these configuration files name.
using EngineFactory = std::function<std::unique_ptr<BackupEngine>(const RepositoryFiles& files)>;

/// The parts that all peers share. Used on any thread. Settings are kept in the store, and the worker is told
/// those that concern it.
class Daemon {
 public:
  /// `terminate` is called when a client asks the daemon to quit.
  Daemon(const DaemonOptions& options, const EngineFactory& engine, std::function<void()> terminate);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  Store& store() { return store_; }
  RuleBook& rules() { return rules_; }
  BackupWorker& worker() { return worker_; }
  BackupEngine& engine() { return *engine_; }
  RepositoryFiles& files() { return files_; }
  RepositoryWatch& watch() { return watch_; }
  RepositoryCare& care() { return care_; }
  RestoreJobs& restores() { return restores_; }
  const NodeBuilder& nodes() const { return nodes_; }
  bool verbose() const { return verbose_; }
  void terminate() const { terminate_(); }
  const SystemConfig& config() const { return config_; }
  /// Ends every call of the engine, and the threads.
  void stop();

  /// A setting of the daemon as a number; 0 or its usual value when it was never set.
  std::uint32_t setting(const std::string& key);
  void setSetting(const std::string& key, std::uint32_t value);
  /// This computer's number in the repository; 0 before there is one.
  std::uint32_t computerNumber() const;

  /// Takes a report on power and network, which decides whether the worker rests.
  void tellSurroundings(const Surroundings::Report& report);
  /// Tells the worker of the settings that concern it; called when one has changed.
  void tellWorker();
  /// The reason why the worker rests, a sentence without its full stop; empty when it does not.
  std::string restingBecause();

  /// Bars the folder of a repository of this machine from the backup; called when it has changed.
  void barRepository();

  /// Pauses for that many minutes from now; 0 ends a pause. Setting the time of day makes no difference while
  /// the daemon runs.
  void pauseFor(std::uint32_t minutes);
  /// Minutes that are left, rounded up.
  std::uint32_t pausedMinutes() const;

  /// Every key of the state that clients poll. The files that are being backed up and restored are named to
  /// those who may see them.
  PropertyList state(const PeerAccess& access);

  /// The function that sends peers with an alert handler a selector and its dictionary. It is called on any
  /// thread.
  using Announce = std::function<void(const std::string& selector, const PropertyList& dictionary)>;
  void setAnnounce(Announce announce);
  void announce(const std::string& selector, const PropertyList& dictionary) const;

 private:
  void raiseAlert(const std::string& kind, const std::string& sentence) const;
  void takeConfiguration();
  void goOnWithPause();
  Surroundings::Rules restRules();
  static bool isAtRest(const BackupWorker::Progress& progress);
  const char* heldBy(const BackupWorker::Progress& progress);
  std::string statusFor(const std::string& held, const BackupWorker::Progress& progress,
                        std::uint64_t failures);

  const bool verbose_;
  const SystemConfig config_;
  const std::function<void()> terminate_;
  mutable Mutex announceMutex_{{.name = "Daemon.announceMutex"}};
  Announce announce_ KELDANE_GUARDED_BY(announceMutex_);
  Store store_;
  Surroundings surroundings_;
  RepositoryFiles files_;
  RuleBook rules_;
  const std::unique_ptr<BackupEngine> engine_;
  RepositoryWatch watch_;
  RepositoryCare care_;
  BackupWorker worker_;
  RestoreJobs restores_;
  NodeBuilder nodes_;
  BackupAge age_;
  std::atomic<bool> isRemote_ = false;         // the repository is reached over the network
  std::atomic<std::int64_t> pausedUntil_ = 0;  // seconds since boot; 0: no pause
};

}  // namespace keldane
