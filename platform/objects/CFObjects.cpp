#include "platform/objects/CFObjects.h"

#include <atomic>
#include <cstring>
#include <map>
#include <new>
#include <string>

#include "platform/text/Unicode.h"
#include "platform/threads/Mutex.h"

namespace {

enum class Type : std::uint8_t { allocator, string, uuid };

std::atomic<long> liveObjects = 0;

struct Object {
  explicit Object(Type objectType, bool isImmortal = false) : type(objectType), immortal(isImmortal) {
    if (!immortal) {
      liveObjects.fetch_add(1, std::memory_order_relaxed);
    }
  }
  ~Object() {
    if (!immortal) {
      liveObjects.fetch_sub(1, std::memory_order_relaxed);
    }
  }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  const Type type;
  const bool immortal;
  mutable std::atomic<long> references = 1;
};

}  // namespace

struct __CFAllocator : Object {
  __CFAllocator() : Object(Type::allocator, true) {}
};

struct __CFString : Object {
  explicit __CFString(std::string content) : Object(Type::string), text(std::move(content)) {}
  const std::string text;
};

struct __CFUUID : Object {
  explicit __CFUUID(const CFUUIDBytes& content, bool isImmortal = false)
      : Object(Type::uuid, isImmortal), bytes(content) {}
  const CFUUIDBytes bytes;
};

namespace {

const __CFAllocator systemAllocator;

const Object* objectOf(CFTypeRef reference) { return static_cast<const Object*>(reference); }

/// Runs a function of the C interface, which may throw nothing. The result is null when there is no memory.
template <class Make>
auto orNull(const Make& make) noexcept -> decltype(make()) {
  try {
    return make();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool parseUUID(const std::string& text, CFUUIDBytes& bytes) {
  static constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  if (text.size() != kForm.size()) {
    return false;
  }
  std::size_t digits = 0;
  std::memset(&bytes, 0, sizeof(bytes));
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (kForm[i] == '-') {
      if (c != '-') {
        return false;
      }
      continue;
    }
    const int digit = c >= '0' && c <= '9'   ? c - '0'
                      : c >= 'A' && c <= 'F' ? c - 'A' + 10
                      : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                             : -1;
    if (digit < 0) {
      return false;
    }
    std::uint8_t& byte = bytes.bytes[digits / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | digit);
    ++digits;
  }
  return true;
}

}  // namespace

extern "C" {

const CFAllocatorRef kCFAllocatorSystemDefault = &systemAllocator;

CFTypeRef CFRetain(CFTypeRef object) {
  if (object != nullptr) {
    objectOf(object)->references.fetch_add(1, std::memory_order_relaxed);
  }
  return object;
}

void CFRelease(CFTypeRef object) {
  if (object == nullptr || objectOf(object)->immortal ||
      objectOf(object)->references.fetch_sub(1, std::memory_order_acq_rel) != 1) {
    return;
  }
  if (objectOf(object)->type == Type::string) {
    delete static_cast<CFStringRef>(object);
  } else {
    delete static_cast<CFUUIDRef>(object);
  }
}

bool CFEqual(CFTypeRef a, CFTypeRef b) {
  if (a == b) {
    return true;
  }
  if (a == nullptr || b == nullptr || objectOf(a)->type != objectOf(b)->type) {
    return false;
  }
  switch (objectOf(a)->type) {
    case Type::string:
      return static_cast<CFStringRef>(a)->text == static_cast<CFStringRef>(b)->text;
    case Type::uuid:
      return std::memcmp(&static_cast<CFUUIDRef>(a)->bytes, &static_cast<CFUUIDRef>(b)->bytes,
                         sizeof(CFUUIDBytes)) == 0;
    case Type::allocator:
      break;
  }
  return false;
}

long CFGetRetainCount(CFTypeRef object) {
  return object == nullptr ? 0 : objectOf(object)->references.load();
}

long CFGetLiveObjectCount(void) { return liveObjects.load(); }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef /*allocator*/, const char* utf8, std::size_t length) {
  if (utf8 == nullptr || !keldane::isValidUtf8({utf8, length})) {
    return nullptr;
  }
  return orNull([&]() -> CFStringRef { return new __CFString(std::string(utf8, length)); });
}

const char* CFStringGetUTF8Ptr(CFStringRef string, std::size_t* length) {
  if (length != nullptr) {
    *length = string == nullptr ? 0 : string->text.size();
  }
  return string == nullptr ? nullptr : string->text.c_str();
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef string) {
  CFUUIDBytes bytes;
  return string != nullptr && parseUUID(string->text, bytes) ? CFUUIDCreateFromUUIDBytes(allocator, bytes)
                                                             : nullptr;
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef /*allocator*/, CFUUIDBytes bytes) {
  return orNull([&]() -> CFUUIDRef { return new __CFUUID(bytes); });
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef /*allocator*/, std::uint8_t b0, std::uint8_t b1,
                                         std::uint8_t b2, std::uint8_t b3, std::uint8_t b4, std::uint8_t b5,
                                         std::uint8_t b6, std::uint8_t b7, std::uint8_t b8, std::uint8_t b9,
                                         std::uint8_t b10, std::uint8_t b11, std::uint8_t b12,
                                         std::uint8_t b13, std::uint8_t b14, std::uint8_t b15) {
  const CFUUIDBytes bytes = {{b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15}};
  return orNull([&] {
    static keldane::Mutex& mutex = *new keldane::Mutex({.name = "CFUUID constants", .innermost = true});
    static std::map<std::string, CFUUIDRef>& constants = *new std::map<std::string, CFUUIDRef>;
    const keldane::ScopedLock guard(mutex);
    CFUUIDRef& constant =
        constants[std::string(reinterpret_cast<const char*>(bytes.bytes), sizeof(bytes.bytes))];
    if (constant == nullptr) {
      constant = new __CFUUID(bytes, true);
    }
    return constant;
  });
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) { return uuid == nullptr ? CFUUIDBytes{} : uuid->bytes; }

CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid) {
  if (uuid == nullptr) {
    return nullptr;
  }
  static constexpr char kDigits[] = "0123456789ABCDEF";
  char text[36];
  std::size_t length = 0;
  for (std::size_t i = 0; i < sizeof(uuid->bytes.bytes); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text[length++] = '-';
    }
    text[length++] = kDigits[uuid->bytes.bytes[i] >> 4];
    text[length++] = kDigits[uuid->bytes.bytes[i] & 0x0F];
  }
  return CFStringCreateWithBytes(allocator, text, length);
}
}
