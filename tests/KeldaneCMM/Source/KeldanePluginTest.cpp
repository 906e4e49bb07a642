#include "KeldaneCMM/Source/KeldanePlugin.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "KeldaneCMM/Source/KeldaneCMM.h"
#include "platform/plugin/PlugIn.h"
#include "tests/KeldaneCMM/Source/FailingCalls.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"

namespace keldane {
namespace {

// Hosts rely on this: the record begins with the pointer to the table.
static_assert(std::is_standard_layout_v<KeldanePluginInstance>);
static_assert(std::is_trivial_v<KeldanePluginInstance>);
static_assert(offsetof(KeldanePluginInstance, interface) == 0);
static_assert(offsetof(KeldanePluginInstance, factoryID) == sizeof(void*));
static_assert(offsetof(KeldanePluginInstance, referenceCount) == 2 * sizeof(void*));
static_assert(offsetof(KeldanePluginInstance, module) == 3 * sizeof(void*));
static_assert(std::is_same_v<decltype(KeldanePluginInstance::referenceCount), std::uint32_t>);

KeldanePluginInstance* make() {
  return static_cast<KeldanePluginInstance*>(
      KeldanePluginFactory(kCFAllocatorSystemDefault, contextualMenuTypeID()));
}

CFUUIDBytes bytes(CFUUIDRef uuid) { return CFUUIDGetUUIDBytes(uuid); }

CFOwner<CFUUIDRef> factoryID() {
  const std::string_view text = "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36";
  const CFOwner<CFStringRef> string(CFStringCreateWithBytes(nullptr, text.data(), text.size()));
  return CFOwner<CFUUIDRef>(CFUUIDCreateFromString(nullptr, string.get()));
}

long instances() { return CFPlugInGetInstanceCountForFactory(factoryID().get()); }

TEST(FunctionTable, HasTheEntriesInTheInterfacesOrder) {
  void* const* table = reinterpret_cast<void* const*>(&gKeldaneCMInterface);
  EXPECT_EQ(table[0], nullptr);
  EXPECT_EQ(table[1], reinterpret_cast<void*>(&KeldanePlugin_QueryInterface));
  EXPECT_EQ(table[2], reinterpret_cast<void*>(&KeldanePlugin_AddRef));
  EXPECT_EQ(table[3], reinterpret_cast<void*>(&KeldanePlugin_Release));
  EXPECT_EQ(table[4], reinterpret_cast<void*>(&KeldanePlugin_ExamineContext));
  EXPECT_EQ(table[5], reinterpret_cast<void*>(&KeldanePlugin_HandleSelection));
  EXPECT_EQ(table[6], reinterpret_cast<void*>(&KeldanePlugin_PostMenuCleanup));
  EXPECT_EQ(sizeof(gKeldaneCMInterface), 7 * sizeof(void*));
}

TEST(Factory, MakesAnInstanceForTheContextualMenuType) {
  KeldanePluginInstance* instance = make();
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(instance->interface, &gKeldaneCMInterface);
  EXPECT_TRUE(CFEqual(instance->factoryID, factoryID().get()));
  EXPECT_EQ(instance->referenceCount, 1U);
  EXPECT_EQ(instance->module, nullptr);
  EXPECT_EQ(instances(), 1);
  EXPECT_EQ(KeldanePlugin_Release(instance), 0U);
  EXPECT_EQ(instances(), 0);
}

TEST(Factory, MakesNothingForAnotherType) {
  for (const CFUUIDRef type : {contextualMenuInterfaceID(), iUnknownID(), CFUUIDRef(nullptr)}) {
    EXPECT_EQ(KeldanePluginFactory(kCFAllocatorSystemDefault, type), nullptr);
  }
  EXPECT_EQ(instances(), 0);
}

TEST(Factory, TakesAnEqualTypeThatIsAnotherObject) {
  const CFOwner<CFUUIDRef> type(CFUUIDCreateFromUUIDBytes(nullptr, bytes(contextualMenuTypeID())));
  void* instance = KeldanePluginFactory(nullptr, type.get());
  EXPECT_NE(instance, nullptr);
  KeldanePlugin_Release(instance);
}

TEST(Factory, MakesItsIdOnceAndEachInstanceRetainsIt) {
  KeldanePluginInstance* first = make();
  const CFUUIDRef factory = first->factoryID;
  const long references = CFGetRetainCount(factory);
  KeldanePluginInstance* second = make();
  EXPECT_EQ(second->factoryID, factory);
  EXPECT_EQ(CFGetRetainCount(factory), references + 1);
  EXPECT_EQ(instances(), 2);
  KeldanePlugin_Release(first);
  EXPECT_EQ(CFGetRetainCount(factory), references);
  KeldanePlugin_Release(second);
  EXPECT_EQ(CFGetRetainCount(factory), references - 1) << "the shell keeps one for ever";
  EXPECT_EQ(instances(), 0);
}

TEST(Factory, WithoutAnIdMakesNothingAndTriesAgainNextTime) {
  GTEST_FLAG_SET(death_test_style,
                 "threadsafe");  // starts a new process in which no identifier has been made
  const auto tryTwice = [] {
    testing::failCall("CFUUIDCreateFromString", 1, kNoErr);
    const bool nothing = make() == nullptr;
    const bool failed = testing::stopFailing();
    std::_Exit(nothing && failed && instances() == 0 && make() != nullptr ? 0 : 1);
  };
  EXPECT_EXIT(tryTwice(), ::testing::ExitedWithCode(0), "");
}

TEST(QueryInterface, KnowsTheContextualMenuInterfaceAndTheBaseInterfaceAlike) {
  KeldanePluginInstance* instance = make();
  std::uint32_t count = 1;
  for (const CFUUIDRef interface : {contextualMenuInterfaceID(), iUnknownID()}) {
    const testing::LogSwitchedOn log;
    void* answer = nullptr;
    EXPECT_EQ(KeldanePlugin_QueryInterface(instance, bytes(interface), &answer), S_OK);
    EXPECT_EQ(answer, instance);
    EXPECT_EQ(instance->referenceCount, ++count);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"KeldanePlugin_QueryInterface:", "KeldanePlugin_AddRef:"}));
  }
  EXPECT_EQ(KeldanePlugin_Release(instance), 2U);
  EXPECT_EQ(KeldanePlugin_Release(instance), 1U);
  EXPECT_EQ(KeldanePlugin_Release(instance), 0U);
}

TEST(QueryInterface, AnswersAnyOtherWithNullAndTheCountAsItWas) {
  KeldanePluginInstance* instance = make();
  const testing::LogSwitchedOn log;
  void* answer = instance;
  EXPECT_EQ(static_cast<std::uint32_t>(
                KeldanePlugin_QueryInterface(instance, bytes(contextualMenuTypeID()), &answer)),
            0x80000004U);
  EXPECT_EQ(answer, nullptr);
  EXPECT_EQ(instance->referenceCount, 1U);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"KeldanePlugin_QueryInterface:"}));
  KeldanePlugin_Release(instance);
}

TEST(QueryInterface, LeavesNoIdBehind) {
  KeldanePluginInstance* instance = make();
  void* answer = nullptr;
  const long before = CFGetLiveObjectCount();
  KeldanePlugin_QueryInterface(instance, bytes(iUnknownID()), &answer);
  KeldanePlugin_QueryInterface(instance, bytes(contextualMenuTypeID()), &answer);
  EXPECT_EQ(CFGetLiveObjectCount(), before);
  KeldanePlugin_Release(instance);
  KeldanePlugin_Release(instance);
}

TEST(ReferenceCount, TheLastReleaseFreesTheInstanceAndItsRegistrationOnce) {
  KeldanePluginInstance* other = make();
  KeldanePluginInstance* instance = make();
  for (ULONG count = 2; count <= 4; ++count) {
    EXPECT_EQ(KeldanePlugin_AddRef(instance), count);
  }
  for (ULONG count = 3; count >= 1; --count) {
    EXPECT_EQ(KeldanePlugin_Release(instance), count);
    EXPECT_EQ(instances(), 2);
  }
  EXPECT_EQ(KeldanePlugin_Release(instance), 0U);
  EXPECT_EQ(instances(), 1);
  KeldanePlugin_Release(other);
}

TEST(Shell, LogsALineAtEachEntry) {
  const testing::LogSwitchedOn log;
  KeldanePluginFactory(nullptr, iUnknownID());
  KeldanePluginInstance* instance = make();
  KeldanePlugin_AddRef(instance);
  KeldanePlugin_Release(instance);
  KeldanePlugin_Release(instance);
  EXPECT_EQ(
      log.lines(),
      (std::vector<std::string>{
          "KeldanePluginFactory:", "KeldanePluginFactory:", "KeldanePlugin_Alloc:", "KeldanePlugin_AddRef:",
          "KeldanePlugin_Release:", "KeldanePlugin_Release:", "KeldanePlugin_Dealloc:"}));
}

using InstanceInACycle = testing::MenuTest;

// Only the clean-up at the end of the cycle releases the module, and it has not come yet.
TEST_F(InstanceInACycle, ReleasedForTheLastTimeLeavesItsModuleAlone) {
  listen();
  examine({file("a")});
  ASSERT_NE(instance_->module, nullptr);
  const std::unique_ptr<std::shared_ptr<KeldaneCMM>> leftBehind(instance_->module);
  EXPECT_EQ(KeldanePlugin_Release(instance_), 0U);
  instance_ = nullptr;
  EXPECT_EQ(leftBehind->use_count(), 1);
  know("/x", node(0));
  EXPECT_NE((*leftBehind)->nodeForPath("/x"), nullptr) << "and connected";
}

}  // namespace
}  // namespace keldane
