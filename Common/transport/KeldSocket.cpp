#include "Common/transport/KeldSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>

#include "log/KeldaneLog.h"
#include "platform/objects/Absent.h"
#include "platform/objects/Exceptions.h"
#include "platform/runloop/RunLoop.h"
#include "platform/threads/SignalsBlocked.h"

namespace keldane {

namespace {

constexpr int kBacklog = 10;

// The lines that the assertions of this class show.
constexpr int kNoSocketDelegateLine = 559;
constexpr int kNoDataDelegateLine = 575;

// With limits, a send is cut into pieces of this size, and the time is checked between them.
constexpr std::uint32_t kSendStep = 256 * 1024;

std::string errorText(int error) { return std::generic_category().message(error); }

/// Whether there is something to read before `end`.
bool isReadableBefore(int descriptor, std::chrono::steady_clock::time_point end) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    pollfd source{descriptor, POLLIN, 0};
    const int ready = left <= 0 ? 0 : ::poll(&source, 1, static_cast<int>(left));
    if (ready >= 0 || errno != EINTR) {
      return ready > 0;
    }
  }
}

}  // namespace

KeldaneSocket::KeldaneSocket() {
  dataDelegateLock_.record().comesBefore(monitor_.record());
  monitor_.record().comesBefore(sendMutex_.record());
}

std::shared_ptr<KeldaneSocket> KeldaneSocket::create() {
  return std::shared_ptr<KeldaneSocket>(new KeldaneSocket);
}

KeldaneSocket::~KeldaneSocket() { close(); }

KeldaneSocket::Handle KeldaneSocket::handle() const {
  const ScopedLock guard(membersMutex_);
  return socketfd_;
}

void KeldaneSocket::setHandle(Handle handle) {
  const ScopedLock guard(membersMutex_);
  socketfd_.swap(handle);
  currentDescriptor_ = socketfd_.get();
}

void KeldaneSocket::renew(Handle& kept) const {
  if (kept.get() != currentDescriptor_) {
    kept = handle();
  }
}

bool KeldaneSocket::openHandle() {
  const ScopedLock guard(membersMutex_);
  if (!socketfd_) {
    Descriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!descriptor) {
      return false;
    }
    socketfd_ = std::make_shared<const Descriptor>(std::move(descriptor));
    currentDescriptor_ = socketfd_.get();
  }
  return true;
}

// False for an empty path, which this system would take for a name outside the file system.
bool KeldaneSocket::fillAddress(const std::string& path) {
  socketAddress_ = {};
  socketAddress_.sun_family = AF_UNIX;
  std::memcpy(socketAddress_.sun_path, path.data(), std::min(path.size(), kLongestSocketPath));
  return socketAddress_.sun_path[0] != '\0';
}

bool KeldaneSocket::connectToPath(const std::optional<std::string>& path) {
  if (!openHandle()) {
    return false;
  }
  const Handle descriptor = handle();
  errno = ENOENT;
  if (!descriptor || !fillAddress(path.value_or(std::string())) ||
      ::connect(descriptor->get(), reinterpret_cast<const sockaddr*>(&socketAddress_),
                sizeof(socketAddress_)) != 0) {
    KeldaneCLog("connect failed: %s", errorText(errno));
    return false;
  }
  return start();
}

bool KeldaneSocket::listenAtPath(const std::string& path, mode_t mode) {
  {
    const ScopedLock guard(monitor_);
    listenPath_ = path;
  }
  ::unlink(path.c_str());
  if (!openHandle() || !fillAddress(path)) {
    return false;
  }
  const Handle descriptor = handle();
  if (!descriptor ||
      ::bind(descriptor->get(), reinterpret_cast<const sockaddr*>(&socketAddress_), sizeof(socketAddress_)) !=
          0 ||
      ::fchmodat(AT_FDCWD, socketAddress_.sun_path, mode, AT_SYMLINK_NOFOLLOW) != 0 ||
      ::listen(descriptor->get(), kBacklog) != 0) {
    return false;
  }
  acceptThreadRun_ = true;
  return startThread(&KeldaneSocket::acceptThread);
}

void KeldaneSocket::setSocketDelegate(std::shared_ptr<KeldSocketDelegate> delegate) {
  if (!delegate) {
    throw AssertionFailure("-[KeldaneSocket setSocketDelegate:]", "Common/KeldSocket", kNoSocketDelegateLine,
                           "Setting delegate to NULL");
  }
  const ScopedLock guard(monitor_);
  if (delegate != socketDelegate_) {
    const std::shared_ptr<KeldSocketDelegate> old = socketDelegate_;  // its call below may close this socket
    sendTo(old, &KeldSocketDelegate::socketFailed, shared_from_this());
    socketDelegate_.swap(delegate);
  }
}

void KeldaneSocket::setDataDelegate(std::shared_ptr<KeldaneSocketDelegate> delegate) {
  if (!delegate) {
    throw AssertionFailure("-[KeldaneSocket setDataDelegate:]", "Common/KeldSocket", kNoDataDelegateLine,
                           "Setting result delegate to NULL");
  }
  if (delegate == dataDelegate()) {
    return;
  }
  // The monitor is not held here, because the message that this thread waits for may itself be waiting for
  // `close`.
  dataDelegateLock_.lock();
  {
    const ScopedLock guard(membersMutex_);
    dataDelegate_.swap(delegate);
  }
  dataDelegateLock_.unlockWithCondition(1);
}

std::shared_ptr<KeldaneSocketDelegate> KeldaneSocket::dataDelegate() const {
  const ScopedLock guard(membersMutex_);
  return dataDelegate_;
}

void KeldaneSocket::setCallDelegateOnMainThread(bool onMainThread) {
  callDelegateOnMainThread_ = onMainThread;
}

bool KeldaneSocket::sendBytes(const void* bytes, std::uint32_t length) {
  bool sent = true;
  {
    const ScopedLock guard(sendMutex_);
    renew(sendHandle_);
    const char* next = static_cast<const char*>(bytes);
    ByteBudget::Share share(limits_ && length > kSmallPayload ? limits_->unread : nullptr);
    sent = share.grow(length);
    const auto end = limits_ ? std::chrono::steady_clock::now() + limits_->sendTime
                             : std::chrono::steady_clock::time_point::max();
    for (std::uint32_t left = length; left > 0 && sent;) {
      const std::uint32_t step = limits_ ? std::min(left, kSendStep) : left;
      const ssize_t written = sendHandle_ ? ::send(sendHandle_->get(), next, step, MSG_NOSIGNAL) : -1;
      if (written < 1) {
        sent = false;
      } else {
        next += written;
        left -= static_cast<std::uint32_t>(written);
        sent = left == 0 || !limits_ || std::chrono::steady_clock::now() < end;
      }
    }
  }
  if (!sent) {
    // The failure is reported on this thread, even when the receive side reports on the main thread, so that
    // the caller knows of it before it continues.
    const ScopedLock guard(monitor_);
    KeldaneCLog("KeldaneSocket write to socket failed");
    const std::shared_ptr<KeldSocketDelegate> delegate = socketDelegate_;
    sendTo(delegate, &KeldSocketDelegate::socketFailed, shared_from_this());
  }
  return sent;
}

bool KeldaneSocket::sendData(BytesView data) {
  return currentDescriptor_ != nullptr && sendBytes(data.data(), static_cast<std::uint32_t>(data.size()));
}

bool KeldaneSocket::sendString(const char* text) {
  return sendData({reinterpret_cast<const std::uint8_t*>(text), std::strlen(text)});
}

bool KeldaneSocket::sendInt(std::int32_t value) {
  return sendData({reinterpret_cast<const std::uint8_t*>(&value), sizeof(value)});
}

std::int32_t KeldaneSocket::readBytes(std::uint32_t count, void* buffer) {
  char* next = static_cast<char*>(buffer);
  std::uint32_t left = count;
  while (left > 0) {
    if (receiveHandle_.get() != currentDescriptor_) {
      dropReceived();
      receiveHandle_ = handle();
    }
    if (!receiveHandle_) {
      break;
    }
    std::size_t got = std::min<std::size_t>(left, ahead_.size());
    std::copy_n(ahead_.begin(), got, next);
    ahead_ = ahead_.subspan(got);
    if (got == 0) {
      const bool isDirect = left >= aheadBuffer_.size() || receiveHandle_.get() == foreignDescriptor_;
      const ssize_t result =
          isDirect ? readSome(next, left) : readSome(aheadBuffer_.data(), aheadBuffer_.size());
      if (result == 0) {
        break;
      }
      if (result < 0) {
        return -1;
      }
      if (!isDirect) {
        ahead_ = std::span(aheadBuffer_).first(static_cast<std::size_t>(result));
        continue;
      }
      got = static_cast<std::size_t>(result);
    }
    if (limits_ && !messageEnd_) {
      messageEnd_ = std::chrono::steady_clock::now() + limits_->messageTime;
    }
    next += got;
    left -= static_cast<std::uint32_t>(got);
  }
  return static_cast<std::int32_t>(count - left);
}

void KeldaneSocket::dropReceived() {
  receiveHandle_.reset();
  ahead_ = {};
  messageEnd_.reset();
}

// The result of one read: 0 when it would block, -1 at the end or after an error.
ssize_t KeldaneSocket::readSome(char* buffer, std::size_t size) {
  if (messageEnd_ && !isReadableBefore(receiveHandle_->get(), *messageEnd_)) {
    return -1;
  }
  const ssize_t got = ::read(receiveHandle_->get(), buffer, size);
  return got > 0 ? got : got < 0 && errno == EAGAIN ? 0 : -1;
}

bool KeldaneSocket::start() {
  // Without a receive thread nobody may wait for an answer. The descriptor is dropped too, because it is
  // connected and the next try needs one that is not.
  const auto giveUp = [this] {
    rcvThreadRun_ = false;
    setHandle(nullptr);
    const ScopedLock guard(receiverMutex_);
    rcvThreadRunning_ = false;
  };
  rcvThreadRun_ = true;
  bool isRunning = true;
  {
    const ScopedLock guard(receiverMutex_);
    std::swap(isRunning, rcvThreadRunning_);
    startsAgain_ = isRunning;
  }
  if (isRunning) {  // the thread of the former link serves the new one once it has noticed the change
    const ScopedLock guard(closedMutex_);
    closed_.notifyAll();
    return true;
  }
  try {
    if (startThread(&KeldaneSocket::rcvThread)) {
      return true;
    }
  } catch (const std::bad_alloc&) {
    giveUp();
    throw;
  }
  giveUp();
  return false;
}

bool KeldaneSocket::startThread(void (KeldaneSocket::*loop)()) {
  try {
    const SignalsBlocked blocked;
    std::thread([self = shared_from_this(), loop] { ((*self).*loop)(); }).detach();
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    KeldaneCLog("KeldaneSocket cannot start a thread: %s", error.what());
    return false;
  }
}

void KeldaneSocket::setSocket(int descriptor) {
  Descriptor owned(descriptor);
  auto handle = std::make_shared<const Descriptor>(std::move(owned));
  foreignDescriptor_ = handle.get();
  setHandle(std::move(handle));
}

void KeldaneSocket::setParent(const std::shared_ptr<KeldaneSocket>& parent) {
  const ScopedLock guard(monitor_);
  parent_ = parent;
}

void KeldaneSocket::removeChild(const std::shared_ptr<KeldaneSocket>& child) {
  const ScopedLock guard(monitor_);
  std::erase(children_, child);
}

std::optional<PeerCredentials> KeldaneSocket::peerCredentials() const {
  const Handle descriptor = handle();
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (!descriptor || getsockopt(descriptor->get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return std::nullopt;
  }
  return PeerCredentials{peer.pid, peer.uid, peer.gid};
}

void KeldaneSocket::setLimits(const SocketLimits& limits) {
  limits_ = limits;
  if (const Handle descriptor = handle()) {
    const auto stall = limits.stallTime.count();
    const timeval time = {stall / 1000, static_cast<suseconds_t>(stall % 1000 * 1000)};
    setsockopt(descriptor->get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
  }
}

bool KeldaneSocket::isReadyToSend() const {
  const Handle descriptor = handle();
  pollfd target{descriptor ? descriptor->get() : -1, POLLOUT, 0};
  return descriptor && ::poll(&target, 1, 0) == 1 && (target.revents & POLLOUT) != 0;
}

bool KeldaneSocket::isAtEnd() const {
  const Handle descriptor = handle();
  char next = 0;
  const ssize_t got = descriptor ? ::recv(descriptor->get(), &next, 1, MSG_PEEK | MSG_DONTWAIT) : 0;
  return got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR);
}

void KeldaneSocket::close() {
  // The destructors of these may call back, so they run when no lock is held.
  Handle descriptor;
  std::shared_ptr<KeldSocketDelegate> socketDelegate;
  std::vector<std::shared_ptr<KeldaneSocket>> children;
  bool queued = false;
  {
    const ScopedLock guard(monitor_);
    zombie_ = true;  // set before the descriptor goes: a caller that cannot send must not wait for an answer
    {
      const ScopedLock membersGuard(membersMutex_);
      descriptor.swap(socketfd_);
      currentDescriptor_ = nullptr;
    }
    if (descriptor) {
      // This wakes the threads inside a call. The last of them closes the descriptor.
      ::shutdown(descriptor->get(), SHUT_RDWR);
    }
    socketDelegate.swap(socketDelegate_);
    if (!children_.empty()) {
      acceptThreadRun_ = false;
      if (!listenPath_.empty()) {
        ::unlink(listenPath_.c_str());
        listenPath_.clear();
      }
      children.swap(children_);
    } else {
      // A listener without children keeps its accept flag and its path file; this is kept on purpose. Its
      // thread ends because the descriptor is gone.
      rcvThreadRun_ = false;
    }
    queued = queuedOnMainThread_;
  }
  {
    const ScopedLock guard(sendMutex_);  // nobody is inside a send any more
    sendHandle_.reset();
  }
  sendTo(dataDelegate(), &KeldaneSocketDelegate::socketClosing);
  {
    const ScopedLock guard(closedMutex_);
    closed_.notifyAll();
  }
  dataDelegateLock_.wake();
  if (queued) {  // otherwise this might create the main run loop, which takes descriptors and may throw
    RunLoop::main().cancel(this);
  }
  for (const std::shared_ptr<KeldaneSocket>& child : children) {
    child->close();
  }
}

}  // namespace keldane
