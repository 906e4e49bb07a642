#include "clients/core/BackupProgress.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace keldane {

namespace {

constexpr auto kWindow = std::chrono::seconds(30);
constexpr double kLongestTime = 1e9;  // seconds: a longer time than thirty years is not shown

}  // namespace

void BackupProgress::update(std::uint64_t files, std::uint64_t bytes, Clock::time_point now) {
  if (pending_.files == 0) {
    done_ = {};
    samples_.clear();
  } else {
    done_.files += pending_.files > files ? pending_.files - files : 0;
    const std::uint64_t more = pending_.bytes > bytes ? pending_.bytes - bytes : 0;
    done_.bytes += std::min(more, std::numeric_limits<std::uint64_t>::max() - done_.bytes);
  }
  pending_ = {files, bytes};
  samples_.push_back({now, done_});
  while (samples_.size() > 2 && now - samples_[1].time > kWindow) {
    samples_.pop_front();
  }
}

double BackupProgress::fraction() const {
  if (pending_.files == 0) {
    return 1;
  }
  const bool byBytes = pending_.bytes > 0;
  const auto done = static_cast<double>(byBytes ? done_.bytes : done_.files);
  return done / (done + static_cast<double>(byBytes ? pending_.bytes : pending_.files));
}

double BackupProgress::perSecond(std::uint64_t Amount::*part) const {
  if (samples_.size() < 2) {
    return 0;
  }
  const std::chrono::duration<double> time = samples_.back().time - samples_.front().time;
  const auto amount = static_cast<double>(samples_.back().done.*part - samples_.front().done.*part);
  return time.count() > 0 ? amount / time.count() : 0;
}

std::optional<std::chrono::seconds> BackupProgress::timeLeft() const {
  if (pending_.files == 0) {
    return std::chrono::seconds(0);
  }
  const bool byBytes = pending_.bytes > 0 && bytesPerSecond() > 0;
  const double rate = byBytes ? bytesPerSecond() : filesPerSecond();
  const double seconds = static_cast<double>(byBytes ? pending_.bytes : pending_.files) / rate;
  return rate > 0 && seconds < kLongestTime
             ? std::optional(std::chrono::seconds(std::llround(std::ceil(seconds))))
             : std::nullopt;
}

}  // namespace keldane
