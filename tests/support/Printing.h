// How values of tests show in the messages and names of tests.
#pragma once

#include <ostream>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

inline void PrintTo(const PropertyList& value, std::ostream* out) { *out << value.description(); }

namespace testing {

/// A value for a test that runs once for each of several, with the word that stands for it in the test's
/// name.
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
