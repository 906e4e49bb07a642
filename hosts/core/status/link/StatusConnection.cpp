#include "hosts/core/status/link/StatusConnection.h"

#include <sys/stat.h>

#include <algorithm>

namespace keldane {

StatusConnection::Attempt StatusConnection::connect(bool isAsked, Time now) {
  Attempt attempt;
  if (!link_.isAtEnd()) {
    attempt.isConnected = true;
    return attempt;
  }
  link_.close();
  if (socketPath_.empty()) {
    socketPath_ = installedDaemonPath();
  }
  if (std::exchange(isUntried_, false)) {  // the daemon closed the last link without an answer
    stayAway(now);
    attempt.isLost = true;
  }
  const bool isNewSocket = hasNewSocket();
  if (isNewSocket) {
    failures_ = 0;  // its daemon has just started and may not listen yet
  }
  if (isAway_ && !isAsked && now < nextTry_ && !isNewSocket) {
    return attempt;
  }
  if (!link_.connect(socketPath_)) {
    stayAway(now);
    attempt.isLost = true;
    return attempt;
  }
  isUntried_ = true;
  isAway_ = false;
  attempt.isConnected = attempt.isNew = true;
  return attempt;
}

void StatusConnection::hasAnswered() {
  isUntried_ = false;
  failures_ = 0;
}

void StatusConnection::leave() {
  link_.close();
  isUntried_ = false;
}

StatusConnection::Time StatusConnection::nextLook(Time now) const {
  return std::min(nextTry_, now + timing_.lookAtSocket);
}

void StatusConnection::stayAway(Time now) {
  constexpr unsigned kMostDoublings = 10;
  const StatusTiming::Duration rest = timing_.firstRetry * (1U << std::min(failures_, kMostDoublings));
  ++failures_;
  isAway_ = true;
  nextTry_ = now + std::min(rest, timing_.longestRetry);
}

/// Whether there is a socket, and it is not the one that was found the last time.
bool StatusConnection::hasNewSocket() {
  struct stat status {};
  std::pair<ino_t, std::int64_t> found;
  if (::stat(socketPath_.c_str(), &status) == 0) {
    found = {status.st_ino, status.st_ctim.tv_sec * 1'000'000'000LL + status.st_ctim.tv_nsec};
  }
  return std::exchange(triedSocket_, found) != found && found.first != 0;
}

}  // namespace keldane
