// The loops of the two threads that a socket can have: receiving and accepting.
#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "Common/transport/KeldSocket.h"
#include "log/KeldaneLog.h"
#include "platform/objects/Absent.h"
#include "platform/runloop/RunLoop.h"

namespace keldane {

namespace {

// The pause between the end of a link and its report. A daemon that restarts is then ready when the clients
// try again.
constexpr auto kFailureDelay = std::chrono::seconds(1);

// The pause after a failed accept.
constexpr auto kAcceptPause = std::chrono::milliseconds(100);

// Runs the work and logs what it throws, because an exception that left the thread would end the host
// process. Returns false when something was thrown.
template <class Work>
bool guarded(const Work& work) {
  try {
    work();
    return true;
  } catch (const std::exception& exception) {
    KeldaneCLog("KeldaneSocket caught an exception: %s", exception.what());
  } catch (...) {
    KeldaneCLog("KeldaneSocket caught an unknown exception.");
  }
  return false;
}

}  // namespace

// The pause of up to 0.1 s after each message is a wait for the next byte. The read of that byte waits, so no
// other pause is made.
void KeldaneSocket::rcvThread() {
  do {
    guarded([this] { tellSocketDelegate(&KeldSocketDelegate::socketConnected, nullptr); });
    while (goesOnReceiving()) {
      bool received = true;
      if (!guarded([&] { received = receiveMessage(); })) {
        guarded([this] { failForWantOfMemory(); });
      } else if (!received && goesOnReceiving()) {
        guarded([this] { reportReadFailure(); });
      }
    }
    dropReceived();
  } while (beginsAnew());
}

// Whether `start` was called after this thread had been told to leave. The thread then receives for the new
// link, because two receive threads must not run at the same time.
bool KeldaneSocket::beginsAnew() {
  const ScopedLock guard(receiverMutex_);
  rcvThreadRunning_ = startsAgain_;
  startsAgain_ = false;
  return rcvThreadRunning_;
}

void KeldaneSocket::deliver(const Bytes* payload, std::int32_t type) {
  if (!dataDelegateLock_.lockWhenCondition(1, [this] { return !goesOnReceiving(); })) {
    return;
  }
  KeldaneSocketDelegate& delegate = lockedDataDelegate();
  bool outOfMemory = false;
  guarded([&] {
    try {
      delegate.processData(payload, type);
    } catch (const std::bad_alloc&) {
      outOfMemory = true;
    }
  });
  dataDelegateLock_.unlock();
  if (outOfMemory) {
    throw std::bad_alloc();
  }
}

// The message is lost, and the stream may be out of step. If the link were kept, a caller could wait for an
// answer forever. So the waiting caller is told at once, and the end of the stream is then reported as usual.
void KeldaneSocket::failForWantOfMemory() {
  ranOutOfMemory_ = true;
  if (const Handle descriptor = handle()) {
    ::shutdown(descriptor->get(), SHUT_RDWR);
  }
  if (goesOnReceiving()) {
    deliver(nullptr, kLinkFailed);
  }
}

void KeldaneSocket::reportReadFailure() {
  // A server does not wait, because a peer that has left should not count for one more second.
  if (!limits_) {
    waitUnless([this] { return !goesOnReceiving(); }, kFailureDelay);
  }
  if (goesOnReceiving()) {
    deliver(nullptr, kLinkFailed);
  }
  if (goesOnReceiving()) {
    tellSocketDelegate(&KeldSocketDelegate::socketFailed, "KeldaneSocket read from socket failed");
  }
}

void KeldaneSocket::tellSocketDelegate(DelegateCall call, const char* logLine) {
  const ScopedLock guard(monitor_);
  if (!goesOnReceiving()) {
    return;
  }
  if (logLine != nullptr) {
    KeldaneCLog(logLine);
  }
  const std::shared_ptr<KeldSocketDelegate> delegate = socketDelegate_;
  if (!delegate) {
    return;
  }
  if (callDelegateOnMainThread_) {
    // The call is queued under this socket's address, so that `close` can withdraw it.
    RunLoop::main().perform([delegate, self = shared_from_this(), call] { ((*delegate).*call)(self); }, this);
    queuedOnMainThread_ = true;
  } else {
    ((*delegate).*call)(shared_from_this());
  }
}

void KeldaneSocket::acceptThread() {
  acceptThreadRunning_ = true;
  while (acceptThreadRun_.load(std::memory_order_relaxed)) {
    const Handle listener = handle();
    if (!listener) {
      break;  // the socket is closed, whatever the run flag says
    }
    socklen_t size = sizeof(socketAddress_);
    const int descriptor =
        ::accept4(listener->get(), reinterpret_cast<sockaddr*>(&socketAddress_), &size, SOCK_CLOEXEC);
    // Descriptor 0 counts as a failure and is neither used nor closed; this is kept on purpose. A daemon that
    // keeps its standard input open never gets descriptor 0.
    if (descriptor >= 1) {
      Descriptor owned(descriptor);
      guarded([&] { makeChild(std::move(owned)); });
    } else {
      // Without a free descriptor, accept4 fails again at once until a connection is closed.
      waitUnless([this] { return currentDescriptor_ == nullptr; }, kAcceptPause);
    }
  }
  acceptThreadRunning_ = false;
}

// A peer for which the system has no thread or memory is not kept, because it would wait for answers forever.
void KeldaneSocket::makeChild(Descriptor descriptor) {
  const std::shared_ptr<KeldaneSocket> child = create();
  child->setHandle(std::make_shared<const Descriptor>(std::move(descriptor)));
  child->setParent(shared_from_this());
  bool served = false;
  guarded([&] { served = adopt(child); });
  if (!served) {
    child->close();
  }
}

bool KeldaneSocket::adopt(const std::shared_ptr<KeldaneSocket>& child) {
  const ScopedLock guard(monitor_);
  if (currentDescriptor_ == nullptr) {
    return false;
  }
  std::erase_if(children_, [](const std::shared_ptr<KeldaneSocket>& other) { return other->isZombie(); });
  const std::shared_ptr<KeldSocketDelegate> delegate = socketDelegate_;
  // Without a thread nobody would read the peer's messages or notice that it leaves.
  if ((delegate && !delegate->socketAccepted(child)) || !child->start()) {
    return false;
  }
  children_.push_back(child);
  sendTo(delegate, &KeldSocketDelegate::socketCreated, child);
  return true;
}

}  // namespace keldane
