#include "daemon/scan/waiting/Delays.h"

namespace keldane {

namespace {

constexpr std::chrono::hours kRetry(1);

}  // namespace

void Delays::add(const std::string& path, const FileState& state) {
  const ScopedLock guard(mutex_);
  delays_[path] = {state, std::chrono::steady_clock::now() + kRetry};
  isEmpty_ = false;
}

bool Delays::holds(const std::string& path, const FileState& state) {
  const ScopedLock guard(mutex_);
  const auto delay = delays_.find(path);
  if (delay == delays_.end()) {
    return false;
  }
  if (delay->second.state == state && std::chrono::steady_clock::now() < delay->second.until) {
    return true;
  }
  delays_.erase(delay);
  return false;
}

std::vector<std::string> Delays::due() const {
  std::vector<std::string> due;
  const auto now = std::chrono::steady_clock::now();
  const ScopedLock guard(mutex_);
  for (const auto& [path, delay] : delays_) {
    if (now >= delay.until) {
      due.push_back(path);
    }
  }
  return due;
}

void Delays::clear() {
  const ScopedLock guard(mutex_);
  delays_.clear();
  isEmpty_ = true;
}

}  // namespace keldane
