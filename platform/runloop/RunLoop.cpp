#include "platform/runloop/RunLoop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <list>
#include <set>
#include <system_error>
#include <vector>

#include "platform/files/Descriptor.h"
#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "platform/threads/Mutex.h"

namespace keldane {

namespace {

using Clock = std::chrono::steady_clock;

// The shortest interval of a timer. A shorter one would keep the loop busy for ever.
constexpr std::chrono::nanoseconds kShortestInterval = std::chrono::microseconds(100);

// The longest time, in seconds. A longer one is as good as for ever, and would overflow when added to the
// present time.
constexpr double kLongestSeconds = 1e9;

std::chrono::nanoseconds nanoseconds(RunLoop::Seconds seconds) {
  const double bounded = std::isnan(seconds.count()) ? 0 : std::clamp(seconds.count(), 0.0, kLongestSeconds);
  return std::chrono::duration_cast<std::chrono::nanoseconds>(RunLoop::Seconds(bounded));
}

Descriptor opened(int number, const char* what) {
  if (number < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return Descriptor(number);
}

// The loop may run inside the C code of another library, so no exception may pass through it.
template <class Work>
void guarded(const Work& work) {
  try {
    work();
  } catch (const std::exception& exception) {
    systemLog("A run loop's work threw an exception: %s", exception.what());
  } catch (...) {
    systemLog("A run loop's work threw an unknown exception.");
  }
}

}  // namespace

/// The state that the loop, its timers and its ports share. It lives as long as any of them.
struct RunLoop::State {
  struct LoopTimer;
  struct Port;

  struct Work {
    std::function<void()> run;
    const void* owner;
  };

  State()
      : epoll(opened(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
        event(opened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
        clock(opened(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {
    for (const int source : {event.get(), clock.get()}) {
      epoll_event interest{};
      interest.events = EPOLLIN;
      if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, source, &interest) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
      }
    }
  }

  void signalWork() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(event.get(), &one, sizeof(one));
  }

  void clearSignal() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(event.get(), &count, sizeof(count));
  }

  /// Sets the clock to the time of the earliest timer.
  void setClock() KELDANE_REQUIRES(mutex);

  const Descriptor epoll, event, clock;
  mutable Mutex mutex{{.name = "RunLoop", .innermost = true}};
  // The work is in a list, because elements can be moved out of a list without allocating memory.
  std::list<Work> work KELDANE_GUARDED_BY(mutex);
  std::vector<std::shared_ptr<LoopTimer>> timers KELDANE_GUARDED_BY(mutex);
  std::size_t ports KELDANE_GUARDED_BY(mutex) = 0;
  bool closed KELDANE_GUARDED_BY(mutex) = false;
  bool stopped KELDANE_GUARDED_BY(mutex) = false;
};

struct RunLoop::State::LoopTimer : Timer, std::enable_shared_from_this<LoopTimer> {
  LoopTimer(const std::shared_ptr<State>& loop, std::chrono::nanoseconds timerInterval, bool timerRepeats,
            std::function<void(Timer&)> timerCallback)
      : state(loop),
        interval(timerInterval),
        due(Clock::now() + timerInterval),
        repeats(timerRepeats),
        callback(std::make_shared<std::function<void(Timer&)>>(std::move(timerCallback))) {}

  void invalidate() override {
    // The callback's destructor may run any code, so it runs outside the lock.
    std::shared_ptr<std::function<void(Timer&)>> released;
    const std::shared_ptr<LoopTimer> self = shared_from_this();
    if (const std::shared_ptr<State> loop = state.lock()) {
      const ScopedLock guard(loop->mutex);
      released = std::move(callback);
      callback = nullptr;
      std::erase(loop->timers, self);
      loop->setClock();
    }
  }

  bool isValid() const override {
    const std::shared_ptr<State> loop = state.lock();
    if (!loop) {
      return false;
    }
    const ScopedLock guard(loop->mutex);
    return callback != nullptr;
  }

  const std::weak_ptr<State> state;
  const std::chrono::nanoseconds interval;
  // Guarded by the loop's mutex:
  Clock::time_point due;
  const bool repeats;
  std::shared_ptr<std::function<void(Timer&)>> callback;
};

void RunLoop::State::setClock() {
  itimerspec setting{};
  if (!timers.empty()) {
    const auto earliest = std::min_element(timers.begin(), timers.end(),
                                           [](const auto& a, const auto& b) { return a->due < b->due; });
    // steady_clock is CLOCK_MONOTONIC. A time of zero would switch the clock off.
    const auto at =
        std::max<std::chrono::nanoseconds>((*earliest)->due.time_since_epoch(), std::chrono::nanoseconds(1));
    setting.it_value.tv_sec = static_cast<time_t>(at.count() / 1'000'000'000);
    setting.it_value.tv_nsec = static_cast<long>(at.count() % 1'000'000'000);
  }
  timerfd_settime(clock.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

/// The ids that were sent and not yet handled are kept in an object that the port shares with the loop's
/// work. So the port may be destroyed at any time.
struct RunLoop::State::Port : MessagePort {
  struct Shared {
    Mutex mutex{{.name = "MessagePort", .innermost = true}};
    std::set<std::uint32_t> pending KELDANE_GUARDED_BY(mutex);
    // Null once the port is invalid.
    std::shared_ptr<const MessagePort::Handler> handler KELDANE_GUARDED_BY(mutex);
  };

  Port(const std::shared_ptr<State>& loop, MessagePort::Handler handler) : state(loop) {
    shared->handler = std::make_shared<const MessagePort::Handler>(std::move(handler));
    const ScopedLock guard(loop->mutex);
    ++loop->ports;
  }
  ~Port() override { Port::invalidate(); }
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  void send(std::uint32_t messageId) override {
    const std::shared_ptr<State> loop = state.lock();
    if (!loop) {
      return;
    }
    // The wake-up is made before the id is recorded. If there is no memory for it now, the next message sends
    // it.
    std::list<Work> wakeUp;
    wakeUp.push_back({[messages = shared] { deliver(*messages); }, shared.get()});
    {
      const ScopedLock guard(shared->mutex);
      const bool waiting = !shared->pending.empty();
      if (!shared->handler || !shared->pending.insert(messageId).second || waiting) {
        return;  // a wake-up was already sent
      }
    }
    const ScopedLock guard(loop->mutex);
    if (!loop->closed) {
      loop->work.splice(loop->work.end(), wakeUp);
      loop->signalWork();
    }
  }

  void invalidate() override {
    std::shared_ptr<const MessagePort::Handler> released;
    {
      const ScopedLock guard(shared->mutex);
      if (!shared->handler) {
        return;
      }
      released.swap(shared->handler);
      shared->pending.clear();
    }
    if (const std::shared_ptr<State> loop = state.lock()) {
      const ScopedLock guard(loop->mutex);
      --loop->ports;
      std::erase_if(loop->work, [&](const Work& piece) { return piece.owner == shared.get(); });
    }
  }

  static void deliver(Shared& messages) {
    std::set<std::uint32_t> ids;
    {
      const ScopedLock guard(messages.mutex);
      ids.swap(messages.pending);
    }
    for (const std::uint32_t id : ids) {
      std::shared_ptr<const MessagePort::Handler> handler;
      {
        const ScopedLock guard(messages.mutex);
        handler = messages.handler;
      }
      if (handler) {
        (*handler)(id);
      }
    }
  }

  const std::weak_ptr<State> state;
  const std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

RunLoop::RunLoop() : state_(std::make_shared<State>()) {}

RunLoop::~RunLoop() {
  std::list<State::Work> work;
  std::vector<std::shared_ptr<State::LoopTimer>> timers;
  const ScopedLock guard(state_->mutex);
  state_->closed = true;
  work.swap(state_->work);
  timers.swap(state_->timers);
}

RunLoop& RunLoop::main() {
  static RunLoop& loop = *new RunLoop;  // detached threads may still queue work while the process ends
  return loop;
}

RunLoop& RunLoop::current() {
  if (Host::shared().isMainThread()) {
    return main();
  }
  thread_local RunLoop loop;
  return loop;
}

int RunLoop::descriptor() const { return state_->epoll.get(); }

bool RunLoop::runDue() {
  const std::shared_ptr<State> state = state_;
  bool ran = false;

  // Work that is queued from here on belongs to the next pass, so that every pass ends.
  std::size_t pieces = 0;
  {
    const ScopedLock guard(state->mutex);
    pieces = state->work.size();
    state->clearSignal();
  }
  for (; pieces > 0; --pieces) {
    State::Work piece;
    {
      const ScopedLock guard(state->mutex);
      if (state->work.empty()) {
        break;  // cancelled meanwhile
      }
      piece = std::move(state->work.front());
      state->work.pop_front();
    }
    ran = true;
    guarded(piece.run);
  }
  {
    const ScopedLock guard(state->mutex);
    if (!state->work.empty()) {
      state->signalWork();
    }
  }

  const Clock::time_point now = Clock::now();
  for (;;) {
    std::shared_ptr<State::LoopTimer> timer;
    std::shared_ptr<std::function<void(Timer&)>> callback;
    {
      const ScopedLock guard(state->mutex);
      const auto earliest = std::min_element(state->timers.begin(), state->timers.end(),
                                             [](const auto& a, const auto& b) { return a->due < b->due; });
      if (earliest == state->timers.end() || (*earliest)->due > now) {
        state->setClock();
        break;
      }
      timer = *earliest;
      callback = timer->callback;
      if (timer->repeats) {
        const auto missed = (now - timer->due) / timer->interval;
        timer->due += (missed + 1) * timer->interval;
      } else {
        timer->callback = nullptr;
        state->timers.erase(earliest);
      }
    }
    ran = true;
    guarded([&] { (*callback)(*timer); });
  }
  return ran;
}

void RunLoop::run(Seconds duration) {
  const std::shared_ptr<State> state = state_;
  const Clock::time_point end = Clock::now() + nanoseconds(duration);
  {
    const ScopedLock guard(state->mutex);
    state->stopped = false;
  }
  for (;;) {
    runDue();
    {
      const ScopedLock guard(state->mutex);
      if (state->stopped) {
        return;
      }
    }
    const auto left = end - Clock::now();
    if (left <= Clock::duration::zero()) {
      return;
    }
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    pollfd source{state->epoll.get(), POLLIN, 0};
    poll(&source, 1, static_cast<int>(std::min<decltype(milliseconds)>(milliseconds, 1'000'000)));
  }
}

void RunLoop::stop() {
  const ScopedLock guard(state_->mutex);
  state_->stopped = true;
  state_->signalWork();
}

std::shared_ptr<Timer> RunLoop::scheduleTimer(Seconds interval, bool repeats,
                                              std::function<void(Timer&)> callback) {
  const auto timer = std::make_shared<State::LoopTimer>(
      state_, std::max(nanoseconds(interval), kShortestInterval), repeats, std::move(callback));
  const ScopedLock guard(state_->mutex);
  state_->timers.push_back(timer);
  state_->setClock();
  return timer;
}

void RunLoop::perform(std::function<void()> work, const void* owner) {
  const ScopedLock guard(state_->mutex);
  state_->work.push_back({std::move(work), owner});
  state_->signalWork();
}

void RunLoop::cancel(const void* owner) {
  std::list<State::Work>
      dropped;  // its destructors may call back here, so they run after the lock is released
  const ScopedLock guard(state_->mutex);
  for (auto at = state_->work.begin(); at != state_->work.end();) {
    const auto piece = at++;
    if (piece->owner == owner) {
      dropped.splice(dropped.end(), state_->work, piece);
    }
  }
}

std::unique_ptr<MessagePort> RunLoop::openPort(MessagePort::Handler handler) {
  return std::make_unique<State::Port>(state_, std::move(handler));
}

RunLoop::Load RunLoop::load() const {
  const ScopedLock guard(state_->mutex);
  return {state_->timers.size(), state_->work.size(), state_->ports};
}

}  // namespace keldane
