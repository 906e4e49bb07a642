// The C references that cross the boundary between host and plug-in.
//
// Ownership follows the names. A function with Create or Copy in its name gives its caller one reference,
// which the caller gives back with CFRelease. Any other function returns a reference that it still owns.
// Reference counts are atomic, so any thread may use them. Null is accepted everywhere and yields null, 0 or
// false. Without memory a function returns null; nothing is thrown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

extern "C" {

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFUUID* CFUUIDRef;

struct CFUUIDBytes {
  std::uint8_t bytes[16];
};

/// The system's own allocator, the only one. It is never freed.
extern const CFAllocatorRef kCFAllocatorSystemDefault;

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
/// Whether both have the same kind and the same content. Null equals null only.
bool CFEqual(CFTypeRef a, CFTypeRef b);
/// The number of references that are held now, for leak checks.
long CFGetRetainCount(CFTypeRef object);
/// The number of strings and UUIDs in this process, without the constants, for leak checks.
long CFGetLiveObjectCount(void);

/// Null when the bytes are not UTF-8.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const char* utf8, std::size_t length);
/// The UTF-8 text and its length in bytes; a NUL follows it. Valid while the string lives.
const char* CFStringGetUTF8Ptr(CFStringRef string, std::size_t* length);

/// "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36" in either case; null for any other form.
CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef string);
CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
/// The constant object for these bytes. It is the same at each call, is never freed and must not be released.
CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, std::uint8_t b0, std::uint8_t b1,
                                         std::uint8_t b2, std::uint8_t b3, std::uint8_t b4, std::uint8_t b5,
                                         std::uint8_t b6, std::uint8_t b7, std::uint8_t b8, std::uint8_t b9,
                                         std::uint8_t b10, std::uint8_t b11, std::uint8_t b12,
                                         std::uint8_t b13, std::uint8_t b14, std::uint8_t b15);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);
/// The UUID as text, in upper case with hyphens.
CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);
}

namespace keldane {

/// Owns one reference to a C object.
template <class Ref>
class CFOwner {
 public:
  CFOwner() = default;
  explicit CFOwner(Ref adopted) : ref_(adopted) {}
  CFOwner(CFOwner&& other) noexcept : ref_(other.ref_) { other.ref_ = nullptr; }
  CFOwner& operator=(CFOwner&& other) noexcept {
    std::swap(ref_, other.ref_);
    return *this;
  }
  CFOwner(const CFOwner&) = delete;
  CFOwner& operator=(const CFOwner&) = delete;
  ~CFOwner() {
    if (ref_ != nullptr) {
      CFRelease(ref_);
    }
  }
  Ref get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }

 private:
  Ref ref_ = nullptr;
};

}  // namespace keldane
