// A call of a remote method as the proxy sees it: its signature and its raw values.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Common/calls/ValueEncoding.h"

namespace keldane {

/// The selector, the return code and the codes of the arguments (without receiver and selector).
struct MethodSignature {
  std::string_view selector;
  char returnCode = 'v';
  std::string_view argumentCodes;
  bool operator==(const MethodSignature&) const = default;
};

/// One raw value with its own storage, which keeps an object or text alive.
class RawValue {
 public:
  RawValue() = default;

  template <char Code>
  static RawValue of(const RawType<Code>& value) {
    RawValue raw;
    raw.code_ = Code;
    if constexpr (Code == '@') {
      raw.object_ = value;
    } else {
      std::memcpy(raw.storage_, &value, sizeof(value));
    }
    return raw;
  }
  /// The value of `object` as type `type`; throws AssertionFailure for an unknown code.
  static RawValue decoded(const PropertyList& object, const char* type) {
    RawValue raw;
    raw.code_ = type[0];
    if (raw.code_ == '*') {
      raw.object_ = object;  // keeps the text alive
    }
    decodeObject(object, type, raw.buffer());
    return raw;
  }
  PropertyList encoded() const {
    const char type[] = {code_, '\0'};
    return encodeType(type, buffer());
  }

  /// 'v' when there is no value, because the call returns none or was never answered.
  char code() const { return code_; }

  /// The value as the type of `Code`. A request carries the sender's type codes, not the method's, so a value
  /// of another type is converted. A missing value reads as zero or absent.
  template <char Code>
  RawType<Code> as() const {
    if constexpr (Code == '@') {
      return code_ == '@' ? object_ : code_ == 'v' ? PropertyList() : encoded();
    } else if constexpr (Code != 'v') {
      RawType<Code> value{};
      if (code_ == Code) {
        std::memcpy(&value, storage_, sizeof(value));
      } else if (Code != '*' && code_ != 'v') {
        const char type[] = {Code, '\0'};
        decodeObject(encoded(), type, &value);
      }
      return value;
    }
  }

 private:
  void* buffer() { return code_ == '@' ? static_cast<void*>(&object_) : static_cast<void*>(storage_); }
  const void* buffer() const {
    return code_ == '@' ? static_cast<const void*>(&object_) : static_cast<const void*>(storage_);
  }

  char code_ = 'v';
  alignas(8) std::byte storage_[8] = {};
  PropertyList object_;
};

using Arguments = std::vector<RawValue>;

struct Invocation {
  MethodSignature signature;
  Arguments arguments;
  RawValue result;
};

/// An object that performs incoming calls. The proxy asks for signatures on its receive thread, and invokes
/// on the thread that `setCallDelegateOnMainThread` chose.
class InvocationTarget {
 public:
  virtual ~InvocationTarget() = default;
  /// The signature of a method; null for a selector that this object does not implement.
  virtual const MethodSignature* methodSignatureForSelector(std::string_view selector) const = 0;
  virtual void invoke(Invocation& invocation) = 0;
};

/// Makes and performs typed calls from the argument codes of a table's row.
template <char... ArgumentCodes>
struct Codes {
  template <class... Given>
  static constexpr bool accepts = [] {
    if constexpr (sizeof...(Given) == sizeof...(ArgumentCodes)) {
      return (std::convertible_to<Given, RawType<ArgumentCodes>> && ...);
    } else {
      return false;
    }
  }();

  template <char ReturnCode, class Caller, class... Given>
  static RawType<ReturnCode> call(Caller& caller, std::string_view selector, Given&&... given) {
    Arguments arguments;
    arguments.reserve(sizeof...(ArgumentCodes));
    (arguments.push_back(RawValue::of<ArgumentCodes>(static_cast<RawType<ArgumentCodes>>(given))), ...);
    return caller.call(selector, std::move(arguments)).template as<ReturnCode>();
  }

  template <char ReturnCode, class Operation>
  static void perform(Invocation& invocation, Operation&& operation) {
    invocation.arguments.resize(sizeof...(ArgumentCodes));
    performWith<ReturnCode>(invocation, operation,
                            std::index_sequence_for<std::integral_constant<char, ArgumentCodes>...>());
  }

 private:
  template <char ReturnCode, class Operation, std::size_t... Positions>
  static void performWith(Invocation& invocation, Operation& operation, std::index_sequence<Positions...>) {
    if constexpr (ReturnCode == 'v') {
      operation(invocation.arguments[Positions].template as<ArgumentCodes>()...);
    } else {
      invocation.result = RawValue::of<ReturnCode>(
          operation(invocation.arguments[Positions].template as<ArgumentCodes>()...));
    }
  }
};

}  // namespace keldane
