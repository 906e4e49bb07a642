// When the status core connects to the daemon, and when it waits before the next attempt.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "hosts/core/status/StatusTiming.h"
#include "hosts/core/status/link/DaemonLink.h"

namespace keldane {

/// The link to the daemon, which is made again when it has ended. The pauses between attempts that fail grow;
/// a socket that is new at the daemon's path ends a pause at once. One thread, which is never the window's;
/// `isAway` may be read by others while that thread sleeps.
class StatusConnection {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// `socketPath` empty: the first attempt looks up the path that the installed bundle names.
  StatusConnection(std::string socketPath, const StatusTiming& timing)
      : timing_(timing), socketPath_(std::move(socketPath)) {}

  struct Attempt {
    bool isConnected = false;
    bool isNew = false;   // the link was made just now
    bool isLost = false;  // the daemon could not be reached, or turned the last link away
  };
  /// Connects if there is no link and an attempt is due. `isAsked` makes one due, as somebody waits for an
  /// answer.
  Attempt connect(bool isAsked, Time now);
  /// The daemon has answered: what failed before counts no longer.
  void hasAnswered();
  void leave();

  DaemonLink& link() { return link_; }
  bool isAtEnd() const { return link_.isAtEnd(); }
  /// Whether the last attempt to connect failed.
  bool isAway() const { return isAway_; }
  /// While away: when to call `connect` again.
  Time nextLook(Time now) const;

 private:
  bool hasNewSocket();
  void stayAway(Time now);

  const StatusTiming timing_;
  std::string socketPath_;
  DaemonLink link_;
  std::pair<ino_t, std::int64_t>
      triedSocket_;  // the socket of the last attempt that failed: its number and time
  bool isAway_ = false;
  Time nextTry_{};
  bool isUntried_ = false;  // the link has not answered anything yet
  unsigned failures_ = 0;   // to connect, since the last answer
};

}  // namespace keldane
