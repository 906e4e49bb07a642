#include "clients/preferences/worker/DaemonThread.h"

#include <atomic>

#include "platform/host/Host.h"
#include "platform/runloop/RunLoop.h"
#include "platform/threads/Mutex.h"

namespace keldane {

namespace {

using Clock = std::chrono::steady_clock;

constexpr RunLoop::Seconds kTurn{1.0};
constexpr std::chrono::milliseconds kPatience{1000};

}  // namespace

/// State that the thread and its owner share; it lives until both have gone.
struct DaemonThread::Shared {
  std::unique_ptr<DaemonSession> session;  // used by the thread alone
  std::atomic<bool> over = false;
  std::atomic<Clock::rep> lastTurn = Clock::now().time_since_epoch().count();
  Mutex mutex{{.name = "DaemonThread.mutex", .leaf = true}};
  Condition changed;
  bool ended KELDANE_GUARDED_BY(mutex) = false;

  void run(std::shared_ptr<Bundle> bundle, DaemonSession::Deliver deliver) {
    Host::shared().declareMainThread();
    session = std::make_unique<DaemonSession>(std::move(bundle), std::move(deliver));
    if (!over) {
      session->begin();
    }
    while (!over) {
      RunLoop::current().run(kTurn);
      lastTurn = Clock::now().time_since_epoch().count();
    }
    session.reset();
    {
      const ScopedLock guard(mutex);
      ended = true;
    }
    changed.notifyAll();
  }
};

DaemonThread::DaemonThread(std::shared_ptr<Bundle> bundle, DaemonSession::Deliver deliver)
    : shared_(std::make_shared<Shared>()),
      thread_([shared = shared_, bundle = std::move(bundle), deliver = std::move(deliver)]() mutable {
        shared->run(std::move(bundle), std::move(deliver));
      }) {}

DaemonThread::~DaemonThread() {
  if (!end(kPatience)) {
    thread_.detach();
  }
}

void DaemonThread::perform(std::function<void(DaemonSession&)> work) {
  RunLoop::main().perform([shared = shared_, work = std::move(work)] {
    if (shared->session && !shared->over) {
      work(*shared->session);
    }
  });
}

std::chrono::steady_clock::duration DaemonThread::silence() const {
  return Clock::now().time_since_epoch() - Clock::duration(shared_->lastTurn.load());
}

bool DaemonThread::end(std::chrono::milliseconds patience) {
  shared_->over = true;
  RunLoop::main().perform([] { RunLoop::main().stop(); });
  {
    const ScopedLock guard(shared_->mutex);
    const auto hasEnded = [this]() KELDANE_REQUIRES(shared_->mutex) { return shared_->ended; };
    if (!shared_->changed.waitFor(shared_->mutex, patience, hasEnded)) {
      return false;
    }
  }
  if (thread_.joinable()) {
    thread_.join();
  }
  return true;
}

}  // namespace keldane
