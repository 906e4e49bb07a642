// The thread behind StatusService.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/core/status/StatusService.h"
#include "hosts/core/status/link/StatusConnection.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The fields without a mutex belong to the service's thread alone. Neither mutex is held while the daemon is
/// asked. `mutex_` is never held while code of others, such as the listener or a task, is called or
/// destroyed. `listenerMutex_` is held while the listener is called, so that whoever replaces the listener
/// waits for the end of the call. A thread that holds `mutex_` never takes it.
class StatusService::Worker : public std::enable_shared_from_this<StatusService::Worker> {
 public:
  using Clock = StatusCache::Clock;

  Worker(std::string socketPath, const StatusTiming& timing)
      : timing_(timing), cache_(timing), connection_(std::move(socketPath), timing) {}

  void end() KELDANE_EXCLUDES(mutex_, listenerMutex_);
  void setListener(Listener listener) KELDANE_EXCLUDES(mutex_, listenerMutex_);
  std::optional<FileStatus> statusOf(const std::string& path);
  void expect(const std::string& folder);
  void commandWasGiven(const std::vector<std::string>& paths);
  void perform(Task task);
  void lookAfter();
  void tellAll();
  std::vector<StatusCache::OpenFolder> openFolders();
  void close(const std::string& folder);

 private:
  struct Hurry {
    std::vector<std::string> paths;
    Clock::time_point begin;
    std::size_t step = 0;
  };

  // --- On either thread ---
  void startOnce() KELDANE_REQUIRES(mutex_);
  void startOrWake() KELDANE_REQUIRES(mutex_);
  void wake() KELDANE_REQUIRES(mutex_);
  Clock::time_point wakeTime(Clock::time_point now) const KELDANE_REQUIRES(mutex_);

  // --- On the service's thread ---
  void run();
  void serve();
  bool step();
  void waitForWork() KELDANE_REQUIRES(mutex_);
  void hurryWhatIsDue(Clock::time_point now) KELDANE_REQUIRES(mutex_);
  void performTask();
  bool connected(bool isAsked);
  void lookAtState();
  void ask(StatusCache::Question question);
  std::optional<StatusCache::Answer> list(const std::string& folder);
  std::optional<StatusCache::Answer> askEach(StatusCache::Question& question);
  void tell(std::vector<std::string> paths) KELDANE_EXCLUDES(mutex_, listenerMutex_);
  void forget() KELDANE_EXCLUDES(mutex_, listenerMutex_);
  /// Makes a call to the daemon and keeps the time at which it began.
  template <class Call>
  auto watched(const Call& call) KELDANE_EXCLUDES(mutex_);

  const StatusTiming timing_;

  Mutex listenerMutex_{{.name = "StatusService.listenerMutex"}};
  Listener listener_ KELDANE_GUARDED_BY(listenerMutex_);

  Mutex mutex_{{.name = "StatusService.mutex"}};
  Condition changed_;
  StatusCache cache_ KELDANE_GUARDED_BY(mutex_);
  std::deque<Task> tasks_ KELDANE_GUARDED_BY(mutex_);
  std::optional<Hurry> hurry_ KELDANE_GUARDED_BY(mutex_);
  // The time at which the call that is under way began.
  std::optional<Clock::time_point> busySince_ KELDANE_GUARDED_BY(mutex_);
  // That call has taken too long, and nothing is shown any more.
  bool isSilent_ KELDANE_GUARDED_BY(mutex_) = false;
  bool isRunning_ KELDANE_GUARDED_BY(mutex_) = false;
  bool isEnding_ KELDANE_GUARDED_BY(mutex_) = false;
  // Set only while the thread sleeps and nobody has woken it. Then wakeTime() may read the thread's own
  // fields.
  std::optional<Clock::time_point> wakesAt_ KELDANE_GUARDED_BY(mutex_);

  StatusConnection connection_;
  Clock::time_point nextLook_{};  // time of the next poll of the state, or of the next attempt to connect
  PropertyList state_;            // the daemon's last answer
};

}  // namespace keldane
