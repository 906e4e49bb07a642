// Makes the daemon's interface callable as if it were a local object, and performs the calls that the daemon
// makes back.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Common/DaemonProtocol.h"
#include "Common/Invocation.h"
#include "Common/KeldSocket.h"
#include "platform/runloop/RunLoop.h"
#include "platform/threads/ConditionLock.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The remote-call proxy over one socket, of which it is the data delegate.
///
/// Outgoing calls (any thread) are strictly one at a time; a call that returns a value waits, without a time
/// limit, until the response arrives or the link fails, and then yields zero or absent. Incoming requests are
/// performed on the delegate: queued to the run loop of the thread that made the proxy (main-thread mode, no
/// response), or on the receive thread with a response (direct mode).
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

  /// Closes the socket it had, keeps the new one and becomes its data delegate.
  void setSocket(std::shared_ptr<KeldaneSocket> socket);
  /// Not owned; the tables are constants.
  void setProtocol(const Protocol* protocol);
  /// Not owned.
  void setDelegate(std::weak_ptr<InvocationTarget> delegate);
  void setCallDelegateOnMainThread(bool onMainThread);

  /// The row of the bound table; throws InvalidArgument when it has none, before any lock is taken.
  const MethodSignature& methodSignatureForSelector(std::string_view selector) const;
  /// Sends the call and, if it returns a value, waits for the result.
  void forwardInvocation(Invocation& invocation);
  /// The same by selector: the arguments are converted to the codes of the table.
  RawValue call(std::string_view selector, Arguments arguments);

  bool processData(const Bytes* payload, std::int32_t type) override;
  void socketClosing() override;

  /// Lets go of the socket, which it does not close, and of the receive thread; a caller that is waiting goes
  /// on waiting.
  void close();
};

}  // namespace keldane
