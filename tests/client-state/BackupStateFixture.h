// A BackupState whose daemon a test may start.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "client-state/BackupState.h"
#include "platform/notifications/NotificationCenter.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane::testing {

inline constexpr char kConnectionChanged[] = "KeldaneBackupStateConnectionChangedNotification";
inline constexpr char kStateChanged[] = "KeldaneBackupStateChangedNotification";

class BackupStateTest : public ::testing::Test {
 protected:
  BackupStateTest() {
    state_.setBundle(bundle_.bundle());
    state_.disableConnectTimer();
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, kConnectionChanged, &state_, [this](const Notification& notice) {
      EXPECT_TRUE(notice.userInfo.isAbsent());
      connections_.push_back(state_.connected());
      EXPECT_EQ(state_.connected(), state_.daemonReady());
    });
    center.addObserver(this, kStateChanged, &state_,
                       [this](const Notification& notice) { states_.push_back(notice.userInfo); });
  }
  ~BackupStateTest() override {
    state_.onEnd();
    NotificationCenter::defaultCenter().removeObserver(this);
  }

  void listen() { daemon_ = std::make_unique<FakeDaemon>(bundle_.daemonPath()); }
  void connect() {
    listen();
    state_.onBegin();
    ASSERT_TRUE(state_.connected());
    ASSERT_TRUE(daemon_->waitForClients(1));
  }
  void diesWhenAsked(const std::string& method) {
    daemon_->answer(method, [this](const PropertyList::Array&) {
      daemon_->hangUp();
      return PropertyList();
    });
  }
  static std::size_t timers() { return RunLoop::main().load().timers; }

  UserPreferences user_;
  ClientBundle bundle_;
  std::unique_ptr<FakeDaemon> daemon_;
  BackupState state_;
  std::vector<bool> connections_;
  std::vector<PropertyList> states_;
};

}  // namespace keldane::testing
