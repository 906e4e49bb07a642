// Watches how old the last good backup is, apart from everything that makes backups.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"

namespace keldane {

/// Tells once when the last good backup has become older than the limit, whatever the reason, and again after
/// the next good one. The limit is the setting "alertDays", three days unless it was set. Where nothing is
/// selected there is nothing to miss. Has a thread of its own that looks every minute.
class BackupAge {
 public:
  using Alert = std::function<void(const std::string& sentence)>;
  BackupAge(Store& store, const RuleBook& rules, Alert alert)
      : store_(store), rules_(rules), alert_(std::move(alert)) {}
  ~BackupAge() { stop(); }
  BackupAge(const BackupAge&) = delete;
  BackupAge& operator=(const BackupAge&) = delete;

  void start();
  void stop();

  /// Seconds since the UNIX epoch; absent before the first good backup.
  std::optional<double> lastGood();
  /// The sentence for people when the backup is too old at a time; absent when it is not.
  std::optional<std::string> complaint(double now);

 private:
  void look();

  Store& store_;
  const RuleBook& rules_;
  const Alert alert_;
  bool told_ = false;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace keldane
