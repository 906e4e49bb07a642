// Prints values in the messages and the names of tests.
#pragma once

#include <ostream>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

inline void PrintTo(const PropertyList& value, std::ostream* out) { *out << value.description(); }

namespace testing {

/// A value for a parameterised test, with its label in the test's name.
template <class Value>
struct Labelled {
  const char* label;
  Value value;
};

template <class Value>
void PrintTo(const Labelled<Value>& row, std::ostream* out) {
  *out << row.label;
}

/// Names the tests of INSTANTIATE_TEST_SUITE_P.
inline constexpr auto byLabel = [](const auto& row) { return std::string(row.param.label); };

}  // namespace testing
}  // namespace keldane
