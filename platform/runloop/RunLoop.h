// Timers, queued work and message ports of one thread, behind one pollable descriptor.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace keldane {

class RunLoop;

/// A timer of a run loop. It fires on its grid (start + n × interval): a late firing does not shift the later
/// ones, and firings that were missed are made up by one. The run loop owns a scheduled timer; `invalidate`,
/// from any thread, ends it, also from within its own callback, and releases the callback.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
};

/// Wakes a run loop from any thread. Messages with the same id that are sent before the loop runs are one
/// message: the handler runs once for each id. Its creator owns it. `invalidate` (also by the destructor) on
/// the loop's thread guarantees that the handler is not called again.
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
  /// Runs what is due now and returns, without waiting: queued work in order, then timers by their time.
  /// Answers whether anything ran. A loop without a host loop runs by itself with `run`.
  bool runDue();
  /// Runs for this long; returns at once when asked to `stop`.
  void run(Seconds duration);
  void stop();

  /// Schedules a timer whose first firing is one interval from now.
  std::shared_ptr<Timer> scheduleTimer(Seconds interval, bool repeats, std::function<void(Timer&)> callback);

  /// Queues work for the loop's thread. `owner` is only a name by which `cancel` finds the work again.
  void perform(std::function<void()> work, const void* owner = nullptr);
  /// Drops the work still queued for `owner`. Work that is running is not waited for.
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
