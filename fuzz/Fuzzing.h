// The common parts of the fuzzers: they read an input piece by piece, make values from it, and end a run that
// finds a fault.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/plist/PropertyListSerialization.h"
#include "platform/text/Unicode.h"

namespace keldane::fuzzing {

/// Ends the process when a condition that must always hold does not. The fuzzing engine then keeps the input.
inline void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "This does not hold: %s\n", what);
    std::abort();
  }
}

/// The bytes of one run, read from the front. Afterwards it yields zeros and empty texts.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool isEmpty() const { return rest_.empty(); }
  BytesView rest() const { return rest_; }
  std::string_view restAsText() const { return {reinterpret_cast<const char*>(rest_.data()), rest_.size()}; }

  template <class Number = std::uint8_t>
  Number number() {
    Number value{};
    const BytesView bytes = take(sizeof(value));
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }
  std::size_t below(std::size_t limit) { return number() % limit; }
  BytesView bytes() { return take(number()); }
  std::string_view text() {
    const BytesView taken = bytes();
    return {reinterpret_cast<const char*>(taken.data()), taken.size()};
  }
  /// A property list in which nothing is shared, so that its text is no longer than a small multiple of the
  /// input.
  PropertyList value(int depth = 0) {
    switch (below(depth < 40 ? 10 : 8)) {
      case 0:
        return number() % 2 == 0;
      case 1:
        return number<std::int8_t>();
      case 2:
        return number<std::int64_t>();
      case 3:
        return number<std::uint64_t>();
      case 4:
        return finite();
      case 5:
        return Date{finite()};
      case 6:
        return PropertyList::data(bytes());
      case 7:
        return validUtf8(text());
      case 8: {
        PropertyList::Array elements;
        for (std::size_t count = below(32); count > 0 && !isEmpty(); --count) {
          elements.push_back(value(depth + 1));
        }
        return PropertyList::array(std::move(elements));
      }
      default: {
        PropertyList::Entries entries;
        for (std::size_t count = below(32); count > 0 && !isEmpty(); --count) {
          PropertyList key = validUtf8(text());
          entries.emplace_back(std::move(key), value(depth + 1));
        }
        return PropertyList::dictionary(std::move(entries));
      }
    }
  }

 private:
  BytesView take(std::size_t count) {
    const BytesView taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  /// A number that is no NaN, because a NaN is not equal to itself and would spoil comparisons.
  double finite() {
    const auto value = number<double>();
    return std::isnan(value) ? 0 : value;
  }

  BytesView rest_;
};

}  // namespace keldane::fuzzing
