// Delegates are replaced and proxies are released while many threads are at work.
#include <gmock/gmock.h>

#include <barrier>
#include <map>
#include <numeric>
#include <thread>

#include "platform/host/Host.h"
#include "platform/threads/Mutex.h"
#include "tests/Common/calls/StressFixture.h"
#include "tests/Common/transport/KeldSocketFixture.h"
#include "tests/support/Random.h"

namespace keldane {
namespace {

using testing::EndsItsLink;
using testing::eventually;
using testing::eventuallyRunning;
using testing::kCallers;
using testing::Link;
using testing::Random;
using testing::RawConnection;
using testing::RawPeer;
using testing::Threads;

class DelegateStressTest : public testing::StressTest {};

/// A delegate that knows when it may not be called any more.
struct NumberedDelegate : KeldaneSocketDelegate {
  bool processData(const Bytes* payload, std::int32_t) override {
    EXPECT_FALSE(retired) << "it was replaced before this message came";
    heard.push_back(std::stoi(std::string(payload->begin(), payload->end())));
    ++count;
    std::this_thread::yield();
    EXPECT_FALSE(retired) << "who replaces it waits for this message";
    return true;
  }
  std::atomic<bool> retired = false;
  std::atomic<int> count = 0;
  std::vector<int> heard;  // used on the receive thread until it is retired
};

struct CountingDelegate : KeldSocketDelegate {
  void socketFailed(const std::shared_ptr<KeldaneSocket>&) override { ++failed; }
  std::atomic<int> failed = 0;
};

TEST_F(DelegateStressTest, WhileDelegatesAreReplacedEachMessageReachesOneOfThemInOrder) {
  constexpr std::size_t kLinks = 4;
  constexpr int kMessages = 300;
  RawPeer peer;
  Threads threads;
  for (std::size_t i = 0; i < kLinks; ++i) {
    const auto socket = KeldaneSocket::create();
    ASSERT_TRUE(socket->connectToPath(peer.path()));
    const auto connection = std::make_shared<RawConnection>(peer.accept());
    threads.start([i, connection] {
      Random random(i);
      for (int number = 0; number < kMessages; ++number) {
        connection->writeFrame(kRequestFrame, std::to_string(number));
        random.dawdle();
      }
    });
    threads.start([i, socket] {
      Random random(100 + i);
      std::shared_ptr<NumberedDelegate> delegate;
      std::vector<std::shared_ptr<CountingDelegate>> watchers;
      std::vector<int> all;
      while (!::testing::Test::HasFailure() && all.size() < kMessages) {
        const std::shared_ptr<NumberedDelegate> old = delegate;
        delegate = std::make_shared<NumberedDelegate>();
        socket->setDataDelegate(delegate);
        watchers.push_back(std::make_shared<CountingDelegate>());
        socket->setSocketDelegate(watchers.back());
        if (old) {
          old->retired = true;
          all.insert(all.end(), old->heard.begin(), old->heard.end());
        }
        // Each delegate gets a few messages, or those that are left.
        const int wanted =
            std::min(static_cast<int>(1 + random.below(4)), kMessages - static_cast<int>(all.size()));
        const auto end = std::chrono::steady_clock::now() + testing::kGenerous;
        while (delegate->count < wanted) {
          ASSERT_LT(std::chrono::steady_clock::now(), end);
          std::this_thread::yield();
        }
      }
      std::vector<int> sent(kMessages);
      std::iota(sent.begin(), sent.end(), 0);
      EXPECT_EQ(all, sent) << "each once, and in order";
      socket->close();
      for (const auto& watcher : watchers) {
        EXPECT_EQ(watcher->failed, watcher == watchers.back() ? 0 : 1)
            << "each is told once that it was replaced";
      }
      EXPECT_TRUE(eventually([&] { return socket.use_count() == 1; }));
    });
  }
}

constexpr MethodSignature kTell = {"tell:", 'v', "@"};

/// Performs the peers' requests, and calls back meanwhile.
struct Listener : InvocationTarget {
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    return selector == kTell.selector ? &kTell : nullptr;
  }
  void invoke(Invocation& invocation) override {
    EXPECT_TRUE(Host::shared().isMainThread());
    const int number = invocation.arguments[0].as<'@'>().intValue();
    {
      const ScopedLock guard(mutex);
      heard.push_back(number);
    }
    if (onCall) {
      onCall();
    }
  }
  Mutex mutex{{.name = "Listener.mutex"}};
  std::vector<int> heard KELDANE_GUARDED_BY(mutex);
  std::function<void()> onCall;
};

std::string tell(int number) {
  return RawConnection::payloadOf(PropertyList::array({0U, "v", kTell.selector, 1U, "@", number}));
}

/// The messages that these listeners have heard. Those of one listener are in the order in which it heard
/// them.
std::vector<int> heardBy(const std::vector<std::shared_ptr<Listener>>& listeners) {
  std::vector<int> heard;
  for (const auto& listener : listeners) {
    const ScopedLock guard(listener->mutex);
    heard.insert(heard.end(), listener->heard.begin(), listener->heard.end());
  }
  return heard;
}

TEST_F(DelegateStressTest, WhatPeersAskOfTheMainThreadIsDoneOnceAndInOrderWhoeverIsTheDelegate) {
  constexpr std::size_t kLinks = 4;
  constexpr int kMessages = 200;
  RawPeer peer;
  std::vector<Link> links;
  std::vector<std::vector<std::shared_ptr<Listener>>> listeners(kLinks);
  Threads threads;
  const auto newListener = [&](std::size_t i) {
    const auto listener = listeners[i].emplace_back(std::make_shared<Listener>());
    // A queued call is performed with no lock of the proxy held, so it may call back.
    listener->onCall = [proxy = std::weak_ptr(links[i].proxy)] { proxy.lock()->addFileToBackup("heard"); };
    links[i].proxy->setDelegate(listener);
  };
  for (std::size_t i = 0; i < kLinks; ++i) {
    links.emplace_back(peer.path());
    links[i].proxy->setCallDelegateOnMainThread(true);
    newListener(i);
    const auto connection = std::make_shared<RawConnection>(peer.accept());
    threads.start([i, connection] {
      Random random(i);
      for (int number = 0; number < kMessages; ++number) {
        connection->writeFrame(kRequestFrame, tell(number));
        random.dawdle();
      }
      for (int number = 0; number < kMessages; ++number) {
        EXPECT_EQ(connection->readFrame().value()[2].string(), "addFileToBackup:");
      }
    });
  }
  Random random(1);
  std::vector<std::vector<int>> heard(kLinks);
  int replacements = 100;
  EXPECT_TRUE(eventuallyRunning([&] {
    if (replacements-- > 0) {
      newListener(random.below(kLinks));
    }
    std::size_t all = 0;
    for (std::size_t i = 0; i < kLinks; ++i) {
      heard[i] = heardBy(listeners[i]);
      all += heard[i].size();
    }
    return all == kLinks * kMessages;
  }));
  threads.join();
  std::vector<int> wanted(kMessages);
  std::iota(wanted.begin(), wanted.end(), 0);
  for (std::size_t i = 0; i < kLinks; ++i) {
    // A call that was queued for an old delegate is performed by the old one.
    std::sort(heard[i].begin(), heard[i].end());
    EXPECT_EQ(heard[i], wanted);
    for (const auto& listener : listeners[i]) {
      const ScopedLock guard(listener->mutex);
      EXPECT_TRUE(std::is_sorted(listener->heard.begin(), listener->heard.end()));
    }
    links[i].end();
  }
}

/// Releases a link on the thread that calls it.
struct LetsGo : KeldSocketDelegate {
  void socketConnected(const std::shared_ptr<KeldaneSocket>&) override { whenTold(whenConnected); }
  void socketFailed(const std::shared_ptr<KeldaneSocket>&) override { whenTold(!whenConnected); }
  void whenTold(bool now) {
    if (now && link) {
      const std::unique_ptr<Link> last = std::move(link);
      last->end();
      thread = std::this_thread::get_id();
    }
  }
  bool whenConnected = false;
  std::unique_ptr<Link> link;
  std::atomic<std::thread::id> thread;
};

void letGoByAWriteThatFails(std::unique_ptr<Link> link, RawConnection& connection) {
  const auto delegate = std::make_shared<LetsGo>();
  const std::shared_ptr<KeldaneProxy> proxy = link->proxy;
  link->socket->setSocketDelegate(delegate);
  delegate->link = std::move(link);
  connection.close();
  proxy->addFileToBackup("nobody reads this");
  EXPECT_EQ(delegate->thread.load(), std::this_thread::get_id());
}

/// Releases the link in a call that the main thread performs.
void letGoByTheMainThread(std::unique_ptr<Link> link, RawConnection& connection) {
  const auto listener = std::make_shared<Listener>();
  std::shared_ptr<Link> last = std::move(link);
  const std::weak_ptr<KeldaneProxy> proxy = last->proxy;
  last->proxy->setCallDelegateOnMainThread(true);
  last->proxy->setDelegate(listener);
  listener->onCall = [&last, proxy] {
    last->end();
    last.reset();
    EXPECT_TRUE(eventually([&] { return proxy.use_count() == 1; })) << "the receive thread has left";
  };
  connection.writeFrame(kRequestFrame, tell(1));
  EXPECT_TRUE(eventuallyRunning([&] { return !last; }));
  EXPECT_TRUE(proxy.expired());
}

TEST_F(DelegateStressTest, AProxyMayBeLetGoByItsLastOwnerOnAnyThread) {
  constexpr std::size_t kLinks = 60;
  RawPeer peer;
  std::vector<std::weak_ptr<KeldaneProxy>> proxies;
  std::vector<std::weak_ptr<KeldaneSocket>> sockets;
  Random random(1);
  for (std::size_t i = 0; i < kLinks; ++i) {
    auto link = std::make_unique<Link>(peer.path());
    proxies.push_back(link->proxy);
    sockets.push_back(link->socket);
    RawConnection connection = peer.accept();
    switch (i % 6) {
      case 0: {  // released by the thread that made it, while messages arrive
        connection.writeFrame(kRequestFrame, tell(1));
        random.dawdle();
        link->end();
        break;
      }
      case 1: {  // released by a thread that calls
        std::thread([last = std::move(link)]() mutable {
          last->proxy->addFileToBackup("last");
          last->end();
          last.reset();
        }).join();
        break;
      }
      case 2: {  // released by the receive thread when it reports a failure
        const auto delegate = std::make_shared<LetsGo>();
        const std::shared_ptr<KeldaneSocket> socket = link->socket;
        delegate->link = std::move(link);
        socket->setSocketDelegate(delegate);
        connection.close();
        break;
      }
      case 3:
        letGoByAWriteThatFails(std::move(link), connection);
        break;
      case 4:
        letGoByTheMainThread(std::move(link), connection);
        break;
      default: {  // released by the receive thread or this one, whichever is later
        connection.writeFrame(kResponseFrame, "");
        connection.writeFrame(kResponseFrame, "");  // the receive thread waits to hand this one over
        random.dawdle();
        link->end();
      }
    }
  }
  EXPECT_TRUE(eventuallyRunning([&] {
    return std::ranges::all_of(proxies, [](const auto& proxy) { return proxy.expired(); }) &&
           std::ranges::all_of(sockets, [](const auto& socket) { return socket.expired(); });
  }));
}

/// Makes a proxy for each peer on the accept thread and ends it there.
struct Refuses : KeldSocketDelegate {
  void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
    const auto proxy = KeldaneProxy::create();
    proxy->setSocket(child);
    child->close();
    proxy->close();
    ++refused;
  }
  std::atomic<std::size_t> refused = 0;
};

TEST_F(DelegateStressTest, AProxyMayBeMadeAndLetGoOnTheAcceptThread) {
  constexpr std::size_t kLinks = 40;
  const auto listener = KeldaneSocket::create();
  const auto delegate = std::make_shared<Refuses>();
  listener->setSocketDelegate(delegate);
  ASSERT_TRUE(listener->listenAtPath(path()));
  Threads threads;
  for (std::size_t i = 0; i < kCallers; ++i) {
    threads.start([this] {
      for (std::size_t call = 0; call < kLinks / kCallers; ++call) {
        const Link link(path(), std::make_shared<EndsItsLink>());
        link.end();
      }
    });
  }
  threads.join();
  EXPECT_TRUE(eventually([&] { return delegate->refused == kLinks; }));
  listener->close();
}

}  // namespace
}  // namespace keldane
