// Text as a picture that a camera reads.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace keldane {

/// A square of dark and light modules.
class QrCode {
 public:
  /// Modules of white that belong around it.
  static constexpr std::size_t kMargin = 4;

  /// Throws std::runtime_error for a text that is empty or has more than about 2,300 bytes.
  explicit QrCode(const std::string& text);

  /// Modules of a side, without the margin.
  std::size_t size() const { return size_; }
  /// Light outside.
  bool isDark(std::size_t column, std::size_t row) const;
  /// With the margin, a line a string, dark modules as characters: two rows a line with block characters,
  /// else a row a line with two "#" a module.
  std::vector<std::string> lines(bool blocks) const;

 private:
  std::size_t size_ = 0;
  std::vector<bool> dark_;
};

}  // namespace keldane
