// Watches the age of the last good backup, independently of the code that makes backups.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Reports once when the last good backup has become older than the limit, for any reason. After the next
/// good backup it can report again. The limit is the setting "alertDays", by default three days. When nothing
/// is selected, nothing is reported. It has a thread of its own that checks every minute.
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

  /// The time of the last good backup in seconds since the UNIX epoch; absent before the first one.
  std::optional<double> lastGood();
  /// The sentence for people when the backup is too old at the time `now`; absent otherwise.
  std::optional<std::string> complaint(double now);

 private:
  /// Waits for that time, or until stop() is called. Returns false in the second case.
  bool rest(std::chrono::seconds time) KELDANE_EXCLUDES(mutex_);
  void look();

  Store& store_;
  const RuleBook& rules_;
  const Alert alert_;
  bool told_ = false;
  Mutex mutex_{{.name = "BackupAge.mutex", .leaf = true}};
  Condition changed_;
  bool stopping_ KELDANE_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace keldane
