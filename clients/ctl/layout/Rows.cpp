#include "clients/ctl/layout/Rows.h"

#include <algorithm>
#include <iostream>

#include "clients/ctl/layout/Text.h"

namespace keldane {

void Rows::insert(std::size_t place, const std::string& label, const std::string& value) {
  columns_ = std::max(columns_, columnsOf(label) + 1);
  rows_.emplace(rows_.begin() + static_cast<std::ptrdiff_t>(std::min(place, rows_.size())), label, value);
}

void Rows::print(const Terminal& terminal) const {
  for (const auto& [label, value] : rows_) {
    std::cout << terminal.bold(padded(label, columns_)) << value << '\n';
  }
}

}  // namespace keldane
