// The transport and the proxies under many threads at once. Every test is bounded in number, and its order of
// events is seeded as far as the threads leave it to the test; what each caller may see is asserted call by
// call.
#include <gmock/gmock.h>

#include <barrier>
#include <map>
#include <numeric>
#include <thread>

#include "Common/KeldProxy.h"
#include "platform/host/Host.h"
#include "platform/threads/Mutex.h"
#include "tests/Common/KeldSocketFixture.h"
#include "tests/support/FakeDaemon.h"
#include "tests/support/Footprint.h"
#include "tests/support/Random.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::eventuallyRunning;
using testing::FakeDaemon;
using testing::Footprint;
using testing::Frame;
using testing::Random;
using testing::RawConnection;
using testing::RawPeer;
using testing::TemporaryFolder;

constexpr std::size_t kCallers = 2;  // a proxy

/// A proxy over a socket of its own, as a client makes them.
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

/// What a client does when its link fails.
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

std::uint32_t answerTo(std::uint32_t question) { return question * 2654435761U | 1U; }

/// Leaves nothing behind: no thread, descriptor, port or piece of work.
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

  const Footprint before_ = testing::footprintAtRest();
  const TemporaryFolder folder_;
};

TEST_F(StressTest, EachOfManyCallersOnManyProxiesGetsItsOwnAnswers) {
  constexpr std::size_t kLinks = 8;
  constexpr std::uint32_t kCalls = 40;
  FakeDaemon daemon(path());
  answerQuestions(daemon);
  std::vector<Link> links;
  for (std::size_t i = 0; i < kLinks; ++i) {
    links.emplace_back(path());
  }
  std::atomic<std::size_t> oneWay = 0;
  Threads threads;
  for (std::size_t i = 0; i < kLinks * kCallers; ++i) {
    threads.start([&, i, proxy = links[i / kCallers].proxy] {
      Random random(i);
      for (std::uint32_t call = 0; call < kCalls; ++call) {
        const std::uint32_t question = static_cast<std::uint32_t>(i) * kCalls + call;
        const std::string text = std::to_string(question);
        switch (random.below(4)) {
          case 0:
            EXPECT_EQ(proxy->getRestoreJobStatus(question), answerTo(question));
            break;
          case 1:
            EXPECT_EQ(proxy->dictionaryForPath(text)["path"].string(), text);
            break;
          case 2:
            EXPECT_EQ(proxy->mappedUserAsString(text).string(), text);
            break;
          default:
            proxy->addFileToBackup(text);
            ++oneWay;
        }
        random.dawdle();
      }
    });
  }
  threads.join();
  EXPECT_TRUE(daemon.waitForCalls(kLinks * kCallers * kCalls));
  EXPECT_EQ(daemon.count("addFileToBackup:"), oneWay);
  for (const Link& link : links) {
    link.end();
  }
}

// Results are taken in the order in which they come, whoever asked: what comes without being asked for puts
// all that follow behind by one.
TEST_F(StressTest, TheCallsOfTwoThreadsTakeTheResultsInTheirOrder) {
  constexpr std::size_t kRounds = 6;
  constexpr std::size_t kCalls = 25;
  RawPeer peer;
  for (std::size_t round = 0; round < kRounds; ++round) {
    const Link link(peer.path());
    RawConnection connection = peer.accept();
    std::map<std::uint32_t, std::uint32_t> results[kCallers];
    Threads threads;
    for (std::size_t i = 0; i < kCallers; ++i) {
      threads.start([&, i] {
        Random random(round * kCallers + i);
        for (std::size_t call = 0; call < kCalls; ++call) {
          const auto question = static_cast<std::uint32_t>(1000 * (i + 1) + call);
          results[i][question] = link.proxy->getRestoreJobStatus(question);
          random.dawdle();
        }
      });
    }
    Random random(round);
    std::vector<std::uint32_t> questions;
    std::vector<std::uint32_t> sent;
    while (questions.size() < kCallers * kCalls) {
      const Frame frame = connection.readFrame();
      ASSERT_EQ(frame.marker, testing::kMarkerText) << "requests never interleave";
      questions.push_back(frame.value()[5].unsignedIntValue());
      switch (random.below(8)) {
        case 0:  // a failure signal comes first
          connection.writeFrame(77, "");
          sent.push_back(0);
          break;
        case 1:  // an answer that belongs to nobody
          connection.answer(7);
          sent.push_back(7);
          break;
        default:
          break;
      }
      connection.answer(answerTo(questions.back()));
      sent.push_back(answerTo(questions.back()));
      random.dawdle();
    }
    threads.join();
    for (std::size_t i = 0; i < questions.size(); ++i) {
      EXPECT_EQ(results[questions[i] / 1000 - 1][questions[i]], sent[i])
          << "round " << round << ", call " << i;
    }
    link.end();
  }
}

TEST_F(StressTest, WhenThePeerLeavesEveryCallerGetsItsAnswerOrNothing) {
  constexpr std::size_t kLinks = 8;
  constexpr std::uint32_t kMostCalls = 5000;
  FakeDaemon daemon(path());
  answerQuestions(daemon);
  std::vector<Link> links;
  for (std::size_t i = 0; i < kLinks; ++i) {
    const auto delegate = std::make_shared<EndsItsLink>();
    Link& link = links.emplace_back(path(), i % 2 == 0 ? delegate : nullptr);  // or nobody ends it
    delegate->proxy = link.proxy;
  }
  ASSERT_TRUE(daemon.waitForClients(kLinks));
  std::atomic<std::size_t> answers = 0;
  Threads threads;
  for (std::size_t i = 0; i < kLinks * kCallers; ++i) {
    threads.start([&, i, proxy = links[i / kCallers].proxy] {
      Random random(i);
      std::uint32_t question = 0;
      for (std::uint32_t answer = 1; answer != 0 && question < kMostCalls; ++question) {
        answer = proxy->getRestoreJobStatus(question);
        EXPECT_TRUE(answer == answerTo(question) || answer == 0) << answer;
        answers += answer != 0 ? 1 : 0;
        random.dawdle();
      }
      if (i / kCallers % 2 == 0) {
        EXPECT_EQ(proxy->getRestoreJobStatus(question), 0U) << "nobody is there any more";
      }
    });
  }
  EXPECT_TRUE(eventually([&] { return answers >= 20 * kLinks; }));
  daemon.hangUp();
  threads.join();
  for (const Link& link : links) {
    link.end();
  }
}

// By another thread it strands a caller that waits for its answer, which only an answer then releases.
TEST_F(StressTest, ClosingALinkDuringCallsLeavesNoOtherAnswersThanTheirs) {
  constexpr std::size_t kLinks = 20;
  constexpr std::uint32_t kReleased = 4;  // no answer to any question
  FakeDaemon daemon(path());
  answerQuestions(daemon);
  for (std::size_t round = 0; round < kLinks; ++round) {
    const Link link(path());
    std::atomic<std::size_t> answers = 0;
    std::atomic<std::size_t> done = 0;
    Threads threads;
    for (std::size_t i = 0; i < kCallers; ++i) {
      threads.start([&, i] {
        Random random(round * kCallers + i);
        bool ended = false;
        for (std::uint32_t after = 0; after < 3;) {
          const std::uint32_t question = random.below(1000);
          const std::uint32_t answer = link.proxy->getRestoreJobStatus(question);
          EXPECT_TRUE(answer == 0 || (!ended && (answer == kReleased || answer == answerTo(question))))
              << answer;
          ended = ended || answer == 0 || answer == kReleased;
          after += ended ? 1 : 0;
          ++answers;
          random.dawdle();
        }
        ++done;
      });
    }
    Random random(round);
    const std::size_t enough = random.below(10);
    EXPECT_TRUE(eventually([&] { return answers >= enough; }));
    if (random.below(2) == 0) {
      link.end();
    } else {
      link.socket->close();
      link.proxy->close();
    }
    const std::string payload = RawConnection::payloadOf(kReleased);
    const Bytes answer(payload.begin(), payload.end());
    EXPECT_TRUE(eventually([&] {
      link.proxy->processData(&answer, kResponseFrame);
      return done == kCallers;
    }));
  }
}

TEST_F(StressTest, ACallThatFindsItsLinkClosedDoesNotWait) {
  constexpr int kRounds = 200;
  RawPeer peer;
  Random random(1);
  for (int round = 0; round < kRounds; ++round) {
    const Link link(peer.path());
    RawConnection connection = peer.accept();
    std::atomic<bool> returned = false;
    std::barrier<> together(2);
    std::thread caller([&] {
      together.arrive_and_wait();
      EXPECT_EQ(link.proxy->pausedMinutes(), 0U);
      returned = true;
    });
    together.arrive_and_wait();
    for (std::uint32_t i = random.below(20'000); i > 0; --i) {
      std::atomic_signal_fence(std::memory_order_seq_cst);  // a pause of less than a call
    }
    link.socket->close();
    const Frame frame = connection.readFrame();
    if (frame.payload.size() < frame.length || frame.payload.empty()) {
      EXPECT_TRUE(eventually([&] { return returned.load(); }))
          << "nobody has the question, in round " << round;
    }
    EXPECT_TRUE(eventually([&] {
      link.proxy->processData(nullptr, kResponseFrame);
      return returned.load();
    }));
    caller.join();
    link.end();
  }
}

/// Knows when it may not be called any more.
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
  std::vector<int> heard;  // on the receive thread, until it is retired
};

struct CountingDelegate : KeldSocketDelegate {
  void socketFailed(const std::shared_ptr<KeldaneSocket>&) override { ++failed; }
  std::atomic<int> failed = 0;
};

TEST_F(StressTest, WhileDelegatesAreReplacedEachMessageReachesOneOfThemInOrder) {
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
        // A few messages each, or what there is left.
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

/// Performs what the peers ask for, and calls back as it does.
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

TEST_F(StressTest, WhatPeersAskOfTheMainThreadIsDoneOnceAndInOrderWhoeverIsTheDelegate) {
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
      heard[i].clear();
      for (const auto& listener : listeners[i]) {
        const ScopedLock guard(listener->mutex);
        heard[i].insert(heard[i].end(), listener->heard.begin(), listener->heard.end());
      }
      all += heard[i].size();
    }
    return all == kLinks * kMessages;
  }));
  threads.join();
  std::vector<int> wanted(kMessages);
  std::iota(wanted.begin(), wanted.end(), 0);
  for (std::size_t i = 0; i < kLinks; ++i) {
    std::sort(heard[i].begin(),
              heard[i].end());  // what is queued for an old delegate is performed by the old one
    EXPECT_EQ(heard[i], wanted);
    for (const auto& listener : listeners[i]) {
      const ScopedLock guard(listener->mutex);
      EXPECT_TRUE(std::is_sorted(listener->heard.begin(), listener->heard.end()));
    }
    links[i].end();
  }
}

/// Lets go of a link on the thread that it is called on.
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

TEST_F(StressTest, AProxyMayBeLetGoByItsLastOwnerOnAnyThread) {
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
      case 0: {  // the thread that made it, while messages arrive
        connection.writeFrame(kRequestFrame, tell(1));
        random.dawdle();
        link->end();
        break;
      }
      case 1: {  // a thread that calls
        std::thread([last = std::move(link)]() mutable {
          last->proxy->addFileToBackup("last");
          last->end();
          last.reset();
        }).join();
        break;
      }
      case 2: {  // the receive thread, when it tells of a failure
        const auto delegate = std::make_shared<LetsGo>();
        const std::shared_ptr<KeldaneSocket> socket = link->socket;
        delegate->link = std::move(link);
        socket->setSocketDelegate(delegate);
        connection.close();
        break;
      }
      case 3: {  // the thread of a write that fails
        const auto delegate = std::make_shared<LetsGo>();
        const std::shared_ptr<KeldaneProxy> proxy = link->proxy;
        link->socket->setSocketDelegate(delegate);
        delegate->link = std::move(link);
        connection.close();
        proxy->addFileToBackup("nobody reads this");
        EXPECT_EQ(delegate->thread.load(), std::this_thread::get_id());
        break;
      }
      case 4: {  // the main thread, in a call that it performs
        const auto listener = std::make_shared<Listener>();
        std::shared_ptr<Link> last = std::move(link);
        last->proxy->setCallDelegateOnMainThread(true);
        last->proxy->setDelegate(listener);
        listener->onCall = [&last, proxy = proxies.back()] {
          last->end();
          last.reset();
          EXPECT_TRUE(eventually([&] { return proxy.use_count() == 1; })) << "the receive thread has left";
        };
        connection.writeFrame(kRequestFrame, tell(1));
        EXPECT_TRUE(eventuallyRunning([&] { return !last; }));
        EXPECT_TRUE(proxies.back().expired());
        break;
      }
      default: {  // whichever of the receive thread and this one is later
        connection.writeFrame(kResponseFrame, "");
        connection.writeFrame(kResponseFrame, "");  // it waits to hand this one over
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

TEST_F(StressTest, AProxyMayBeMadeAndLetGoOnTheAcceptThread) {
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
