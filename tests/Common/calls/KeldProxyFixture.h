// A proxy with a connection whose other end the test holds, and a target that the peer may call.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Common/calls/KeldProxy.h"
#include "log/KeldaneLog.h"
#include "platform/objects/Exceptions.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Wait.h"
#include "tests/support/process/RawPeer.h"

namespace keldane::testing {

inline constexpr MethodSignature kTargetMethods[] = {
    {"tell:", 'v', "@"}, {"add:to:", 'i', "ii"},  {"fail", 'I', ""},         {"nothing", '@', ""},
    {"odd", '@', ""},    {"throwOther", 'v', ""}, {"describeBadly", 'v', ""}};

/// The target of the peer's calls.
struct Target : InvocationTarget {
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    if (selector == "describeBadly") {
      throw 7;
    }
    return Protocol{"", kTargetMethods}.find(selector);
  }
  void invoke(Invocation& invocation) override {
    const std::string_view selector = invocation.signature.selector;
    invocation.arguments.resize(invocation.signature.argumentCodes.size());
    if (selector == "tell:") {
      {
        const std::lock_guard guard(mutex);
        told.push_back(std::string(invocation.arguments[0].as<'@'>().string()));
        thread = std::this_thread::get_id();
      }
      if (const auto next = onTold) {
        next();
      }
    } else if (selector == "add:to:") {
      invocation.result =
          RawValue::of<'i'>(invocation.arguments[0].as<'i'>() + invocation.arguments[1].as<'i'>());
    } else if (selector == "fail") {
      throw InvalidArgument("broken");
    } else if (selector == "odd") {
      invocation.result = RawValue::of<'@'>(PropertyList::array({PropertyList()}));
    } else if (selector == "throwOther") {
      throw 7;
    }
  }
  std::vector<std::string> all() {
    const std::lock_guard guard(mutex);
    return told;
  }
  std::mutex mutex;
  std::vector<std::string> told;
  std::thread::id thread;
  std::function<void()> onTold;  // called on the main thread
};

class KeldProxyTest : public ::testing::Test {
 protected:
  KeldProxyTest() : connection_(-1) {
    gLoggingEnabled = true;
    socket_ = KeldaneSocket::create();
    proxy_ = KeldaneProxy::create();
    proxy_->setSocket(socket_);
    proxy_->setProtocol(&KeldaneDaemonProtocol);
    proxy_->setDelegate(target_);
    EXPECT_TRUE(socket_->connectToPath(peer_.path()));
    connection_ = peer_.accept();
  }
  ~KeldProxyTest() override {
    proxy_->close();
    socket_->close();
    EXPECT_TRUE(eventually([&] { return socket_.use_count() == 1; }));
  }
  static PropertyList request(const char* selector, PropertyList::Array pairs, int count = -1) {
    PropertyList::Array elements = {
        0U, "v", selector,
        count < 0 ? static_cast<unsigned>(pairs.size() / 2) : static_cast<unsigned>(count)};
    elements.insert(elements.end(), pairs.begin(), pairs.end());
    return PropertyList::array(elements);
  }
  void sendRequest(const PropertyList& value) { connection_.writeFrame(1, RawConnection::payloadOf(value)); }
  Bytes payload(const PropertyList& value) {
    const std::string text = RawConnection::payloadOf(value);
    return {text.begin(), text.end()};
  }
  /// Answers the next request with a value, on another thread.
  std::thread answerNext(const PropertyList& value) {
    return std::thread([this, value] {
      connection_.readFrame();
      connection_.answer(value);
    });
  }

  LogCapture log_;
  RawPeer peer_;
  RawConnection connection_;
  std::shared_ptr<Target> target_ = std::make_shared<Target>();
  std::shared_ptr<KeldaneSocket> socket_;
  std::shared_ptr<KeldaneProxy> proxy_;
};

}  // namespace keldane::testing
