// Sums of sizes. A sparse file can claim 8 EiB, so a user with three of them could make any plain sum wrap.
#pragma once

#include <cstdint>
#include <limits>

namespace keldane {

/// The sum, or the largest number where that is too small for it.
inline std::uint64_t saturatedSum(std::uint64_t one, std::uint64_t other) {
  std::uint64_t sum = 0;
  return __builtin_add_overflow(one, other, &sum) ? std::numeric_limits<std::uint64_t>::max() : sum;
}

/// Adds sizes up and takes them away again without ever losing count: only what it answers is bounded.
class ByteSum {
 public:
  void add(std::uint64_t bytes) { high_ += __builtin_add_overflow(low_, bytes, &low_) ? 1 : 0; }
  void add(const ByteSum& other) {
    add(other.low_);
    high_ += other.high_;
  }
  /// Takes away what was added before.
  void take(std::uint64_t bytes) { high_ -= __builtin_sub_overflow(low_, bytes, &low_) ? 1 : 0; }
  void take(const ByteSum& other) {
    take(other.low_);
    high_ -= other.high_;
  }
  /// The sum, or the largest number where that is too small for it.
  std::uint64_t value() const { return high_ == 0 ? low_ : std::numeric_limits<std::uint64_t>::max(); }

 private:
  std::uint64_t low_ = 0, high_ = 0;
};

}  // namespace keldane
