// The byte transport between the clients and the backup daemon: framed messages on a local stream socket.
#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Common/transport/Frame.h"
#include "Common/transport/SocketLimits.h"
#include "platform/files/Descriptor.h"
#include "platform/plist/PropertyList.h"
#include "platform/threads/ConditionLock.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// In bytes. The path field of an address holds one byte more, which stays NUL.
inline constexpr std::size_t kLongestSocketPath = 103;

class KeldaneSocket;

/// The socket delegate is told when the link comes up, breaks, or has a new peer. The default methods do
/// nothing. `socketAccepted` and `socketCreated` are called on the accept thread. The other methods are
/// called on the receive thread, or on the main thread when `setCallDelegateOnMainThread` was set. After a
/// failed write, `socketFailed` is always called on the writer's thread.
class KeldSocketDelegate {
 public:
  virtual ~KeldSocketDelegate() = default;
  virtual void socketConnected(const std::shared_ptr<KeldaneSocket>&) {}
  virtual void socketFailed(const std::shared_ptr<KeldaneSocket>&) {}
  /// Called for a new peer, from which nothing was read yet. False turns the peer away.
  virtual bool socketAccepted(const std::shared_ptr<KeldaneSocket>& /*child*/) { return true; }
  virtual void socketCreated(const std::shared_ptr<KeldaneSocket>& /*child*/) {}
};

/// The data delegate receives each message on the receive thread, with the socket's data-delegate lock held.
/// An absent payload stands for a message of length 0. An exception that the delegate throws is logged;
/// std::bad_alloc fails the link.
class KeldaneSocketDelegate {
 public:
  virtual ~KeldaneSocketDelegate() = default;
  virtual bool processData(const Bytes* payload, std::int32_t type) = 0;
  /// Called while the socket is being closed. It must end any wait inside `processData`, so that the receive
  /// thread can leave.
  virtual void socketClosing() {}
};

/// The process at the other end of an accepted connection.
struct PeerCredentials {
  pid_t pid;
  uid_t uid;
  gid_t gid;
};

/// A local stream socket that connects or listens. A connection has one receive thread, and a listener has
/// one accept thread.
///
/// The socket is always held by shared pointers: its owner, its threads, its listener and the proxy hold it.
/// It retains its two delegates, the socket delegate until `close`. Any thread may call any operation but
/// `readBytes`. The object's monitor guards `close`, the socket delegate and the delivery of its calls.
/// `sendMutex_` keeps one send whole. The data-delegate lock is held while a message is processed. Lock
/// order: the data-delegate lock comes before the monitor, because a write that fails while a message is
/// processed takes the monitor. No operation waits for the data-delegate lock while it holds the monitor, so
/// `close` always gets through.
///
/// The descriptor is shut down first. It is closed when the last thread that uses it has let go of it. So a
/// descriptor number that the process uses again is never read or written here. Threads are detached and keep
/// the socket alive; after `close` they leave at once and report nothing. An exception that a delegate throws
/// on one of them is logged and goes no further.
///
/// When there is no memory for a message, the message is lost and the link is shut down, so that neither end
/// waits for an answer that cannot come.
class KeldaneSocket : public std::enable_shared_from_this<KeldaneSocket> {
 public:
  static std::shared_ptr<KeldaneSocket> create();
  ~KeldaneSocket();
  KeldaneSocket(const KeldaneSocket&) = delete;
  KeldaneSocket& operator=(const KeldaneSocket&) = delete;

  /// Connects to the socket at a path and starts the receive thread. Only the first 103 bytes of the path
  /// count. An absent or empty path is a failure. When the connection fails, the descriptor is kept for the
  /// next try.
  bool connectToPath(const std::optional<std::string>& path);
  /// Removes whatever file is at the path, listens there with this file mode and starts the accept thread.
  bool listenAtPath(const std::string& path, mode_t mode = 0777);

  /// Replacing a delegate tells the old one that the link failed. A null delegate throws AssertionFailure.
  void setSocketDelegate(std::shared_ptr<KeldSocketDelegate> delegate);
  /// Incoming messages wait until there is a data delegate. A null delegate throws AssertionFailure.
  void setDataDelegate(std::shared_ptr<KeldaneSocketDelegate> delegate);
  /// Sets whether the receive thread's calls of the socket delegate are queued to the main thread.
  void setCallDelegateOnMainThread(bool onMainThread);

  /// Writes all bytes, without bytes of other senders between them. When that fails, it tells the socket
  /// delegate on this thread that the link failed and returns false.
  bool sendBytes(const void* bytes, std::uint32_t length);
  /// These do the same, but without a descriptor they return false at once and tell nobody.
  bool sendData(BytesView data);
  bool sendString(const char* text);
  bool sendInt(std::int32_t value);
  /// Writes one message: the marker, the type, the length and the payload, which is null for none. The caller
  /// ensures that no other message comes between these pieces.
  void sendFrame(std::int32_t type, const Bytes* payload);
  /// Reads `count` bytes and returns the number of bytes read. From a descriptor that this class connected or
  /// accepted it may read ahead; the next call gets those bytes first. The result is -1 at the end of the
  /// stream or after an error, and less than `count` when there is no descriptor or a read would block. While
  /// there is a receive thread, only that thread calls it.
  std::int32_t readBytes(std::uint32_t count, void* buffer);

  /// Starts the receive thread. Returns false when the system has no thread to give, and throws
  /// std::bad_alloc when it has no memory. In both cases the descriptor is dropped.
  bool start();
  /// Takes over an accepted descriptor. Nothing is read ahead from it.
  void setSocket(int descriptor);
  void setParent(const std::shared_ptr<KeldaneSocket>& parent);
  void removeChild(const std::shared_ptr<KeldaneSocket>& child);
  /// Whether the socket was ever closed. It may have been connected again since.
  bool isZombie() const { return zombie_.load(std::memory_order_relaxed); }
  /// Whether there is a receive thread, which delivers incoming messages and reports the end of the link.
  bool isReceiving() const {
    return rcvThreadRun_.load(std::memory_order_relaxed) && currentDescriptor_ != nullptr;
  }
  /// Whether the link failed because there was no memory for an incoming message.
  bool ranOutOfMemory() const { return ranOutOfMemory_.load(std::memory_order_relaxed); }
  std::optional<PeerCredentials> peerCredentials() const;
  /// Sets the limits for the peer of an accepted connection. Without limits, as in a client, everything is
  /// allowed. To be called within `socketAccepted`.
  void setLimits(const SocketLimits& limits);
  /// Whether a short message can be sent now without waiting for the peer.
  bool isReadyToSend() const;
  /// Whether nothing can come from the peer any more. This may be true before the socket delegate is told,
  /// because that call may be queued.
  bool isAtEnd() const;

  /// Ends the link or the listening, and withdraws delegate calls that are still queued. With children, the
  /// accept thread's run flag is cleared and the listener's path is removed. Without children, only the
  /// receive thread's run flag is cleared. So a listener that never accepted anybody keeps its flag and its
  /// path, on purpose.
  void close();

 private:
  KeldaneSocket();
  using Handle = std::shared_ptr<const Descriptor>;

  Handle handle() const;
  void setHandle(Handle handle);
  /// Replaces a thread's copy of the handle when the current descriptor is another one.
  void renew(Handle& kept) const;
  bool openHandle();
  std::shared_ptr<KeldaneSocketDelegate> dataDelegate() const;
  /// The caller holds dataDelegateLock_, so the delegate cannot be replaced meanwhile.
  KeldaneSocketDelegate& lockedDataDelegate() const
      KELDANE_REQUIRES(dataDelegateLock_) KELDANE_NO_THREAD_SAFETY_ANALYSIS {
    return *dataDelegate_;
  }
  ssize_t readSome(char* buffer, std::size_t size);
  bool startThread(void (KeldaneSocket::*loop)());
  bool fillAddress(const std::string& path);

  /// Whether the receive thread, which calls this, still receives for the current link.
  bool goesOnReceiving() const { return isReceiving() && !startsAgain_.load(std::memory_order_relaxed); }
  void rcvThread();
  bool beginsAnew();
  /// Forgets the descriptor and the bytes that were read from it. Called on the receive thread.
  void dropReceived();
  bool receiveMessage();
  bool receiveMarker();
  bool receivePayload(std::uint32_t length, Bytes& payload, ByteBudget::Share& share);
  void deliver(const Bytes* payload, std::int32_t type);
  void failForWantOfMemory();
  void reportReadFailure();
  /// Waits until the condition holds, but no longer than `duration`. `close` and `start` make it check the
  /// condition again.
  template <class Condition>
  void waitUnless(const Condition& condition, std::chrono::milliseconds duration) {
    const ScopedLock guard(closedMutex_);
    closed_.waitFor(closedMutex_, duration, condition);
  }
  using DelegateCall = void (KeldSocketDelegate::*)(const std::shared_ptr<KeldaneSocket>&);
  void tellSocketDelegate(DelegateCall call, const char* logLine);
  void acceptThread();
  void makeChild(Descriptor descriptor);
  bool adopt(const std::shared_ptr<KeldaneSocket>& child);

  Monitor monitor_{{.name = "KeldaneSocket.monitor"}};
  sockaddr_un socketAddress_{};
  // This mutex is held only while a member is copied.
  mutable Mutex membersMutex_{{.name = "KeldaneSocket.membersMutex", .leaf = true}};
  Handle socketfd_ KELDANE_GUARDED_BY(membersMutex_);  // null when there is no descriptor
  // The address of socketfd_'s descriptor. It tells without a lock whether the descriptor is still the same.
  std::atomic<const Descriptor*> currentDescriptor_ = nullptr;
  // The descriptor that `setSocket` took over. Others may read from it too, so nothing is read ahead.
  std::atomic<const Descriptor*> foreignDescriptor_ = nullptr;
  Mutex sendMutex_{{.name = "KeldaneSocket.sendMutex"}};
  Handle sendHandle_ KELDANE_GUARDED_BY(sendMutex_);
  Handle receiveHandle_;  // used by the receive thread only
  std::shared_ptr<KeldSocketDelegate> socketDelegate_ KELDANE_GUARDED_BY(monitor_);
  std::atomic<bool> callDelegateOnMainThread_ = false;
  bool queuedOnMainThread_ KELDANE_GUARDED_BY(monitor_) = false;  // whether a delegate's call was ever queued
  // The condition is 1 when there is a data delegate.
  ConditionLock dataDelegateLock_{0, {.name = "KeldaneSocket.dataDelegateLock", .heldWhileWaiting = true}};
  // The delegate is replaced only while dataDelegateLock_ is held, so never while it processes a message.
  std::shared_ptr<KeldaneSocketDelegate> dataDelegate_ KELDANE_GUARDED_BY(membersMutex_);
  std::atomic<bool> rcvThreadRun_ = false;
  Mutex receiverMutex_{{.name = "KeldaneSocket.receiverMutex", .leaf = true}};
  bool rcvThreadRunning_ KELDANE_GUARDED_BY(receiverMutex_) = false;  // from `start` until the thread leaves
  std::atomic<bool> startsAgain_ = false;  // the running thread is to receive for a new link
  std::atomic<bool> ranOutOfMemory_ = false;
  std::string listenPath_ KELDANE_GUARDED_BY(monitor_);
  std::atomic<bool> acceptThreadRunning_ = false;
  std::atomic<bool> acceptThreadRun_ = false;
  std::vector<std::shared_ptr<KeldaneSocket>> children_ KELDANE_GUARDED_BY(monitor_);
  std::weak_ptr<KeldaneSocket> parent_ KELDANE_GUARDED_BY(monitor_);
  std::atomic<bool> zombie_ = false;
  std::optional<SocketLimits> limits_;  // for a server's child; set before anything is read or written
  // The time at which the message that has begun must be complete. Absent between two messages. Used by the
  // receive thread only.
  std::optional<std::chrono::steady_clock::time_point> messageEnd_;
  // The bytes that were read ahead. A message is sent in four pieces, and usually all of them have arrived
  // when the first one has woken the thread. Used by the receive thread only.
  std::array<char, 4096> aheadBuffer_;
  std::span<const char> ahead_;
  // This mutex is held briefly by `close`, by `start` and by the threads that wait for them.
  Mutex closedMutex_{{.name = "KeldaneSocket.closedMutex", .leaf = true}};
  Condition closed_;
};

}  // namespace keldane
