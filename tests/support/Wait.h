// Waits for the effects of other threads.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "platform/runloop/RunLoop.h"

namespace keldane::testing {

inline constexpr auto kGenerous = std::chrono::seconds(20);

/// Whether the condition came true, within a generous time.
inline bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kGenerous;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// The same for conditions that need the main run loop to come true.
inline bool eventuallyRunning(const std::function<bool()>& condition) {
  return eventually([&] {
    RunLoop::main().runDue();
    return condition();
  });
}

/// The number of entries in a folder of a process in /proc, such as threads or descriptors.
inline std::ptrdiff_t countOf(const char* what, const std::string& process = "self") {
  return std::distance(std::filesystem::directory_iterator(std::filesystem::path("/proc") / process / what),
                       std::filesystem::directory_iterator());
}

/// The number of threads that stay when those that are ending have ended: the least within a tenth of a
/// second.
inline std::ptrdiff_t settledThreadCount(const std::string& process = "self") {
  std::ptrdiff_t fewest = countOf("task", process);
  for (int i = 0; i < 20; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    fewest = std::min(fewest, countOf("task", process));
  }
  return fewest;
}

/// Whether a thread of this process is blocked.
inline bool isAsleep(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(status), {}};
  const std::size_t name = text.rfind(") ");
  return name != std::string::npos && text.compare(name + 2, 1, "S") == 0;
}

}  // namespace keldane::testing
