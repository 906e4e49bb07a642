#include "platform/host/Host.h"

#include <gtest/gtest.h>

#include <thread>

namespace keldane {
namespace {

ProcessInfoRec record() {
  ProcessInfoRec info{};
  info.processInfoLength = sizeof(info);
  return info;
}

constexpr ProcessSerialNumber kCurrent = {kNoProcess, kCurrentProcess};

TEST(Host, IsNotTheFinderUnlessItSaysSo) {
  ProcessInfoRec info = record();
  EXPECT_EQ(GetProcessInformation(&kCurrent, &info), kNoErr);
  EXPECT_NE(info.processSignature, fourCharCode("MACS"));
  Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
  EXPECT_EQ(GetProcessInformation(&kCurrent, &info), kNoErr);
  EXPECT_EQ(info.processSignature, 0x4D414353U);
  EXPECT_EQ(info.processType, fourCharCode("FNDR"));
}

TEST(Host, AnswersForTheCurrentProcessOnly) {
  ProcessInfoRec info = record();
  const ProcessSerialNumber other = {0, 1};
  EXPECT_EQ(GetProcessInformation(&other, &info), -600);
  EXPECT_EQ(GetProcessInformation(nullptr, &info), kParamErr);
  EXPECT_EQ(GetProcessInformation(&kCurrent, nullptr), kParamErr);
  info.processInfoLength = 4;
  EXPECT_EQ(GetProcessInformation(&kCurrent, &info), kParamErr);
}

TEST(Host, CanMakeTheProcessManagerFail) {
  Host::shared().setProcessInformationError(-609);
  ProcessInfoRec info = record();
  EXPECT_EQ(GetProcessInformation(&kCurrent, &info), -609);
}

TEST(Host, AnswersGestaltForContextualMenusOnly) {
  std::int32_t response = 99;
  EXPECT_EQ(Gestalt(gestaltContextualMenuAttr, &response), kNoErr);
  EXPECT_EQ(response, 0);
  Host::shared().setContextualMenuAttributes(4);
  EXPECT_EQ(Gestalt(fourCharCode("cmnu"), &response), kNoErr);
  EXPECT_EQ(response, 4);
  EXPECT_EQ(Gestalt(fourCharCode("sysv"), &response), -5551);
  EXPECT_EQ(Gestalt(gestaltContextualMenuAttr, nullptr), kParamErr);
  Host::shared().setGestaltError(-5550);
  EXPECT_EQ(Gestalt(gestaltContextualMenuAttr, &response), -5550);
}

TEST(Host, HasAnApplicationObjectUnlessItSaysOtherwise) {
  EXPECT_NE(Application::sharedApplication(), nullptr);
  Host::shared().setApplicationAvailable(false);
  EXPECT_EQ(Application::sharedApplication(), nullptr);
}

TEST(Host, ItsMainThreadIsTheFirstUnlessDeclared) {
  EXPECT_TRUE(Host::shared().isMainThread());
  std::thread([] {
    EXPECT_FALSE(Host::shared().isMainThread());
    Host::shared().declareMainThread();
    EXPECT_TRUE(Host::shared().isMainThread());
  }).join();
  EXPECT_FALSE(Host::shared().isMainThread());
}

}  // namespace
}  // namespace keldane
