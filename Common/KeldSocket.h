// The byte transport between the clients and the backup daemon: framed messages on a local stream socket.
#pragma once

#include <sys/un.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/PropertyList.h"
#include "platform/threads/ConditionLock.h"
#include "platform/threads/Mutex.h"

namespace keldane {

class KeldaneSocket;

/// Frame types on the wire. The receive thread also hands type 0 to the data delegate to say that the link
/// failed; 0 is never written.
inline constexpr std::int32_t kLinkFailed = 0;
inline constexpr std::int32_t kRequestFrame = 1;
inline constexpr std::int32_t kResponseFrame = 2;

/// The 36 characters that begin every message.
inline constexpr std::string_view kFrameMarker = "8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04";

/// Socket delegate: told when the link comes up, breaks, or has a new peer. What it does not override it does
/// not implement. `socketCreated` comes on the accept thread; the others on the receive thread, or on the
/// main thread when the socket was told so; the `socketFailed` of a failed write always on the writer's
/// thread.
class KeldSocketDelegate {
 public:
  virtual ~KeldSocketDelegate() = default;
  virtual void socketConnected(const std::shared_ptr<KeldaneSocket>&) {}
  virtual void socketFailed(const std::shared_ptr<KeldaneSocket>&) {}
  virtual void socketCreated(const std::shared_ptr<KeldaneSocket>& /*child*/) {}
};

/// Data delegate: receives each message on the receive thread, with the socket's data-delegate lock held. An
/// absent payload is a message of length 0.
class KeldaneSocketDelegate {
 public:
  virtual ~KeldaneSocketDelegate() = default;
  virtual bool processData(const Bytes* payload, std::int32_t type) = 0;
  /// The socket is being closed: give up any wait inside `processData`, so that the receive thread can leave.
  virtual void socketClosing() {}
};

/// A local stream socket that connects or listens, with one receive thread a connection and one accept thread
/// a listener.
///
/// Owned by shared pointers: its owner, its threads and the proxy hold it; it retains its two delegates (the
/// socket delegate until `close`). Any thread may send and close. The object's monitor guards close, the
/// delegate setters and the delivery of delegate calls; `sendMutex` keeps one send whole; the data-delegate
/// lock is held while a message is processed. The descriptor is shut down first and closed only when no
/// thread can be inside a call on its number.
class KeldaneSocket : public std::enable_shared_from_this<KeldaneSocket> {
 public:
  static std::shared_ptr<KeldaneSocket> create();
  ~KeldaneSocket();
  KeldaneSocket(const KeldaneSocket&) = delete;
  KeldaneSocket& operator=(const KeldaneSocket&) = delete;

  bool connectToPath(const std::string& path);
  bool listenAtPath(const std::string& path);
  void setSocketDelegate(std::shared_ptr<KeldSocketDelegate> delegate);
  void setDataDelegate(std::shared_ptr<KeldaneSocketDelegate> delegate);
  void setCallDelegateOnMainThread(bool onMainThread);

  bool sendBytes(const void* bytes, std::uint32_t length);
  bool sendData(BytesView data);
  bool sendString(const char* text);
  bool sendInt(std::int32_t value);
  std::int32_t readBytes(std::uint32_t count, void* buffer);

  void start();
  void setSocket(int descriptor);
  void setParent(const std::shared_ptr<KeldaneSocket>& parent);
  void removeChild(const std::shared_ptr<KeldaneSocket>& child);
  bool isZombie() const;
  void close();
};

}  // namespace keldane
