// Counts the threads of this process that take a signal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace keldane::testing {

/// The number of threads that have not blocked this signal. A thread that ends meanwhile is left out.
inline std::size_t threadsThatTake(int signal) {
  std::size_t count = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator task("/proc/self/task", error), end; !error && task != end;
       task.increment(error)) {
    std::ifstream status(task->path() / "status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("SigBlk:")) {
        const std::uint64_t blocked = std::stoull(line.substr(7), nullptr, 16);
        count += (blocked >> (signal - 1) & 1U) == 0 ? 1U : 0U;
      }
    }
  }
  return count;
}

}  // namespace keldane::testing
