// Labels with values beside them.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "clients/ctl/terminal/Terminal.h"

namespace keldane {

/// Rows whose values stand in one column, which is as far right as the longest label of any language needs.
/// One thread.
class Rows {
 public:
  /// `least`: the columns that labels take at least.
  explicit Rows(std::size_t least) : columns_(least) {}

  void add(const std::string& label, const std::string& value) { insert(rows_.size(), label, value); }
  /// At this place among the rows that are there.
  void insert(std::size_t place, const std::string& label, const std::string& value);
  std::size_t count() const { return rows_.size(); }
  /// That the labels of all rows so far take, with the gap behind them.
  std::size_t labelColumns() const { return columns_; }
  /// To standard output, the labels bold where the terminal can.
  void print(const Terminal& terminal) const;

 private:
  std::vector<std::pair<std::string, std::string>> rows_;
  std::size_t columns_;
};

}  // namespace keldane
