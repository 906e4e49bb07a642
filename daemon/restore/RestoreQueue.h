// The jobs of restoring, and the thread that works through them.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "daemon/restore/RestoreRecords.h"
#include "daemon/restore/RestoreRun.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The implementation of RestoreJobs, which documents the operations. Any thread may call. The mutex is never
/// held during a call of the store, of the engine or of `changed`.
class RestoreQueue {
 public:
  RestoreQueue(Store& store, BackupEngine& engine, DataFolder folder, std::function<void()> changed);

  void start();
  void stop();
  std::uint32_t add(RestoreRequest request, std::string* refusal);
  RestoreReport report(std::uint32_t number) const;
  std::uint32_t current() const;
  std::string currentFile() const;
  std::optional<uid_t> userOf(std::uint32_t number) const;
  void cancel(std::uint32_t number);
  void cancelAll();
  void tryNow();

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kFirstDelay{5};
  static constexpr std::chrono::seconds kLongestDelay{600};

  struct Job {
    RestoreState state;   // the state as it is stored
    RestoreReport shown;  // the report as clients see it
    bool isCancelled = false;
    Clock::time_point next;
    std::chrono::seconds delay = kFirstDelay;
  };
  /// The number of the next job to run, 0 for none; `next` receives the time when there may be one.
  std::uint32_t nextJob(Clock::time_point& next) const KELDANE_REQUIRES(mutex_);
  /// Waits for a job to run and makes it the current one. Returns null when the thread is to end.
  std::shared_ptr<EngineJob> takeNext(RestoreState& state) KELDANE_EXCLUDES(mutex_);
  void run();
  void runJob(std::uint32_t number, RestoreState& state, const std::shared_ptr<EngineJob>& engineJob);
  void settle(std::uint32_t number, RestoreRun::End end, RestoreState& state, const std::string& failure);
  void finish(std::uint32_t number, RestoreState& state);
  RestoreRun::Hooks hooksFor(std::uint32_t number, RestoreState& state,
                             const std::shared_ptr<EngineJob>& engineJob);
  void keep(std::uint32_t number, const RestoreState& state);
  void dropOldest();

  Store& store_;
  BackupEngine& engine_;
  const DataFolder folder_;
  const std::function<void()> changed_;

  mutable Mutex mutex_{{.name = "RestoreQueue.mutex", .leaf = true}};
  Condition wake_;
  std::map<std::uint32_t, Job> jobs_ KELDANE_GUARDED_BY(mutex_);
  std::uint32_t current_ KELDANE_GUARDED_BY(mutex_) = 0;  // 0: none runs
  std::string currentFile_ KELDANE_GUARDED_BY(mutex_);
  std::shared_ptr<EngineJob> engineJob_ KELDANE_GUARDED_BY(mutex_);  // of the current job
  bool isStopping_ KELDANE_GUARDED_BY(mutex_) = false;

  std::thread thread_;
};

}  // namespace keldane
