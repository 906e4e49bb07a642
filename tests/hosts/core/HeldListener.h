// A listener that holds its caller, for tests of how listeners are removed.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "tests/support/Wait.h"

namespace keldane::testing {

/// The call of the listener goes on until `expectToOutlast` lets it end.
class HeldListener {
 public:
  HeldListener() = default;
  ~HeldListener() { call_->mayEnd = true; }
  HeldListener(const HeldListener&) = delete;
  HeldListener& operator=(const HeldListener&) = delete;

  /// The listener takes whatever it is called with. It may outlive this object.
  auto listener() const {
    return [call = call_](const auto&...) {
      call->isUnderWay = true;
      while (!call->mayEnd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      call->isUnderWay = false;
    };
  }

  /// Waits for the call.
  bool isCalled() const {
    return eventually([this] { return call_->isUnderWay.load(); });
  }

  /// Expects that `removal`, which removes the listener, returns only after the call that is under way, and
  /// that the listener has been destroyed then.
  void expectToOutlast(const std::function<void()>& removal) const {
    auto isOver = std::async(std::launch::async, [&] {
      removal();
      return !call_->isUnderWay;
    });
    // A service that ends gives its thread 200 ms, whatever the thread does.
    EXPECT_EQ(isOver.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    call_->mayEnd = true;
    EXPECT_TRUE(isOver.get());
    EXPECT_EQ(call_.use_count(), 1) << "the former listener has been destroyed";
  }

 private:
  struct Call {
    std::atomic<bool> isUnderWay = false, mayEnd = false;
  };
  const std::shared_ptr<Call> call_ = std::make_shared<Call>();
};

}  // namespace keldane::testing
