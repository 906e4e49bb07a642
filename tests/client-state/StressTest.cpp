// Clients connect, ask and leave on the main thread while a daemon starts and stops on another thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "client-state/BackupState.h"
#include "platform/host/Host.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/Random.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/daemon/FakeDaemon.h"
#include "tests/support/process/Footprint.h"

namespace keldane {
namespace {

using testing::ClientBundle;
using testing::eventuallyRunning;
using testing::FakeDaemon;
using testing::Footprint;
using testing::Random;

constexpr char kAddress[] = "https://backup.example";
constexpr std::size_t kClients = 5;
constexpr int kSteps = 400;
constexpr int kLosses = 4;  // each loss costs a waiting client one second

/// Receives the daemon's calls.
struct News : InvocationTarget {
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    static constexpr MethodSignature kMethod = {"stateChanged:", 'v', "@"};
    return selector == kMethod.selector ? &kMethod : nullptr;
  }
  void invoke(Invocation& invocation) override {
    EXPECT_TRUE(Host::shared().isMainThread());
    const int number = invocation.arguments.front().encoded().intValue();
    EXPECT_GT(number, last) << "in the order in which they were sent";
    last = number;
    ++told;
  }
  int last = 0, told = 0;
};

struct Client {
  explicit Client(const ClientBundle& bundle) {
    state.setBundle(bundle.bundle());
    state.setProxyDelegate(news);
    state.setWantsStateChangedNotifications();
  }
  std::shared_ptr<News> news = std::make_shared<News>();
  BackupState state;
  bool begun = false;
};

/// Asks a question. The answer must be the daemon's, or that of a client without a daemon.
void ask(Client& client, Random& random) {
  const BackupState& state = client.state;
  const std::string text = std::to_string(random.below(1000));
  switch (random.below(5)) {
    case 0: {
      const PropertyList node = state.dictionaryForPath(text);
      EXPECT_TRUE(node.isAbsent() || node["path"] == PropertyList(text)) << node.description();
      break;
    }
    case 1: {
      const std::uint32_t minutes = state.pausedMinutes();
      EXPECT_TRUE(minutes == 0 || minutes == 15) << minutes;
      break;
    }
    case 2: {
      const PropertyList address = state.serverURL();
      EXPECT_TRUE(address == PropertyList(kAddress) || address == PropertyList("")) << address.description();
      break;
    }
    case 3:
      client.state.updateDaemonState();
      EXPECT_TRUE(state.daemonState().isAbsent() || state.statusString() == PropertyList("Idle"))
          << state.daemonState().description();
      break;
    default:
      state.addFileToBackup(text);
  }
}

/// One step of a client: it begins, ends, asks something, or lets its run loop run.
void doOneThing(Client& client, Random& random) {
  const std::uint32_t chance = random.below(10);
  if (!client.begun) {
    client.news->last = 0;
    client.state.onBegin();
    client.begun = true;
  } else if (chance == 0) {
    client.state.onEnd();
    EXPECT_FALSE(client.state.connected());
    client.begun = false;
  } else if (chance < 8) {
    ask(client, random);
  } else {
    RunLoop::main().run(RunLoop::Seconds(0.001 * random.below(3)));
  }
}

TEST(StressTest, ClientsGetTheirAnswersOrNoneWhileTheirDaemonComesAndGoes) {
  const testing::UserPreferences preferences;
  const ClientBundle bundle;
  const Footprint before = testing::footprintAtRest();
  {
    FakeDaemon daemon(bundle.daemonPath());
    daemon.answer("dictionaryForPath:", [](const PropertyList::Array& arguments) {
      return PropertyList::dictionary({{"path", arguments[0]}});
    });
    daemon.answer("pausedMinutes", 15);
    daemon.answer("serverURL", kAddress);
    daemon.answer("daemonState", PropertyList::dictionary({{"statusString", "Idle"}}));

    std::vector<std::unique_ptr<Client>> clients;
    for (std::size_t i = 0; i < kClients; ++i) {
      clients.push_back(std::make_unique<Client>(bundle));
    }
    std::atomic<int> steps = 0;
    std::thread weather([&] {
      Random random(2);
      int number = 0;
      for (int loss = 1; loss <= kLosses; ++loss) {
        while (steps < loss * kSteps / (kLosses + 1)) {
          daemon.tellClients(++number);
          std::this_thread::sleep_for(std::chrono::microseconds(100 * random.below(20)));
        }
        daemon.hangUp();
      }
    });
    Random random(1);
    for (; steps < kSteps; ++steps) {
      doOneThing(*clients[random.below(kClients)], random);
    }
    weather.join();
    EXPECT_TRUE(std::any_of(clients.begin(), clients.end(),
                            [](const auto& client) { return client->news->told > 0; }));
    for (const auto& client : clients) {
      if (client->begun) {
        EXPECT_TRUE(eventuallyRunning([&] { return client->state.connected(); })) << "it has come back";
        client->state.onEnd();
      }
    }
    EXPECT_TRUE(daemon.waitForClients(0));
  }
  EXPECT_TRUE(eventuallyRunning([&] { return Footprint() == before; }))
      << Footprint() << "\nbefore: " << before;
}

}  // namespace
}  // namespace keldane
