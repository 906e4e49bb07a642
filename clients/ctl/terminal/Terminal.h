// Standard output: a terminal with a width and colours, or a file or pipe without them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace keldane {

/// Columns of a progress bar on the widest terminal.
constexpr std::size_t kWidestBar = 40;

enum class Color : std::uint8_t { plain, red, green, yellow, blue, gray };

/// Writes to standard output. Used on one thread.
class Terminal {
 public:
  /// There are colours only on a terminal that has them, and never when NO_COLOR is set and not empty.
  Terminal();

  bool isTerminal() const { return isTerminal_; }
  /// The present number of columns; 80 for anything that is no terminal.
  int width() const;
  std::string colored(Color color, const std::string& text) const;
  std::string bold(const std::string& text) const;
  /// Goes to the start of the line and clears it; starts a new line on a terminal that cannot do that.
  std::string restartLine() const;
  /// Whether box-drawing characters can be shown: the locale's character set is UTF-8.
  static bool hasBoxes();

 private:
  bool isTerminal_;
  bool hasColors_ = false;
  std::string clearToEnd_, boldOn_, attributesOff_;
  std::string colorOn_[6];
};

}  // namespace keldane
