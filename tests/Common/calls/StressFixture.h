// Links between proxies and daemons for the stress tests, and a fixture that sees what is left behind.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Common/calls/KeldProxy.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/FakeDaemon.h"
#include "tests/support/process/Footprint.h"

namespace keldane::testing {

inline constexpr std::size_t kCallers = 2;  // threads that call one proxy

/// A proxy over a socket of its own, as in a client.
struct Link {
  explicit Link(const std::string& path, std::shared_ptr<KeldSocketDelegate> delegate = nullptr) {
    if (delegate) {
      socket->setSocketDelegate(std::move(delegate));
    }
    proxy->setSocket(socket);
    proxy->setProtocol(&KeldaneDaemonProtocol);
    EXPECT_TRUE(socket->connectToPath(path));
  }
  void end() const {
    proxy->close();
    socket->close();
  }
  std::shared_ptr<KeldaneSocket> socket = KeldaneSocket::create();
  std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
};

/// Ends the link when it fails, as a client does.
struct EndsItsLink : KeldSocketDelegate {
  void socketFailed(const std::shared_ptr<KeldaneSocket>& socket) override {
    if (const std::shared_ptr<KeldaneProxy> held = proxy.lock()) {
      held->close();
    }
    socket->close();
  }
  std::weak_ptr<KeldaneProxy> proxy;  // set before the link comes up
};

class Threads {
 public:
  ~Threads() { join(); }
  template <class Work>
  void start(Work work) {
    threads_.emplace_back(std::move(work));
  }
  void join() {
    for (std::thread& thread : threads_) {
      thread.join();
    }
    threads_.clear();
  }

 private:
  std::vector<std::thread> threads_;
};

inline std::uint32_t answerTo(std::uint32_t question) { return question * 2654435761U | 1U; }

/// Checks that a test leaves no thread, descriptor, port or piece of work behind.
class StressTest : public ::testing::Test {
 protected:
  ~StressTest() override {
    EXPECT_TRUE(eventuallyRunning([this] { return Footprint() == before_; }))
        << Footprint() << "\nbefore: " << before_;
  }
  std::string path() const { return folder_ / "d.sock"; }
  static void answerQuestions(FakeDaemon& daemon) {
    daemon.answer("getRestoreJobStatus:", [](const PropertyList::Array& arguments) {
      return PropertyList(answerTo(arguments[0].unsignedIntValue()));
    });
    daemon.answer("dictionaryForPath:", [](const PropertyList::Array& arguments) {
      return PropertyList::dictionary({{"path", arguments[0]}});
    });
    daemon.answer("mappedUserAsString:", [](const PropertyList::Array& arguments) { return arguments[0]; });
  }

  const Footprint before_ = footprintAtRest();
  const TemporaryFolder folder_;
};

}  // namespace keldane::testing
