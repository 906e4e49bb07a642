// The remote-call proxy. It calls the methods of a peer and performs the calls that the peer makes.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string_view>

#include "Common/calls/DaemonProtocol.h"
#include "Common/calls/Invocation.h"
#include "Common/transport/KeldSocket.h"
#include "platform/runloop/RunLoop.h"
#include "platform/threads/ConditionLock.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The remote-call proxy over one socket. It is the socket's data delegate.
///
/// Any thread may call. Outgoing calls are strictly one at a time. A call that returns a value waits, without
/// a time limit, until the response arrives or the link fails. After a failure it yields no value, which
/// reads as zero or absent. It throws std::bad_alloc when there was no memory for the response. Incoming
/// requests are performed on the delegate: queued to the run loop of the thread that made the proxy
/// (main-thread mode, no response), or on the receive thread with a response (direct mode).
///
/// Lock order: forwardingLock → socketLock (released before waiting) → resultCond on the caller's side; the
/// socket's data-delegate lock → resultCond, → invocationLock, or → forwardingLock → socketLock on the
/// receive thread.
class KeldaneProxy final : public KeldaneSocketDelegate,
                           public DaemonCalls<KeldaneProxy>,
                           public std::enable_shared_from_this<KeldaneProxy> {
 public:
  static std::shared_ptr<KeldaneProxy> create();
  ~KeldaneProxy() override;
  KeldaneProxy(const KeldaneProxy&) = delete;
  KeldaneProxy& operator=(const KeldaneProxy&) = delete;

  /// Closes the socket it had, keeps the new one and becomes its data delegate. A proxy is made for one
  /// connection. Once a first socket was closed, an answer that comes while the former one is not fetched yet
  /// is dropped.
  void setSocket(const std::shared_ptr<KeldaneSocket>& socket);
  /// The table of the peer's methods. It is not owned; the tables are constants.
  void setProtocol(const Protocol* protocol);
  /// The object that performs incoming requests; not owned.
  void setDelegate(std::weak_ptr<InvocationTarget> delegate);
  void setCallDelegateOnMainThread(bool onMainThread);

  /// The row of the bound table. Throws InvalidArgument when there is none, before any lock is taken.
  const MethodSignature& methodSignatureForSelector(std::string_view selector) const;
  /// Sends the call and, if it returns a value, waits for the result. The arguments are converted to the
  /// codes of the table.
  RawValue call(std::string_view selector, Arguments arguments);
  /// Sends a call of a method that returns nothing, but only if the peer can take it at once and no other
  /// call is being sent. Otherwise it returns false and sends nothing.
  bool callWithoutWaiting(std::string_view selector, Arguments arguments);

  /// Whether the link has ended. If it has, a call that yielded no value was not answered; otherwise the
  /// answer was an absent value.
  bool isLinkAtEnd() const;

  bool processData(const Bytes* payload, std::int32_t type) override;
  void socketClosing() override;

  /// Releases the socket without closing it. A receive thread that waits to hand over a result can then
  /// leave. A waiting caller continues to wait until an answer or the failure signal comes.
  void close();

 private:
  struct QueuedCall {
    std::weak_ptr<InvocationTarget> target;
    Invocation invocation;
  };

  KeldaneProxy();
  std::shared_ptr<KeldaneSocket> socket() const;
  Invocation invocationFor(std::string_view selector, Arguments arguments) const;
  void forwardInvocation(Invocation& invocation);
  const PropertyList::Array& emptyRequestFor(const MethodSignature& method) KELDANE_REQUIRES(forwardingLock_);
  void sendFrame(std::int32_t type, const std::optional<Bytes>& payload);
  void processResponse(const Bytes* payload);
  void processFailure();
  void processInvocationArgs(const PropertyList& request);
  void performDirectly(InvocationTarget& target, Invocation& invocation);
  void handlePortMessage(std::uint32_t messageId);

  // This mutex is held only while a member is copied.
  mutable Mutex membersMutex_{{.name = "KeldaneProxy.membersMutex", .leaf = true}};
  std::shared_ptr<KeldaneSocket> socket_ KELDANE_GUARDED_BY(membersMutex_);
  std::atomic<const Protocol*> protocol_ = nullptr;
  Mutex socketLock_{{.name = "KeldaneProxy.socketLock"}};  // keeps the four pieces of a message together
  // The condition is 1 when a result or a failure is ready for the caller.
  ConditionLock resultCond_{0, {.name = "KeldaneProxy.resultCond", .leaf = true}};
  std::atomic<bool> waitingOnResult_ = false;
  // Empty after a failure. An answer may be an absent value.
  std::optional<PropertyList> resultObject_ KELDANE_GUARDED_BY(resultCond_);
  // The key set of the latest response. It is reused for the next one, which usually has the same keys. It is
  // guarded because the receive threads of an old and a new socket may overlap.
  Mutex answerKeysMutex_{{.name = "KeldaneProxy.answerKeysMutex", .leaf = true}};
  PropertyList::Keys answerKeys_ KELDANE_GUARDED_BY(answerKeysMutex_);
  std::weak_ptr<InvocationTarget> delegate_ KELDANE_GUARDED_BY(membersMutex_);
  std::atomic<bool> callDelegateOnMainThread_ = false;
  // This lock allows one outgoing call at a time, and none while a request is performed directly.
  Mutex forwardingLock_{{.name = "KeldaneProxy.forwardingLock", .heldWhileWaiting = true}};
  // One request per method, kept without its arguments.
  std::vector<std::pair<MethodSignature, PropertyList::Array>> emptyRequests_
      KELDANE_GUARDED_BY(forwardingLock_);
  std::deque<QueuedCall> invocationQueue_ KELDANE_GUARDED_BY(invocationLock_);
  // Never held while a queued call is performed.
  Mutex invocationLock_{{.name = "KeldaneProxy.invocationLock", .leaf = true}};
  std::unique_ptr<MessagePort> invocationPort_;
  std::atomic<bool> closing_ = false;  // never cleared: a proxy is made for one connection
};

}  // namespace keldane
