// Labels with values beside them.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "clients/ctl/terminal/Terminal.h"

namespace keldane {

/// Rows whose values stand in one column, far enough to the right for the longest label in any language. Used
/// on one thread.
class Rows {
 public:
  /// `least` is the smallest number of columns for the labels.
  explicit Rows(std::size_t least) : columns_(least) {}

  void add(const std::string& label, const std::string& value) { insert(rows_.size(), label, value); }
  /// Inserts a row at this place among the rows.
  void insert(std::size_t place, const std::string& label, const std::string& value);
  std::size_t count() const { return rows_.size(); }
  /// The columns that the labels of all rows so far take, with the gap behind them.
  std::size_t labelColumns() const { return columns_; }
  /// Prints to standard output, with bold labels if the terminal has them.
  void print(const Terminal& terminal) const;

 private:
  std::vector<std::pair<std::string, std::string>> rows_;
  std::size_t columns_;
};

}  // namespace keldane
