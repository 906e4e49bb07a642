// The transport and the proxies under many threads at once. Every test has a limited number of rounds. Its
// order of events is seeded as far as the test controls it. Each test checks call by call what a caller may
// see.
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

using testing::answerTo;
using testing::EndsItsLink;
using testing::eventually;
using testing::FakeDaemon;
using testing::Frame;
using testing::kCallers;
using testing::Link;
using testing::Random;
using testing::RawConnection;
using testing::RawPeer;
using testing::StressTest;
using testing::Threads;

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

// Results are taken in the order in which they come, whoever asked. A result that nobody asked for shifts all
// later ones by one.
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
    Link& link = links.emplace_back(path(), i % 2 == 0 ? delegate : nullptr);  // else nobody ends it
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

// When another thread closes the link, a caller that waits for its answer is stranded. Only an answer then
// releases it.
TEST_F(StressTest, ClosingALinkDuringCallsLeavesNoOtherAnswersThanTheirs) {
  constexpr std::size_t kLinks = 20;
  constexpr std::uint32_t kReleased = 4;  // this value is no answer to any question
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
      std::atomic_signal_fence(std::memory_order_seq_cst);  // a pause shorter than a call
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

}  // namespace
}  // namespace keldane
