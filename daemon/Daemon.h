// The daemon's parts together: store, rules, worker, settings, state.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "daemon/backup/BackupWorker.h"
#include "daemon/server/NodeBuilder.h"
#include "daemon/server/Permissions.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

struct DaemonOptions {
  std::string socket = "/run/keldane/keldaned.sock";
  std::string store = "/var/lib/keldane/store.sqlite";
  std::string root = "/";          ///< what lies outside is barred from the backup
  bool allowSharedFolder = false;  ///< socket and store may lie where others can write
  bool verbose = false;
};

/// What all peers share. Any thread; settings go through the store, and the worker is told of those that
/// concern it.
class Daemon {
 public:
  /// `terminate` is called when a client asks the daemon to quit.
  Daemon(const DaemonOptions& options, std::function<void()> terminate);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  Store& store() { return store_; }
  RuleBook& rules() { return rules_; }
  BackupWorker& worker() { return worker_; }
  const NodeBuilder& nodes() const { return nodes_; }
  bool verbose() const { return verbose_; }
  void terminate() const { terminate_(); }

  /// A setting of the daemon as a number; 0 or the default when it was never set.
  std::uint32_t setting(const std::string& key);
  void setSetting(const std::string& key, std::uint32_t value);

  /// Pauses for that many minutes from now; 0 goes on at once. What the time of day is set to makes no
  /// difference while the daemon runs.
  void pauseFor(std::uint32_t minutes);
  /// Minutes that are left, rounded up.
  std::uint32_t pausedMinutes() const;

  /// Every key of the state that clients poll. The file that is being backed up is named to those who may see
  /// it.
  PropertyList state(const Sight& sight);

 private:
  void goOnWithPause();
  void tellWorker();
  std::uint64_t quotaMegabytes();

  const bool verbose_;
  const std::function<void()> terminate_;
  Store store_;
  RuleBook rules_;
  BackupWorker worker_;
  NodeBuilder nodes_;
  std::atomic<std::int64_t> pausedUntil_ = 0;  // seconds since boot; 0: no pause
};

}  // namespace keldane
