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

class KeldaneSocket;

/// Socket delegate: is told when the link comes up, breaks, or has a new peer. A method that it does not
/// override does nothing. `socketCreated` comes on the accept thread; the others on the receive thread, or on
/// the main thread when the socket was told so; the `socketFailed` of a failed write always on the writer's
/// thread.
class KeldSocketDelegate {
 public:
  virtual ~KeldSocketDelegate() = default;
  virtual void socketConnected(const std::shared_ptr<KeldaneSocket>&) {}
  virtual void socketFailed(const std::shared_ptr<KeldaneSocket>&) {}
  /// A new peer, from which nothing was read yet. Called on the accept thread; false turns the peer away.
  virtual bool socketAccepted(const std::shared_ptr<KeldaneSocket>& /*child*/) { return true; }
  virtual void socketCreated(const std::shared_ptr<KeldaneSocket>& /*child*/) {}
};

/// Data delegate: receives each message on the receive thread, with the socket's data-delegate lock held. An
/// absent payload is a message of length 0. An exception that it throws is logged; std::bad_alloc fails the
/// link.
class KeldaneSocketDelegate {
 public:
  virtual ~KeldaneSocketDelegate() = default;
  virtual bool processData(const Bytes* payload, std::int32_t type) = 0;
  /// The socket is being closed: end any wait inside `processData`, so that the receive thread can leave.
  virtual void socketClosing() {}
};

/// Who is at the other end of an accepted connection.
struct PeerCredentials {
  pid_t pid;
  uid_t uid;
  gid_t gid;
};

/// A local stream socket that connects or listens, with one receive thread a connection and one accept thread
/// a listener.
///
/// Always held by shared pointers: its owner, its threads, its listener and the proxy hold it, and it retains
/// its two delegates, the socket delegate until `close`. Any thread may call any operation but `readBytes`.
/// The object's monitor guards `close`, the socket delegate and the delivery of its calls; `sendMutex_` keeps
/// one send whole; the data-delegate lock is held while a message is processed. Order: the data-delegate lock
/// before the monitor, which a write takes that fails while a message is processed. No operation waits for
/// the data-delegate lock while it holds the monitor, so `close` always gets through.
///
/// The descriptor is shut down first and closed when the last thread that uses it has let go of it, so that a
/// number that the process uses again is never read or written here. Threads are detached and keep the
/// socket alive; after `close` they leave at once and report nothing. An exception that a delegate throws on
/// one of them is logged and goes no further.
///
/// A message for which there is no memory is lost, and with it the link: it is shut down, so that no end
/// waits for an answer that cannot come.
class KeldaneSocket : public std::enable_shared_from_this<KeldaneSocket> {
 public:
  static std::shared_ptr<KeldaneSocket> create();
  ~KeldaneSocket();
  KeldaneSocket(const KeldaneSocket&) = delete;
  KeldaneSocket& operator=(const KeldaneSocket&) = delete;

  /// Connects to the socket at a path, of which the first 103 bytes count, and starts the receive thread.
  /// After a failure, which an absent or empty path is too, the descriptor is kept for the next try.
  bool connectToPath(const std::optional<std::string>& path);
  /// Removes whatever is at the path, listens there with this mode and starts the accept thread.
  bool listenAtPath(const std::string& path, mode_t mode = 0777);

  /// Replacing a delegate tells the old one that the link failed. A null delegate throws AssertionFailure.
  void setSocketDelegate(std::shared_ptr<KeldSocketDelegate> delegate);
  /// Messages wait until there is one. A null delegate throws AssertionFailure.
  void setDataDelegate(std::shared_ptr<KeldaneSocketDelegate> delegate);
  /// Whether what the receive thread tells the socket delegate is queued to the main thread.
  void setCallDelegateOnMainThread(bool onMainThread);

  /// Writes all of it in one go, undisturbed by other senders, or answers false after telling the socket
  /// delegate, on this thread, that the link failed.
  bool sendBytes(const void* bytes, std::uint32_t length);
  /// The same, but without a descriptor they answer false at once and silently.
  bool sendData(BytesView data);
  bool sendString(const char* text);
  bool sendInt(std::int32_t value);
  /// Writes one message in two steps, so that its payload can be made while the first pieces wake the peer:
  /// the marker and the type, then the length and the payload, null for none. The caller sees to it that no
  /// other message comes between the two.
  void beginFrame(std::int32_t type);
  void endFrame(const Bytes* payload);
  /// Reads `count` bytes, and may take more from a descriptor that this class connected or accepted, which
  /// the next call gets first. -1 at the end of the stream or after an error; fewer when there is no
  /// descriptor or a read would block. Only the receive thread calls it while there is one.
  std::int32_t readBytes(std::uint32_t count, void* buffer);

  /// Starts the receive thread. False when the system has no thread to give, std::bad_alloc when it has no
  /// memory; the descriptor is then closed.
  bool start();
  /// Takes over an accepted descriptor. No more is read from it than was asked for.
  void setSocket(int descriptor);
  void setParent(const std::shared_ptr<KeldaneSocket>& parent);
  void removeChild(const std::shared_ptr<KeldaneSocket>& child);
  /// Whether it was ever closed. It may have been connected again since.
  bool isZombie() const { return zombie_.load(std::memory_order_relaxed); }
  /// Whether there is a receive thread, which delivers what comes and reports when nothing can come any more.
  bool isReceiving() const {
    return rcvThreadRun_.load(std::memory_order_relaxed) && currentDescriptor_ != nullptr;
  }
  /// Whether the link failed because there was no memory for what came.
  bool ranOutOfMemory() const { return ranOutOfMemory_.load(std::memory_order_relaxed); }
  std::optional<PeerCredentials> peerCredentials() const;
  /// What the peer of an accepted connection is allowed. Without limits, as in a client, everything is
  /// allowed. To be called within `socketAccepted`.
  void setLimits(const SocketLimits& limits);
  /// Whether a short message can be sent now without waiting for the peer.
  bool isReadyToSend() const;
  /// Whether nothing can come from the peer any more. True before the socket delegate hears of it, which may
  /// be queued.
  bool isAtEnd() const;

  /// Ends the link or the listening, and withdraws calls of the delegate that are still queued. The run flag
  /// that is cleared, and whether a listener's path goes, depends on whether there are children: a listener
  /// that never accepted anybody keeps both, on purpose.
  void close();

 private:
  KeldaneSocket();
  using Handle = std::shared_ptr<const Descriptor>;

  Handle handle() const;
  void setHandle(Handle handle);
  /// Replaces a descriptor that a thread keeps by the current one, if that is another.
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
  /// Waits until the condition holds, but no longer than `duration`. `close` and `start` make it look again.
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
  // Held only while a member is copied.
  mutable Mutex membersMutex_{{.name = "KeldaneSocket.membersMutex", .leaf = true}};
  Handle socketfd_ KELDANE_GUARDED_BY(membersMutex_);  // null: no descriptor
  // The address of socketfd_'s descriptor, to see without a lock whether it is still the same.
  std::atomic<const Descriptor*> currentDescriptor_ = nullptr;
  // The descriptor that `setSocket` took over. Others may read from it too, so nothing is read ahead.
  std::atomic<const Descriptor*> foreignDescriptor_ = nullptr;
  Mutex sendMutex_{{.name = "KeldaneSocket.sendMutex"}};
  Handle sendHandle_ KELDANE_GUARDED_BY(sendMutex_);
  Handle receiveHandle_;  // used by the receive thread only
  std::shared_ptr<KeldSocketDelegate> socketDelegate_ KELDANE_GUARDED_BY(monitor_);
  std::atomic<bool> callDelegateOnMainThread_ = false;
  bool queuedOnMainThread_ KELDANE_GUARDED_BY(monitor_) = false;  // whether a delegate's call was ever queued
  // 1: there is a data delegate
  ConditionLock dataDelegateLock_{0, {.name = "KeldaneSocket.dataDelegateLock", .heldWhileWaiting = true}};
  // Replaced only while dataDelegateLock_ is held, so never while it processes a message.
  std::shared_ptr<KeldaneSocketDelegate> dataDelegate_ KELDANE_GUARDED_BY(membersMutex_);
  std::atomic<bool> rcvThreadRun_ = false;
  Mutex receiverMutex_{{.name = "KeldaneSocket.receiverMutex", .leaf = true}};
  bool rcvThreadRunning_ KELDANE_GUARDED_BY(receiverMutex_) = false;  // from `start` until the thread leaves
  std::atomic<bool> startsAgain_ = false;  // the thread that still runs shall receive for a new link
  std::atomic<bool> ranOutOfMemory_ = false;
  std::string listenPath_ KELDANE_GUARDED_BY(monitor_);
  std::atomic<bool> acceptThreadRunning_ = false;
  std::atomic<bool> acceptThreadRun_ = false;
  std::vector<std::shared_ptr<KeldaneSocket>> children_ KELDANE_GUARDED_BY(monitor_);
  std::weak_ptr<KeldaneSocket> parent_ KELDANE_GUARDED_BY(monitor_);
  std::atomic<bool> zombie_ = false;
  std::optional<SocketLimits> limits_;  // for a server's child; set before anything is read or written
  // When the message that has begun must be whole; nothing between two messages. Used by the receive thread
  // only.
  std::optional<std::chrono::steady_clock::time_point> messageEnd_;
  // The bytes that came with an earlier read and were not asked for yet. A message is sent in four pieces,
  // and mostly all of them are there when the first one has woken the thread. Used by the receive thread
  // only.
  std::array<char, 4096> aheadBuffer_;
  std::span<const char> ahead_;
  // Held for moments by those who wait for `close` or `start`, and by those two.
  Mutex closedMutex_{{.name = "KeldaneSocket.closedMutex", .leaf = true}};
  Condition closed_;
};

}  // namespace keldane
