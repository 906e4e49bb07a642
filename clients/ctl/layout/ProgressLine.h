// One terminal line that is redrawn many times.
#pragma once

#include <cstddef>
#include <string>

#include "clients/core/BackupProgress.h"
#include "clients/ctl/terminal/Terminal.h"

namespace keldane {

/// Places parts side by side as long as they fit. Used on one thread.
class FittedLine {
 public:
  /// The last column stays free: a character there would begin the next line on some terminals.
  explicit FittedLine(const Terminal& terminal) : left_(static_cast<std::size_t>(terminal.width()) - 1) {}

  /// Adds a part unless it is empty or too wide.
  void add(const std::string& part);
  /// Adds a bar and a percentage.
  void addBar(double fraction);
  /// Adds the end of a path, if there is room for enough of it.
  void addPath(const std::string& path);
  std::size_t columnsLeft() const { return left_; }
  const std::string& text() const { return text_; }

 private:
  std::size_t left_;
  std::string text_;
};

/// "3.1 MiB/s, 20 s left"; empty while nothing moves.
std::string rateText(const BackupProgress& progress);

}  // namespace keldane
