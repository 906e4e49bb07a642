// The log lines that are written while it lives.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "platform/syslog/SystemLog.h"

namespace keldane::testing {

class LogCapture {
 public:
  LogCapture() {
    setLogReceiver([this](std::string_view line) {
      const std::lock_guard guard(mutex_);
      lines_.emplace_back(line);
    });
  }
  ~LogCapture() { setLogReceiver({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const {
    const std::lock_guard guard(mutex_);
    return lines_;
  }
  std::size_t count(const std::string& line) const {
    const std::vector<std::string> all = lines();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
  }
  bool has(const std::string& line) const { return count(line) > 0; }
  bool hasPart(const std::string& part) const {
    const std::vector<std::string> all = lines();
    return std::any_of(all.begin(), all.end(),
                       [&](const std::string& line) { return line.find(part) != std::string::npos; });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace keldane::testing
