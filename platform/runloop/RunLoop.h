// The timers, queued work and message ports of one thread, behind one pollable descriptor.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace keldane {

class RunLoop;

/// A timer of a run loop. It fires on its grid (start + n × interval), so a late firing does not shift the
/// later ones. Missed firings are replaced by one. The run loop owns a scheduled timer. `invalidate` ends the
/// timer and releases the callback. It may be called from any thread, also within the timer's own callback.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
};

/// Wakes a run loop from any thread. Messages with the same id that are sent before the loop runs count as
/// one, so the handler runs once for each id. The creator owns the port. After `invalidate` or the destructor
/// ran on the loop's thread, the handler is not called again.
class MessagePort {
 public:
  using Handler = std::function<void(std::uint32_t messageId)>;
  virtual ~MessagePort() = default;
  virtual void send(std::uint32_t messageId) = 0;
  virtual void invalidate() = 0;
};

/// The run loop of one thread.
///
/// `main()` belongs to the main thread that the host declared (see platform/host), by default the process's
/// first; `current()` is the calling thread's own and is made on first use. `perform`, `cancel` and
/// `MessagePort::send` may be called from any thread, everything else on the loop's thread. Work is run
/// without any lock held, so it may schedule, cancel and invalidate freely, its own owner's work included.
class RunLoop {
 public:
  using Seconds = std::chrono::duration<double>;

  RunLoop();
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  static RunLoop& main();
  static RunLoop& current();

  /// A descriptor for another event loop (GLib, Qt, poll). It is readable exactly while something is due. The
  /// run loop owns it.
  int descriptor() const;
  /// Runs everything that is due now, without waiting: queued work in order, then timers by their time.
  /// Returns whether anything ran. Without a host's event loop, `run` runs the loop.
  bool runDue();
  /// Runs the loop for this time, or until `stop` is called.
  void run(Seconds duration);
  void stop();

  /// Schedules a timer whose first firing is one interval from now.
  std::shared_ptr<Timer> scheduleTimer(Seconds interval, bool repeats, std::function<void(Timer&)> callback);

  /// Queues work for the loop's thread. `owner` is only a key by which `cancel` finds the work.
  void perform(std::function<void()> work, const void* owner = nullptr);
  /// Drops the work that is still queued for `owner`. It does not wait for work that is running.
  void cancel(const void* owner);

  std::unique_ptr<MessagePort> openPort(MessagePort::Handler handler);

  /// The number of timers, queued pieces of work and ports that the loop holds, for leak checks.
  struct Load {
    std::size_t timers = 0, work = 0, ports = 0;
    bool operator==(const Load&) const = default;
  };
  Load load() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace keldane
