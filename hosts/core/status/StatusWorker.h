// The thread behind StatusService.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/core/status/StatusService.h"
#include "hosts/core/status/link/StatusConnection.h"

namespace keldane {

/// The mutex guards the first group of fields. The second group belongs to the service's thread alone. The
/// mutex is never held while the daemon is asked or while code of others, such as the listener or a task, is
/// called.
class StatusService::Worker : public std::enable_shared_from_this<StatusService::Worker> {
 public:
  using Clock = StatusCache::Clock;

  Worker(std::string socketPath, const StatusTiming& timing)
      : timing_(timing), cache_(timing), connection_(std::move(socketPath), timing) {}

  void end();
  void setListener(Listener listener);
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

  // --- Under the mutex ---
  void startOnce();
  void startOrWake();
  Clock::time_point wakeTime(Clock::time_point now) const;
  void hurryWhatIsDue(Clock::time_point now);

  // --- On the service's thread ---
  void run();
  void serve();
  bool step();
  void waitForWork(std::unique_lock<std::mutex>& guard);
  void performTask();
  bool connected(bool isAsked);
  void lookAtState();
  void ask(StatusCache::Question question);
  std::optional<StatusCache::Answer> list(const std::string& folder);
  std::optional<StatusCache::Answer> askEach(StatusCache::Question& question);
  void tell(std::vector<std::string> paths);
  void forget();
  /// Makes a call to the daemon and keeps the time at which it began.
  template <class Call>
  auto watched(const Call& call);

  const StatusTiming timing_;

  std::mutex mutex_;
  std::condition_variable changed_;
  StatusCache cache_;
  std::deque<Task> tasks_;
  std::optional<Hurry> hurry_;
  Listener listener_;
  std::optional<Clock::time_point> busySince_;  // when the call that is under way began
  bool isSilent_ = false;                       // that call has taken too long, and nothing is shown any more
  bool isRunning_ = false, isEnding_ = false;
  // Lies in the future only while the thread sleeps. Then wakeTime() may read the thread's own fields.
  Clock::time_point wakesAt_{};

  StatusConnection connection_;
  Clock::time_point nextLook_{};  // time of the next poll of the state, or of the next attempt to connect
  PropertyList state_;            // the daemon's last answer
};

}  // namespace keldane
