#include "platform/notifications/NotificationCenter.h"

#include <gtest/gtest.h>

namespace keldane {
namespace {

class NotificationCenterTest : public ::testing::Test {
 protected:
  void observe(const void* observer, const char* name, const void* sender, char mark) {
    center_.addObserver(observer, name, sender, [this, mark](const Notification&) { told_ += mark; });
  }
  NotificationCenter center_;
  std::string told_;
  int a_ = 0, b_ = 0;
};

TEST_F(NotificationCenterTest, TellsWhoFitsAtOnceAndInOrder) {
  observe(&a_, "name", nullptr, '1');
  observe(&b_, "name", nullptr, '2');
  observe(&b_, "other", nullptr, '3');
  center_.post("name", &a_);
  EXPECT_EQ(told_, "12");
}

TEST_F(NotificationCenterTest, FiltersBySender) {
  observe(&a_, "name", &a_, '1');
  observe(&a_, "name", &b_, '2');
  center_.post("name", &b_);
  EXPECT_EQ(told_, "2");
}

TEST_F(NotificationCenterTest, CarriesNameSenderAndUserInformation) {
  center_.addObserver(&a_, "name", nullptr, [&](const Notification& notification) {
    EXPECT_EQ(notification.name, "name");
    EXPECT_EQ(notification.sender, &b_);
    EXPECT_EQ(notification.userInfo["key"].intValue(), 5);
    told_ = "yes";
  });
  center_.post("name", &b_, PropertyList::dictionary({{"key", 5}}));
  EXPECT_EQ(told_, "yes");
}

TEST_F(NotificationCenterTest, RemovesByObserverNameAndSender) {
  observe(&a_, "x", &a_, '1');
  observe(&a_, "x", &b_, '2');
  observe(&a_, "y", nullptr, '3');
  observe(&b_, "x", nullptr, '4');
  center_.removeObserver(&a_, "x", &a_);
  EXPECT_EQ(center_.observerCount(), 3U);
  center_.removeObserver(&a_);
  EXPECT_EQ(center_.observerCount(), 1U);
  center_.post("x", &a_);
  EXPECT_EQ(told_, "4");
}

TEST_F(NotificationCenterTest, AnObserverThatGoesWhileOthersAreToldIsNotToldAnyMore) {
  center_.addObserver(&a_, "name", nullptr, [&](const Notification&) {
    center_.removeObserver(&a_);
    center_.removeObserver(&b_);
  });
  observe(&b_, "name", nullptr, 'b');
  center_.post("name", nullptr);
  EXPECT_EQ(told_, "");
  EXPECT_EQ(center_.observerCount(), 0U);
}

TEST_F(NotificationCenterTest, AnObserverThatComesMeanwhileIsToldFromTheNextPostOn) {
  center_.addObserver(&a_, "name", nullptr, [&](const Notification&) {
    center_.removeObserver(&a_);
    observe(&b_, "name", nullptr, 'b');
  });
  center_.post("name", nullptr);
  EXPECT_EQ(told_, "");
  center_.post("name", nullptr);
  EXPECT_EQ(told_, "b");
}

TEST_F(NotificationCenterTest, AnObserverMayPost) {
  observe(&b_, "inner", nullptr, 'i');
  center_.addObserver(&a_, "outer", nullptr, [&](const Notification&) { center_.post("inner", nullptr); });
  center_.post("outer", nullptr);
  EXPECT_EQ(told_, "i");
}

}  // namespace
}  // namespace keldane
