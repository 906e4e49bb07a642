#include "platform/events/AppleEvents.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/objects/CFObjects.h"

namespace keldane {
namespace {

struct Desc {
  ~Desc() { AEDisposeDesc(&desc); }
  AEDesc* operator&() { return &desc; }
  AEDesc desc{typeNull, nullptr};
};

std::string dataOf(const AEDesc& desc) {
  std::string data(AEGetDescDataSize(&desc), '\0');
  AEGetDescData(&desc, data.data(), data.size());
  return data;
}

CFStringRef string(const char* text) {
  return CFStringCreateWithBytes(kCFAllocatorSystemDefault, text, std::strlen(text));
}

TEST(AppleEvents, ADescriptorHoldsItsBytes) {
  Desc desc;
  ASSERT_EQ(AECreateDesc(typeUTF8Text, "abc", 3, &desc), kNoErr);
  EXPECT_EQ(desc.desc.descriptorType, typeUTF8Text);
  EXPECT_EQ(dataOf(desc.desc), "abc");
  char two[3] = {};
  EXPECT_EQ(AEGetDescData(&desc, two, 2), kNoErr);
  EXPECT_STREQ(two, "ab");
  EXPECT_EQ(AEDisposeDesc(&desc), kNoErr);
  EXPECT_EQ(desc.desc.descriptorType, typeNull);
  EXPECT_EQ(AEDisposeDesc(&desc), kNoErr) << "a null descriptor is fine";
}

TEST(AppleEvents, NullPointersAreErrors) {
  Desc desc;
  std::int32_t count = 7;
  EXPECT_EQ(AECreateDesc(typeUTF8Text, nullptr, 3, &desc), kParamErr);
  EXPECT_EQ(AECreateDesc(typeUTF8Text, "a", 1, nullptr), kParamErr);
  EXPECT_EQ(AEDisposeDesc(nullptr), kParamErr);
  EXPECT_EQ(AECoerceDesc(nullptr, typeUTF8Text, &desc), kParamErr);
  EXPECT_EQ(AECountItems(nullptr, &count), kParamErr);
  EXPECT_EQ(AECreateList(nullptr, 0, false, nullptr), kParamErr);
  EXPECT_EQ(AECreateList("x", 1, false, &desc), kParamErr);
  EXPECT_EQ(AEPutDesc(nullptr, 0, &desc), kParamErr);
  EXPECT_EQ(AEPutParamPtr(nullptr, 1, typeUTF8Text, "a", 1), kParamErr);
  EXPECT_EQ(AEGetNthDesc(nullptr, 1, typeWildCard, nullptr, &desc), kParamErr);
  EXPECT_EQ(AEDuplicateDesc(nullptr, &desc), kParamErr);
  EXPECT_EQ(AEGetDescDataSize(nullptr), 0U);
  EXPECT_EQ(AEGetDescData(nullptr, &count, sizeof(count)), kParamErr);
  EXPECT_EQ(count, 7);
}

TEST(AppleEvents, NullPointersAreErrorsBesideAContainerToo) {
  Desc list, record;
  ASSERT_EQ(AECreateList(nullptr, 0, false, &list), kNoErr);
  ASSERT_EQ(AECreateList(nullptr, 0, true, &record), kNoErr);
  ASSERT_EQ(AEPutParamPtr(&record, 1, typeUTF8Text, "a", 1), kNoErr);
  EXPECT_EQ(AEPutDesc(&list, 0, nullptr), kParamErr);
  EXPECT_EQ(AEPutParamDesc(&record, 1, nullptr), kParamErr);
  EXPECT_EQ(AEGetParamDesc(&record, 1, typeWildCard, nullptr), kParamErr);
  EXPECT_EQ(AEGetParamPtr(&record, 1, typeWildCard, nullptr, nullptr, 1, nullptr), kParamErr);
  EXPECT_EQ(AEGetDescData(&list, nullptr, 1), kParamErr);
  EXPECT_EQ(AESizeOfNthItem(&list, 1, nullptr, nullptr), errAEDescNotFound);
}

TEST(AppleEvents, AFailureLeavesANullDescriptorWhateverTheResultHeld) {
  Desc list, record, text;
  ASSERT_EQ(AECreateList(nullptr, 0, false, &list), kNoErr);
  ASSERT_EQ(AECreateList(nullptr, 0, true, &record), kNoErr);
  ASSERT_EQ(AECreateDesc(typeUTF8Text, "a", 1, &text), kNoErr);
  const std::function<OSErr(AEDesc*)> failures[] = {
      [](AEDesc* result) { return AECreateDesc(typeUTF8Text, nullptr, 3, result); },
      [](AEDesc* result) { return AECreateList("x", 1, false, result); },
      [&](AEDesc* result) { return AECoerceDesc(&text, typeAEList, result); },
      [&](AEDesc* result) { return AEGetNthDesc(&list, 1, typeWildCard, nullptr, result); },
      [&](AEDesc* result) { return AEGetParamDesc(&record, 1, typeWildCard, result); },
  };
  for (const auto& fails : failures) {
    AEDesc result = {typeChar, nullptr};  // a host may pass an uncleared descriptor
    EXPECT_NE(fails(&result), kNoErr);
    EXPECT_EQ(result.descriptorType, typeNull);
  }
  const AEDesc empty = {typeNull, nullptr};
  AEDesc copy = {typeChar, nullptr};
  EXPECT_EQ(AEDuplicateDesc(&empty, &copy), kNoErr);
  EXPECT_EQ(copy.descriptorType, typeNull);
}

TEST(AppleEvents, DataOfANullDescriptorIsNothing) {
  const AEDesc empty = {typeNull, nullptr};
  char bytes[2] = {'x', 'y'};
  EXPECT_EQ(AEGetDescData(&empty, bytes, 2), kNoErr);
  EXPECT_EQ(AEGetDescDataSize(&empty), 0U);
  EXPECT_EQ(std::string(bytes, 2), "xy");
  EXPECT_EQ(AEGetDescData(&empty, nullptr, 0), kNoErr);
}

TEST(AppleEvents, AListKeepsItsItemsInOrder) {
  Desc list;
  ASSERT_EQ(AECreateList(nullptr, 0, false, &list), kNoErr);
  EXPECT_EQ(AEPutPtr(&list, 0, typeUTF8Text, "a", 1), kNoErr);
  EXPECT_EQ(AEPutPtr(&list, 0, typeUTF8Text, "b", 1), kNoErr);
  EXPECT_EQ(AEPutPtr(&list, 1, typeUTF8Text, "A", 1), kNoErr) << "replaces";
  EXPECT_EQ(AEPutPtr(&list, 3, typeUTF8Text, "c", 1), errAEIllegalIndex);
  EXPECT_EQ(AEPutPtr(&list, -1, typeUTF8Text, "c", 1), errAEIllegalIndex);
  std::int32_t count = 0;
  EXPECT_EQ(AECountItems(&list, &count), kNoErr);
  EXPECT_EQ(count, 2);
  Desc item;
  AEKeyword keyword = 0;
  EXPECT_EQ(AEGetNthDesc(&list, 1, typeWildCard, &keyword, &item), kNoErr);
  EXPECT_EQ(dataOf(item.desc), "A");
  EXPECT_EQ(keyword, typeWildCard);
  Desc none;
  EXPECT_EQ(AEGetNthDesc(&list, 3, typeWildCard, nullptr, &none), errAEDescNotFound);
  EXPECT_EQ(AEGetNthDesc(&list, 0, typeWildCard, nullptr, &none), errAEDescNotFound);
  DescType type = 0;
  std::size_t size = 0;
  EXPECT_EQ(AESizeOfNthItem(&list, 2, &type, &size), kNoErr);
  EXPECT_EQ(type, typeUTF8Text);
  EXPECT_EQ(size, 1U);
}

TEST(AppleEvents, WhatIsNoListCannotBeCountedAndKeepsTheCount) {
  Desc text;
  AECreateDesc(typeUTF8Text, "a", 1, &text);
  std::int32_t count = 7;
  EXPECT_EQ(AECountItems(&text, &count), errAEWrongDataType);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(AEPutDesc(&text, 0, &text), errAEWrongDataType);
  EXPECT_EQ(AEPutParamPtr(&text, 1, typeUTF8Text, "a", 1), errAEWrongDataType);
}

TEST(AppleEvents, ARecordKeepsItsParametersByKeyword) {
  Desc record;
  ASSERT_EQ(AECreateList(nullptr, 0, true, &record), kNoErr);
  const std::uint32_t number = 0x72326432;
  const long wide = 0x72326432;
  EXPECT_EQ(AEPutParamPtr(&record, fourCharCode("cmcd"), typeLongInteger, &number, sizeof(number)), kNoErr);
  EXPECT_EQ(AEPutParamPtr(&record, fourCharCode("wide"), typeLongInteger, &wide, sizeof(wide)), kNoErr);
  EXPECT_EQ(AEPutParamPtr(&record, fourCharCode("cmcd"), typeLongInteger, &number, sizeof(number)), kNoErr);
  std::int32_t count = 0;
  EXPECT_EQ(AECountItems(&record, &count), kNoErr);
  EXPECT_EQ(count, 2) << "the same keyword replaces";
  std::uint64_t value = 0;
  DescType type = 0;
  std::size_t size = 0;
  EXPECT_EQ(
      AEGetParamPtr(&record, fourCharCode("wide"), typeLongInteger, &type, &value, sizeof(value), &size),
      kNoErr);
  EXPECT_EQ(value, 0x72326432U);
  EXPECT_EQ(size, 8U);
  EXPECT_EQ(type, typeLongInteger);
  EXPECT_EQ(AESizeOfParam(&record, fourCharCode("cmcd"), &type, &size), kNoErr);
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(
      AEGetParamPtr(&record, fourCharCode("none"), typeLongInteger, &type, &value, sizeof(value), &size),
      errAEDescNotFound);
  EXPECT_EQ(AESizeOfParam(&record, fourCharCode("none"), &type, &size), errAEDescNotFound);
  EXPECT_EQ(AEGetParamPtr(&record, fourCharCode("cmcd"), typeFileURL, &type, &value, sizeof(value), &size),
            errAECoercionFail);
  EXPECT_EQ(AEPutPtr(&record, 0, typeUTF8Text, "a", 1), errAEWrongDataType) << "a record is no list";
}

TEST(AppleEvents, CopiesStandAlone) {
  Desc list;
  AECreateList(nullptr, 0, false, &list);
  AEPutPtr(&list, 0, typeUTF8Text, "a", 1);
  Desc copy;
  ASSERT_EQ(AEDuplicateDesc(&list, &copy), kNoErr);
  AEPutPtr(&list, 0, typeUTF8Text, "b", 1);
  std::int32_t count = 0;
  AECountItems(&copy, &count);
  EXPECT_EQ(count, 1);
  Desc outer;
  AECreateList(nullptr, 0, false, &outer);
  EXPECT_EQ(AEPutDesc(&outer, 0, &list), kNoErr);
  EXPECT_EQ(AEPutDesc(&list, 0, &list), kNoErr) << "even into itself";
}

TEST(AppleEvents, AStringDescriptorOwnsItsReference) {
  const long before = CFGetLiveObjectCount();
  {
    CFStringRef text = string("title");
    Desc record;
    AECreateList(nullptr, 0, true, &record);
    ASSERT_EQ(AEPutParamPtr(&record, fourCharCode("pnam"), typeCFStringRef, &text, sizeof(text)), kNoErr);
    EXPECT_EQ(CFGetRetainCount(text), 1) << "the record took over the reference";
    Desc list;
    AECreateList(nullptr, 0, false, &list);
    AEPutDesc(&list, 0, &record);
    AEDisposeDesc(&record);
    Desc item;
    AEGetNthDesc(&list, 1, typeWildCard, nullptr, &item);
    Desc title;
    EXPECT_EQ(AEGetParamDesc(&item, fourCharCode("pnam"), typeUTF8Text, &title), kNoErr);
    EXPECT_EQ(dataOf(title.desc), "title");
    CFStringRef read = nullptr;
    DescType type = 0;
    EXPECT_EQ(
        AEGetParamPtr(&item, fourCharCode("pnam"), typeCFStringRef, &type, &read, sizeof(read), nullptr),
        kNoErr);
    EXPECT_EQ(read, text);
  }
  EXPECT_EQ(CFGetLiveObjectCount(), before);
}

TEST(AppleEvents, AFailedPutLeavesTheReferenceWithTheCaller) {
  CFStringRef text = string("title");
  Desc list;
  AECreateList(nullptr, 0, false, &list);
  EXPECT_EQ(AEPutPtr(&list, 9, typeCFStringRef, &text, sizeof(text)), errAEIllegalIndex);
  EXPECT_EQ(AEPutPtr(&list, 0, typeCFStringRef, &text, 4), kParamErr);
  EXPECT_EQ(CFGetRetainCount(text), 1);
  CFRelease(text);
}

TEST(AppleEvents, TextCoercesToTextAndToReferences) {
  Desc text;
  AECreateDesc(typeUTF8Text, "häh", 4, &text);
  Desc reference;
  ASSERT_EQ(AECoerceDesc(&text, typeCFStringRef, &reference), kNoErr);
  Desc back;
  EXPECT_EQ(AECoerceDesc(&reference, typeChar, &back), kNoErr);
  EXPECT_EQ(dataOf(back.desc), "häh");
  Desc same;
  EXPECT_EQ(AECoerceDesc(&text, typeWildCard, &same), kNoErr);
  EXPECT_EQ(same.desc.descriptorType, typeUTF8Text);
  Desc none;
  EXPECT_EQ(AECoerceDesc(&text, typeLongInteger, &none), errAECoercionFail);
  EXPECT_EQ(none.desc.dataHandle, nullptr);
  AECreateDesc(typeUTF8Text, "\xFF", 1, &none);
  Desc never;
  EXPECT_EQ(AECoerceDesc(&none, typeCFStringRef, &never), errAECoercionFail);
}

TEST(AppleEvents, ADescriptorCoercedOrCopiedIntoItselfLosesNothing) {
  const long before = CFGetLiveObjectCount();
  {
    CFStringRef text = string("title");
    Desc desc;
    ASSERT_EQ(AECreateDesc(typeCFStringRef, &text, sizeof(text), &desc), kNoErr);
    EXPECT_EQ(AEDuplicateDesc(&desc, &desc), kNoErr);
    EXPECT_EQ(desc.desc.descriptorType, typeCFStringRef);
    EXPECT_EQ(AECoerceDesc(&desc, typeUTF8Text, &desc), kNoErr);
    EXPECT_EQ(dataOf(desc.desc), "title");
    EXPECT_EQ(AECoerceDesc(&desc, typeLongInteger, &desc), errAECoercionFail);
    EXPECT_EQ(desc.desc.dataHandle, nullptr);
  }
  EXPECT_EQ(CFGetLiveObjectCount(), before);
}

TEST(AppleEvents, AReferenceThatNobodyWouldOwnIsNotHandedOut) {
  Desc record;
  AECreateList(nullptr, 0, true, &record);
  AEPutParamPtr(&record, fourCharCode("pnam"), typeUTF8Text, "title", 5);
  CFStringRef read = nullptr;
  EXPECT_EQ(
      AEGetParamPtr(&record, fourCharCode("pnam"), typeCFStringRef, nullptr, &read, sizeof(read), nullptr),
      errAECoercionFail);
  EXPECT_EQ(read, nullptr);
}

TEST(AppleEvents, NestingHasALimit) {
  Desc list;
  AECreateList(nullptr, 0, false, &list);
  OSErr error = kNoErr;
  int depth = 0;
  while (error == kNoErr && depth < 1000) {
    AEDesc outer{typeNull, nullptr};
    AECreateList(nullptr, 0, false, &outer);
    error = AEPutDesc(&outer, 0, &list);
    AEDisposeDesc(&list);
    list.desc = outer;
    ++depth;
  }
  EXPECT_EQ(error, errAEWrongDataType);
  EXPECT_LT(depth, 100);
}

}  // namespace
}  // namespace keldane
