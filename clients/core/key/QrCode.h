// Text as a code that a camera reads.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace keldane {

/// A square of dark and light modules.
class QrCode {
 public:
  /// The number of light modules that belong around the code.
  static constexpr std::size_t kMargin = 4;

  /// Throws std::runtime_error for a text that is empty or has more than about 2,300 bytes.
  explicit QrCode(const std::string& text);

  /// The number of modules of a side, without the margin.
  std::size_t size() const { return size_; }
  /// Whether a module is dark; modules outside the code are light.
  bool isDark(std::size_t column, std::size_t row) const;
  /// The code with its margin, one string for each line. With `blocks`, a line of block characters shows two
  /// rows; otherwise a line shows one row, with "##" for each dark module.
  std::vector<std::string> lines(bool blocks) const;

 private:
  std::size_t size_ = 0;
  std::vector<bool> dark_;
};

}  // namespace keldane
