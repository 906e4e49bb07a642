// Sums of sizes. A sparse file can have a size of 8 EiB, so three of them would overflow a plain sum.
#pragma once

#include <cstdint>
#include <limits>

namespace keldane {

/// The sum of two sizes, or the largest number when the sum exceeds it.
inline std::uint64_t saturatedSum(std::uint64_t one, std::uint64_t other) {
  std::uint64_t sum = 0;
  return __builtin_add_overflow(one, other, &sum) ? std::numeric_limits<std::uint64_t>::max() : sum;
}

/// Adds and subtracts sizes exactly, with more bits than one number has. Only `value` is limited to the
/// largest number.
class ByteSum {
 public:
  void add(std::uint64_t bytes) { high_ += __builtin_add_overflow(low_, bytes, &low_) ? 1 : 0; }
  void add(const ByteSum& other) {
    add(other.low_);
    high_ += other.high_;
  }
  /// Subtracts a size that was added before.
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
