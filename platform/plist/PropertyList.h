// The property list, the type of all values that are read, sent, stored and described.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace keldane {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

/// A point in time, in seconds since 2001-01-01 00:00:00 UTC, where the platform's calendar starts.
struct Date {
  double secondsSinceReference = 0;

  /// Seconds between the UNIX epoch and the platform's.
  static constexpr double kUnixEpochOffset = 978307200;
  static Date fromUnixTime(double seconds) { return {seconds - kUnixEpochOffset}; }
  double unixTime() const { return secondsSinceReference + kUnixEpochOffset; }
  bool operator==(const Date&) const = default;
};

/// A property-list value: string, number, date, data, array or dictionary, or absent.
///
/// Values are immutable and reference counted. Copying costs one increment, and a value may be read and
/// dropped on any thread. The default value is *absent*, the null object of the system. All its accessors
/// yield absent, false, zero or empty. Values that are large or deeply nested are freed without recursion.
///
/// Pointers, views and spans that an accessor returns stay valid while a copy of the value, or of a container
/// that holds it, lives.
class PropertyList {
 public:
  enum class Kind : std::uint8_t { absent, string, number, date, data, array, dictionary };
  /// A number remembers the kind of value that it was made from.
  enum class NumberKind : std::uint8_t { boolean, signedInteger, unsignedInteger, real };

  using Array = std::vector<PropertyList>;
  /// A key and its value. A dictionary keeps the order of its entries. Of two entries with the same key, only
  /// the first is kept. An entry with an absent value is left out.
  using Entry = std::pair<PropertyList, PropertyList>;
  using Entries = std::vector<Entry>;
  class Keys;
  class LookUp;

  PropertyList() noexcept = default;
  PropertyList(std::nullptr_t) noexcept {}
  PropertyList(const PropertyList& other) noexcept : bits_(other.bits_) {
    if (isCounted()) {
      retain();
    }
  }
  PropertyList(PropertyList&& other) noexcept : bits_(std::exchange(other.bits_, 0)) {}
  PropertyList& operator=(const PropertyList& other) noexcept {
    PropertyList copy(other);
    std::swap(bits_, copy.bits_);
    return *this;
  }
  PropertyList& operator=(PropertyList&& other) noexcept {
    PropertyList moved(std::move(other));
    std::swap(bits_, moved.bits_);
    return *this;
  }
  ~PropertyList() {
    if (isCounted()) {
      release();
    }
  }

  /// UTF-8 text. Bytes that are not UTF-8 are kept as they are; the writers replace them by U+FFFD.
  PropertyList(std::string_view text);
  PropertyList(const std::string& text) : PropertyList(std::string_view(text)) {}
  PropertyList(const char* text) : PropertyList(std::string_view(text)) {}
  template <std::same_as<bool> Boolean>
  PropertyList(Boolean value) : PropertyList(boolean(value)) {}
  template <std::signed_integral Integer>
  PropertyList(Integer value) : PropertyList(integer(value)) {}
  template <std::unsigned_integral Integer>
  requires(!std::same_as<Integer, bool>) PropertyList(Integer value) : PropertyList(unsignedInteger(value)) {}
  template <std::floating_point Real>
  PropertyList(Real value) : PropertyList(real(static_cast<double>(value))) {}
  PropertyList(Date date);

  static PropertyList boolean(bool value);
  static PropertyList integer(std::int64_t value);
  static PropertyList unsignedInteger(std::uint64_t value);
  static PropertyList real(double value);
  static PropertyList data(BytesView bytes);
  static PropertyList array(Array elements);
  static PropertyList dictionary(Entries entries);
  /// A dictionary made from keys that many dictionaries share and one value for each key.
  static PropertyList dictionary(const Keys& keys, std::initializer_list<PropertyList> values);

  Kind kind() const noexcept;
  /// The kind of a number; `boolean` for any other value.
  NumberKind numberKind() const noexcept;
  bool isAbsent() const noexcept { return bits_ == 0; }
  bool isString() const noexcept { return kind() == Kind::string; }
  bool isNumber() const noexcept { return kind() == Kind::number; }
  bool isDate() const noexcept { return kind() == Kind::date; }
  bool isData() const noexcept { return kind() == Kind::data; }
  bool isArray() const noexcept { return kind() == Kind::array; }
  bool isDictionary() const noexcept { return kind() == Kind::dictionary; }
  explicit operator bool() const noexcept { return !isAbsent(); }

  /// The UTF-8 text, which a NUL follows in memory; empty for anything but a string.
  std::string_view string() const noexcept;
  /// The bytes; empty for anything but data.
  BytesView data() const noexcept;
  /// The date; the reference date for anything but a date.
  Date date() const noexcept;

  /// The conversions of numbers never fail. An integer that does not fit is reduced modulo the width. A real
  /// is truncated and saturates; NaN gives 0. A string is parsed as decimal text by the five conversions that
  /// platform strings have (int, long long, float, double, bool). Any other value gives 0.
  signed char charValue() const noexcept;
  unsigned char unsignedCharValue() const noexcept;
  short shortValue() const noexcept;
  unsigned short unsignedShortValue() const noexcept;
  std::int32_t intValue() const noexcept;
  std::uint32_t unsignedIntValue() const noexcept;
  long longValue() const noexcept;
  unsigned long unsignedLongValue() const noexcept;
  std::int64_t longLongValue() const noexcept;
  std::uint64_t unsignedLongLongValue() const noexcept;
  float floatValue() const noexcept;
  double doubleValue() const noexcept;
  bool boolValue() const noexcept;

  /// The number of elements or entries; 0 for anything but a container.
  std::size_t count() const noexcept;
  /// The element of an array at a position; absent when there is none or this is no array.
  PropertyList operator[](std::size_t index) const noexcept;
  template <std::signed_integral Integer>
  PropertyList operator[](Integer index) const noexcept {
    return index < 0 ? PropertyList() : (*this)[static_cast<std::size_t>(index)];
  }
  /// The value of a dictionary for a key; absent when there is none or this is no dictionary.
  PropertyList operator[](std::string_view key) const noexcept;
  PropertyList operator[](const char* key) const noexcept { return (*this)[std::string_view(key)]; }
  /// The key and value of a dictionary at a position, in the order in which they were given.
  Entry entry(std::size_t index) const noexcept;

  /// Whether kind and content are equal. Numbers are equal when their values are, whatever they were made
  /// from. Dictionaries are equal when they hold equal values under the same keys, in any order. Absent
  /// equals absent.
  bool operator==(const PropertyList& other) const;
  /// Whether the values are equal and their numbers are of the same sort too (boolean, integer or real). A
  /// writer may write such values once.
  bool identical(const PropertyList& other) const;

  /// The text that %@ prints. Strings and numbers are printed plainly. Containers are printed in nested
  /// braces and parentheses, with strings quoted where necessary. Absent is "(null)".
  std::string description() const;

 private:
  friend class PropertyListAccess;
  /// Whether the value has a reference count. Most handles that are destroyed have none, because they were
  /// moved from or hold a small number.
  bool isCounted() const noexcept { return bits_ != 0 && (bits_ & 1) == 0; }
  void retain() const noexcept;
  void release() noexcept;
  std::int64_t integerBits() const noexcept;
  template <class Integer>
  Integer integerAs() const noexcept;

  std::uintptr_t bits_ = 0;
};

/// The keys of many dictionaries, made once. Dictionaries that share their keys take less memory, and less
/// time to make, to compare and to write. No two names may be equal. Any thread may use the object. An object
/// made without names receives the keys that a reader finds; only one thread may use such an object.
class PropertyList::Keys {
 public:
  Keys() = default;
  Keys(std::initializer_list<std::string_view> names);

 private:
  friend class PropertyList;
  friend class PropertyListAccess;
  PropertyList keys_;
};

/// Looks up keys of one dictionary. This is quickest in the order in which the dictionary holds them. Any
/// other value is treated as an empty dictionary. Used on one thread only.
class PropertyList::LookUp {
 public:
  explicit LookUp(PropertyList dictionary) : dictionary_(std::move(dictionary)) {}
  PropertyList operator[](std::string_view key) noexcept;

 private:
  const PropertyList dictionary_;
  std::size_t next_ = 0;
};

}  // namespace keldane
