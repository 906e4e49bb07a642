// The status core's connection to the daemon, and the pauses between its attempts to connect.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "hosts/core/status/StatusTiming.h"
#include "hosts/core/status/link/DaemonLink.h"

namespace keldane {

/// Holds the link to the daemon and makes it again when it has ended. The pauses between failing attempts
/// grow. A new socket at the daemon's path ends a pause at once. Used on one thread, which is never the
/// window's thread. Other threads may call `isAway` while that thread sleeps.
class StatusConnection {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// When `socketPath` is empty, the first attempt looks up the path that the installed bundle names.
  StatusConnection(std::string socketPath, const StatusTiming& timing)
      : timing_(timing), socketPath_(std::move(socketPath)) {}

  struct Attempt {
    bool isConnected = false;
    bool isNew = false;   // the link was made just now
    bool isLost = false;  // the daemon could not be reached, or closed the last link without an answer
  };
  /// Connects if there is no link and an attempt is due. `isAsked` makes an attempt due, because somebody
  /// waits for an answer.
  Attempt connect(bool isAsked, Time now);
  /// Tells that the daemon has answered, so earlier failures no longer count.
  void hasAnswered();
  void leave();

  DaemonLink& link() { return link_; }
  bool isAtEnd() const { return link_.isAtEnd(); }
  /// Whether the last attempt to connect failed.
  bool isAway() const { return isAway_; }
  /// The time at which `connect` is to be called again while the daemon is away.
  Time nextLook(Time now) const;

 private:
  bool hasNewSocket();
  void stayAway(Time now);

  const StatusTiming timing_;
  std::string socketPath_;
  DaemonLink link_;
  // Inode number and change time of the socket that was found last; 0 for none.
  std::pair<ino_t, std::int64_t> triedSocket_;
  bool isAway_ = false;
  Time nextTry_{};
  bool isUntried_ = false;  // the link has not answered anything yet
  unsigned failures_ = 0;   // attempts since the last answer that failed
};

}  // namespace keldane
