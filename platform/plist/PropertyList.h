// The property list: the one type of values that are read, sent, stored and described.
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

/// A point in time: seconds since 2001-01-01 00:00:00 UTC, which is where the platform's calendar starts.
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
/// Immutable and reference counted: copying costs one increment, and a value may be read and dropped on any
/// thread. The default value is *absent*, the null object of the system: every question asked of it answers
/// absent, false, zero or empty. Values that are large or deeply nested are freed without recursion.
///
/// Pointers, views and spans that an accessor returns stay valid while any copy of the value they came from
/// lives, or of a container that holds it.
class PropertyList {
 public:
  enum class Kind : std::uint8_t { absent, string, number, date, data, array, dictionary };
  /// A number remembers what it was made from.
  enum class NumberKind : std::uint8_t { boolean, signedInteger, unsignedInteger, real };

  using Array = std::vector<PropertyList>;
  /// Key and value. A dictionary keeps the order of its entries. Of two entries with the same key the first
  /// is kept; an entry with an absent value is left out.
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
  /// Only for numbers; `boolean` for anything else.
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

  /// The number's own conversions, which never fail: an integer that does not fit is reduced modulo the
  /// width, a real is truncated and saturates (NaN gives 0). A string is parsed as decimal text by the five
  /// conversions that platform strings have (int, long long, float, double, bool); for anything else 0.
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

  /// Number of elements or entries; 0 for anything but a container.
  std::size_t count() const noexcept;
  /// Element of an array by position; absent when there is none or this is no array.
  PropertyList operator[](std::size_t index) const noexcept;
  template <std::signed_integral Integer>
  PropertyList operator[](Integer index) const noexcept {
    return index < 0 ? PropertyList() : (*this)[static_cast<std::size_t>(index)];
  }
  /// Value of a dictionary by key; absent when there is none or this is no dictionary.
  PropertyList operator[](std::string_view key) const noexcept;
  PropertyList operator[](const char* key) const noexcept { return (*this)[std::string_view(key)]; }
  /// Key and value of a dictionary by position, in the order in which they were given.
  Entry entry(std::size_t index) const noexcept;

  /// Equal kind and content. Numbers are equal when their values are, whatever they were made from;
  /// dictionaries when they hold equal values under the same keys, in any order. Absent equals absent.
  bool operator==(const PropertyList& other) const;
  /// Equal, and numbers are of one sort too (boolean, integer or real): what a writer may write once.
  bool identical(const PropertyList& other) const;

  /// The text that %@ prints: strings and numbers as they are, containers in nested braces and parentheses
  /// with strings quoted where they need it, "(null)" for absent.
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
/// time to make, to compare and to write. The names differ from each other. Any thread may use it. An object
/// made without names holds those that a reader finds; only one thread may use that.
class PropertyList::Keys {
 public:
  Keys() = default;
  Keys(std::initializer_list<std::string_view> names);

 private:
  friend class PropertyList;
  friend class PropertyListAccess;
  PropertyList keys_;
};

/// Looks up keys of one dictionary, quickest in the order in which it holds them. Any other value is treated
/// as an empty dictionary. One thread.
class PropertyList::LookUp {
 public:
  explicit LookUp(PropertyList dictionary) : dictionary_(std::move(dictionary)) {}
  PropertyList operator[](std::string_view key) noexcept;

 private:
  const PropertyList dictionary_;
  std::size_t next_ = 0;
};

}  // namespace keldane
