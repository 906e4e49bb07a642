#include "platform/objects/CFObjects.h"

#include <gtest/gtest.h>

#include <string_view>
#include <thread>
#include <vector>

namespace keldane {
namespace {

CFStringRef string(std::string_view text) {
  return CFStringCreateWithBytes(kCFAllocatorSystemDefault, text.data(), text.size());
}

CFUUIDRef uuid(std::string_view text) {
  const CFOwner<CFStringRef> owned(string(text));
  return CFUUIDCreateFromString(kCFAllocatorSystemDefault, owned.get());
}

TEST(CFObjects, LiveAsLongAsTheyAreReferredTo) {
  const long before = CFGetLiveObjectCount();
  CFStringRef text = string("abc");
  EXPECT_EQ(CFGetLiveObjectCount(), before + 1);
  EXPECT_EQ(CFRetain(text), text);
  EXPECT_EQ(CFGetRetainCount(text), 2);
  CFRelease(text);
  EXPECT_EQ(CFGetRetainCount(text), 1);
  CFRelease(text);
  EXPECT_EQ(CFGetLiveObjectCount(), before);
}

TEST(CFObjects, NullIsAcceptedEverywhere) {
  EXPECT_EQ(CFRetain(nullptr), nullptr);
  CFRelease(nullptr);
  EXPECT_TRUE(CFEqual(nullptr, nullptr));
  const CFOwner<CFStringRef> text(string("a"));
  EXPECT_FALSE(CFEqual(text.get(), nullptr));
  EXPECT_EQ(CFGetRetainCount(nullptr), 0);
  EXPECT_EQ(CFStringGetUTF8Ptr(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFUUIDCreateFromString(kCFAllocatorSystemDefault, nullptr), nullptr);
  EXPECT_EQ(CFUUIDCreateString(kCFAllocatorSystemDefault, nullptr), nullptr);
  EXPECT_EQ(CFUUIDGetUUIDBytes(nullptr).bytes[0], 0);
}

TEST(CFObjects, AUUIDIsReadFromHexadecimalDigitsInEitherCaseOnly) {
  const CFOwner<CFUUIDRef> id(uuid("09afAF00-0000-0000-0000-000000000000"));
  ASSERT_NE(id.get(), nullptr);
  EXPECT_EQ(CFUUIDGetUUIDBytes(id.get()).bytes[0], 0x09);
  EXPECT_EQ(CFUUIDGetUUIDBytes(id.get()).bytes[1], 0xAF);
  EXPECT_EQ(CFUUIDGetUUIDBytes(id.get()).bytes[2], 0xAF);
  for (const char* digit : {"/", ":", "@", "G", "`", "g", "-", "\x80"}) {
    EXPECT_EQ(uuid(std::string("0") + digit + "000000-0000-0000-0000-000000000000"), nullptr) << digit;
  }
  EXPECT_EQ(uuid("00000000000000000000-0000-000000000000"), nullptr);
}

TEST(CFObjects, AreEqualByKindAndContent) {
  const CFOwner<CFStringRef> a(string("same"));
  const CFOwner<CFStringRef> b(string("same"));
  const CFOwner<CFStringRef> c(string("other"));
  const CFOwner<CFUUIDRef> id(uuid("3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36"));
  EXPECT_TRUE(CFEqual(a.get(), b.get()));
  EXPECT_FALSE(CFEqual(a.get(), c.get()));
  EXPECT_FALSE(CFEqual(a.get(), id.get()));
}

TEST(CFObjects, AStringHasItsTextAndANul) {
  const CFOwner<CFStringRef> text(string("häh"));
  std::size_t length = 0;
  EXPECT_STREQ(CFStringGetUTF8Ptr(text.get(), &length), "häh");
  EXPECT_EQ(length, 4U);
  EXPECT_EQ(string("\xFF"), nullptr) << "no text";
}

TEST(CFObjects, AUUIDGoesThroughTextAndBytes) {
  const CFOwner<CFUUIDRef> id(uuid("3f1c7a52-9b0e-4d6a-b2c4-7e51a9d08f36"));
  ASSERT_TRUE(id);
  const CFUUIDBytes bytes = CFUUIDGetUUIDBytes(id.get());
  EXPECT_EQ(bytes.bytes[0], 0x3F);
  EXPECT_EQ(bytes.bytes[15], 0x36);
  const CFOwner<CFUUIDRef> again(CFUUIDCreateFromUUIDBytes(kCFAllocatorSystemDefault, bytes));
  EXPECT_TRUE(CFEqual(id.get(), again.get()));
  const CFOwner<CFStringRef> text(CFUUIDCreateString(kCFAllocatorSystemDefault, id.get()));
  EXPECT_STREQ(CFStringGetUTF8Ptr(text.get(), nullptr), "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36");
}

TEST(CFObjects, TextOfAnotherFormIsNoUUID) {
  for (const char* text :
       {"", "3F1C7A52", "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F3", "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F3G",
        "3F1C7A5209B0E-4D6A-B2C4-7E51A9D08F36", "{3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36}"}) {
    EXPECT_EQ(uuid(text), nullptr) << text;
  }
}

TEST(CFObjects, AConstantUUIDIsOneObjectForEver) {
  const auto constant = [] {
    return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorSystemDefault, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                                          13, 14, 15, 16);
  };
  const CFUUIDRef first = constant();
  CFRelease(first);
  CFRelease(first);
  EXPECT_EQ(constant(), first);
  EXPECT_EQ(CFUUIDGetUUIDBytes(first).bytes[4], 5);
}

TEST(CFObjects, CountAcrossThreads) {
  const CFOwner<CFStringRef> text(string("shared"));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        CFRelease(CFRetain(text.get()));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(CFGetRetainCount(text.get()), 1);
}

}  // namespace
}  // namespace keldane
