// Random numbers that a seed determines.
#pragma once

#include <cstdint>
#include <random>
#include <thread>

namespace keldane::testing {

class Random {
 public:
  explicit Random(std::size_t seed) : generator_(static_cast<std::mt19937::result_type>(seed)) {}
  std::uint32_t below(std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(generator_);
  }
  /// Now and then lets other threads go first.
  void dawdle() {
    for (std::uint32_t i = below(4) == 0 ? below(10) : 0; i > 0; --i) {
      std::this_thread::yield();
    }
  }

 private:
  std::mt19937 generator_;
};

}  // namespace keldane::testing
