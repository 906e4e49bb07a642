// The loops of the two threads that a socket can have: receiving and accepting.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "Common/KeldSocket.h"
#include "log/KeldaneLog.h"
#include "platform/objects/Absent.h"
#include "platform/runloop/RunLoop.h"

namespace keldane {

namespace {

// The pause between the end of a link and its report, so that a daemon that restarts is there again when the
// clients try.
constexpr auto kFailureDelay = std::chrono::seconds(1);

constexpr auto kPause = std::chrono::milliseconds(100);

// Runs the work and logs what it throws: an exception that left the thread would end the host. False when
// something was thrown.
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

// The pause of up to 0.1 s that follows each message is a wait for the next byte; reading that byte is that
// wait.
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

// Whether `start` was called after this thread had been told to leave. It then receives for the new link, as
// the thread of the old one must have ended before that of the new one begins.
bool KeldaneSocket::beginsAnew() {
  const ScopedLock guard(receiverMutex_);
  rcvThreadRunning_ = startsAgain_;
  startsAgain_ = false;
  return rcvThreadRunning_;
}

// False when a read failed. A message that is cut off because the socket was closed is abandoned silently.
// Throws std::bad_alloc, and nothing else.
bool KeldaneSocket::receiveMessage() {
  std::int32_t type = 0;
  std::uint32_t length = 0;
  if (!receiveMarker()) {
    return false;
  }
  if (!goesOnReceiving()) {
    return true;
  }
  Bytes payload;
  ByteBudget::Share share(limits_ ? limits_->received : nullptr);  // until the message was processed
  if (readBytes(sizeof(type), &type) <= 0 || readBytes(sizeof(length), &length) <= 0 ||
      !receivePayload(length, payload, share)) {
    return false;
  }
  messageEnd_.reset();
  if (goesOnReceiving()) {
    deliver(length == 0 ? nullptr : &payload, type);
  }
  return true;
}

// Reads in steps of 36 bytes until one is the marker. The stream is brought back into step by whole steps
// only, never byte by byte; deliberately simple.
bool KeldaneSocket::receiveMarker() {
  while (goesOnReceiving()) {
    char buffer[kFrameMarker.size() + 1] = {};
    const std::int32_t got = readBytes(kFrameMarker.size(), buffer);
    if (got < 0) {
      return false;
    }
    if (got < 2) {
      waitUnless([this] { return !goesOnReceiving(); }, kPause);
      continue;
    }
    if (kFrameMarker == buffer) {
      return true;
    }
    KeldaneCLog("KeldaneSocket Expecting a UUID, got something else...");
  }
  return true;
}

// A peer may announce any length up to 4 GiB, so memory is taken as bytes arrive. A payload is accepted when
// any of its bytes came: bytes that are missing because a read would have blocked are zero.
bool KeldaneSocket::receivePayload(std::uint32_t length, Bytes& payload, ByteBudget::Share& share) {
  if (limits_ && length > limits_->longestMessage) {
    KeldaneCLog("KeldaneSocket A message is too long");
    return false;
  }
  while (payload.size() < length) {
    const auto done = static_cast<std::uint32_t>(payload.size());
    const std::uint32_t step = std::min(length - done, std::max(kSmallPayload, done));
    if (done > 0 && !share.grow(step)) {
      KeldaneCLog("KeldaneSocket Too many messages come in at once");
      return false;
    }
    payload.resize(std::size_t{done} + step);
    const std::int32_t got = readBytes(step, payload.data() + done);
    if (got < 0 || (got == 0 && done == 0)) {
      return false;
    }
    if (static_cast<std::uint32_t>(got) < step && goesOnReceiving()) {
      if (!share.grow(length - done - step)) {
        KeldaneCLog("KeldaneSocket Too many messages come in at once");
        return false;
      }
      payload.resize(length);
    }
    if (static_cast<std::uint32_t>(got) < step) {
      break;
    }
  }
  return true;
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

// The message is lost, and perhaps the stream is out of step. If the link were kept, somebody could wait for
// an answer forever. So the caller that waits is told at once, and the end of the stream is then reported as
// usual.
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
  if (!limits_) {  // a server expects nobody back, and a peer that left shall not be counted for a second
                   // more
    waitUnless([this] { return !goesOnReceiving(); }, kFailureDelay);
  }
  if (goesOnReceiving()) {
    deliver(nullptr, kLinkFailed);
  }
  if (goesOnReceiving()) {
    tellSocketDelegate(&KeldSocketDelegate::socketFailed, "KeldaneSocket read from socket failed");
  }
}

template <class Condition>
void KeldaneSocket::waitUnless(const Condition& condition, std::chrono::milliseconds duration) {
  const ScopedLock guard(closedMutex_);
  closed_.waitFor(closedMutex_, duration, condition);
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
    // Named after this socket, so that closing it takes back what is still queued.
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
      break;  // closed: nothing can be accepted any more, whatever the run flag says
    }
    socklen_t size = sizeof(socketAddress_);
    const int descriptor =
        ::accept4(listener->get(), reinterpret_cast<sockaddr*>(&socketAddress_), &size, SOCK_CLOEXEC);
    // Descriptor 0 counts as a failure, and is neither used nor closed; kept on purpose. A daemon that keeps
    // its standard input open never gets it.
    if (descriptor >= 1) {
      Descriptor owned(descriptor);
      guarded([&] { makeChild(std::move(owned)); });
    } else {
      // Without a free descriptor it fails again at once, until somebody leaves.
      waitUnless([this] { return currentDescriptor_ == nullptr; }, kPause);
    }
  }
  acceptThreadRunning_ = false;
}

// A peer that cannot be served, because the system has no thread or memory for it, is not kept: it would wait
// for answers forever.
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
  // Without a thread nobody would read what the peer sends, or notice that it leaves.
  if ((delegate && !delegate->socketAccepted(child)) || !child->start()) {
    return false;
  }
  children_.push_back(child);
  sendTo(delegate, &KeldSocketDelegate::socketCreated, child);
  return true;
}

}  // namespace keldane
