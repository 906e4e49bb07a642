// Collects the log lines of its lifetime. A thread may still be writing a line when it ends.
#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/syslog/SystemLog.h"

namespace keldane::testing {

class LogCapture {
 public:
  LogCapture() {
    setLogReceiver([written = written_](std::string_view line) {
      const std::lock_guard guard(written->mutex);
      written->lines.emplace_back(line);
    });
  }
  ~LogCapture() { setLogReceiver({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const {
    const std::lock_guard guard(written_->mutex);
    return written_->lines;
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
  struct Written {
    std::mutex mutex;
    std::vector<std::string> lines;
  };
  const std::shared_ptr<Written> written_ = std::make_shared<Written>();
};

}  // namespace keldane::testing
