#include "hosts/core/status/StatusService.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "Common/nodes/FileNode.h"
#include "tests/daemon/server/ServerFixture.h"
#include "tests/hosts/core/HeldListener.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/FakeDaemon.h"
#include "tests/support/process/SignalMasks.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::FakeDaemon;
using namespace std::chrono_literals;

constexpr char kListing[] = "childrenDictionariesForPath:";
constexpr char kQuestion[] = "dictionaryForPath:withDirSizes:";

StatusTiming quick() {
  StatusTiming timing;
  timing.batchDelay = 1ms;
  timing.statePoll = timing.afterChange = 5ms;
  timing.unchanged = timing.largeFolder = 1h;
  timing.silence = 50ms;
  timing.firstRetry = timing.lookAtSocket = 5ms;
  return timing;
}

class StatusServiceTest : public ::testing::Test {
 protected:
  ~StatusServiceTest() override { release(); }

  void listen(const std::string& name = "d.sock") {
    daemon_.reset();  // this removes its socket too
    daemon_ = std::make_unique<FakeDaemon>(folder_ / name);
    daemon_->answer(kQuestion, [what = what_](const PropertyList::Array& arguments) {
      what->wait();
      return what->node(std::string(arguments[0].string()));
    });
    daemon_->answer(kListing, [what = what_](const PropertyList::Array& arguments) {
      what->wait();
      PropertyList::Array nodes;
      for (int i = 0; i < 50; ++i) {
        nodes.push_back(what->node(std::string(arguments[0].string()) + "/" + std::to_string(i)));
      }
      return PropertyList::array(nodes);
    });
    daemon_->answer("daemonState", [what = what_](const PropertyList::Array&) {
      return PropertyList::dictionary({{"statusString", what->state.load()}});
    });
  }
  void hold() { what_->held = true; }
  void release() { what_->held = false; }

  /// The daemon's answers. They are shared, because its threads may end after the test.
  struct What {
    PropertyList node(const std::string& path) const {
      return PropertyList::dictionary({{"fileName", path.substr(path.rfind('/') + 1)},
                                       {"state", "State " + std::to_string(state)},
                                       {"backupFlags", backup_flags::kBackup | backup_flags::kBackedUp},
                                       {"backupColor", 2}});
    }
    void wait() const {
      while (held) {
        std::this_thread::sleep_for(1ms);
      }
    }
    std::atomic<int> state = 1;
    std::atomic<bool> held = false;
  };

  StatusService& service(const StatusTiming& timing = quick()) {
    if (!service_) {
      service_ = std::make_unique<StatusService>(folder_ / "d.sock", timing);
      service_->setListener([this](const std::vector<std::string>& paths) {
        const std::lock_guard guard(mutex_);
        told_.insert(paths.begin(), paths.end());
      });
    }
    return *service_;
  }
  bool wasTold(const std::string& path) {
    const std::lock_guard guard(mutex_);
    return told_.contains(path);
  }
  bool isKnown(const std::string& path) { return service().statusOf(path).has_value(); }
  std::string text(const std::string& path) {
    const std::optional<FileStatus> status = service().statusOf(path);
    return status ? status->text : "unknown";
  }

  /// Expects that `removal`, which removes the listener, returns only after a call of it that is under way.
  void expectToWaitForTheListener(const std::function<void()>& removal) {
    const testing::HeldListener held;
    listen();
    service().setListener(held.listener());
    service().statusOf("/f/a");
    ASSERT_TRUE(held.isCalled());
    EXPECT_TRUE(isKnown("/f/a")) << "no question waits for the listener";
    held.expectToOutlast(removal);
  }

  testing::TemporaryFolder folder_;
  const std::shared_ptr<What> what_ = std::make_shared<What>();
  std::mutex mutex_;
  std::multiset<std::string> told_;
  std::unique_ptr<FakeDaemon> daemon_;
  std::unique_ptr<StatusService> service_;
};

TEST_F(StatusServiceTest, AnswersAtOnceAndTellsWhenItKnows) {
  listen();
  hold();
  EXPECT_EQ(service().statusOf("/f/a"), std::nullopt);
  release();
  ASSERT_TRUE(eventually([&] { return wasTold("/f/a"); }));
  EXPECT_EQ(text("/f/a"), "State 1");
  EXPECT_EQ(service().statusOf("/f/a")->emblem, Emblem::backedUp);
  EXPECT_EQ(daemon_->count(kListing), 0U);
}

TEST_F(StatusServiceTest, AsksForAFolderOnce) {
  listen();
  for (int i = 0; i < 50; ++i) {
    service().statusOf("/f/" + std::to_string(i));
  }
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(eventually([&] { return isKnown("/f/" + std::to_string(i)); }));
  }
  EXPECT_LE(daemon_->count(kListing), 1U);
  EXPECT_LE(daemon_->count(kQuestion), 50U);
  EXPECT_EQ(daemon_->clients(), 1U);
}

TEST_F(StatusServiceTest, KnowsAFolderThatIsAboutToBeShownWithoutItsFilesBeingAskedAbout) {
  listen();
  service().expect("/f");
  ASSERT_TRUE(eventually([&] { return daemon_->count("daemonState") > 1; }))
      << "the second look follows the listing";
  EXPECT_EQ(daemon_->count(kListing), 1U);
  EXPECT_EQ(text("/f/7"), "State 1") << "at the first question";
  EXPECT_EQ(daemon_->count(kQuestion), 0U);
}

TEST_F(StatusServiceTest, SeesWhatChangesWithTheDaemonsState) {
  listen();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return text("/f/a") == "State 1"; }));
  what_->state = 2;
  EXPECT_TRUE(eventually([&] { return text("/f/a") == "State 2"; }));
  EXPECT_TRUE(eventually([&] { return wasTold("/f/a"); }));
}

TEST_F(StatusServiceTest, AsksNothingButTheStateWhileNothingChanges) {
  listen();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  daemon_->forgetCalls();
  EXPECT_TRUE(daemon_->waitForCalls(3));
  EXPECT_EQ(daemon_->count("daemonState"), daemon_->calls().size());
}

TEST_F(StatusServiceTest, LooksAgainAfterACommandThoughTheStateStays) {
  listen();
  StatusTiming timing = quick();
  timing.statePoll = 1h;
  service(timing).statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  what_->state = 2;  // nobody polls the state here
  service().commandWasGiven({"/f/a", "/g/b"});
  EXPECT_TRUE(eventually([&] { return text("/f/a") == "State 2"; }));
}

TEST_F(StatusServiceTest, NothingIsKnownWhileTheDaemonIsAway) {
  listen();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  daemon_->stop();
  EXPECT_TRUE(eventually([&] { return !isKnown("/f/a"); }));
  listen();
  EXPECT_TRUE(eventually([&] { return isKnown("/f/a"); }));
}

TEST_F(StatusServiceTest, ADaemonThatComesLaterIsFound) {
  StatusTiming timing = quick();
  timing.firstRetry = timing.longestRetry = 1h;
  service(timing).statusOf("/f/a");
  std::this_thread::sleep_for(20ms);
  EXPECT_FALSE(isKnown("/f/a"));
  listen("other.sock");
  std::filesystem::rename(folder_ / "other.sock", folder_ / "d.sock");  // a daemon already listens at it
  EXPECT_TRUE(eventually([&] { return isKnown("/f/a"); })) << "by its socket, long before the next attempt";
}

TEST_F(StatusServiceTest, ADaemonThatHangsUpAllTheTimeIsNotAskedAllTheTime) {
  listen();
  StatusTiming timing = quick();
  timing.firstRetry = timing.longestRetry = timing.lookAtSocket = 1h;
  service(timing).statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  daemon_->stop();
  ASSERT_TRUE(eventually([&] { return !isKnown("/f/a"); }));
  listen();
  for (int i = 0; i < 1000; ++i) {
    service().statusOf("/f/" + std::to_string(i));
  }
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(daemon_->clients(), 0U) << "files that are shown are no reason to try again";
}

/// Turns every client away.
struct FullHouse : KeldSocketDelegate {
  bool socketAccepted(const std::shared_ptr<KeldaneSocket>& /*child*/) override {
    ++guests;
    return false;
  }
  std::atomic<int> guests = 0;
};

TEST_F(StatusServiceTest, ADaemonThatTurnsItAwayIsLeftAlone) {
  const auto house = std::make_shared<FullHouse>();
  const auto listener = KeldaneSocket::create();
  listener->setSocketDelegate(house);
  ASSERT_TRUE(listener->listenAtPath(folder_ / "d.sock"));
  StatusTiming timing = quick();
  timing.firstRetry = timing.longestRetry = timing.lookAtSocket = 1h;
  service(timing).statusOf("/f/a");
  EXPECT_TRUE(eventually([&] { return house->guests > 0; }));
  std::this_thread::sleep_for(100ms);
  EXPECT_LE(house->guests, 2);
  listener->close();
}

TEST_F(StatusServiceTest, WhatADaemonSaidThatIsSilentIsNotShownAnyLonger) {
  listen();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  hold();
  what_->state = 2;
  EXPECT_TRUE(eventually([&] {
    service().lookAfter();
    return !isKnown("/f/a");
  }));
  release();
  EXPECT_TRUE(eventually([&] { return text("/f/a") == "State 2"; }));
  EXPECT_EQ(daemon_->clients(), 1U) << "the link was kept";
}

TEST_F(StatusServiceTest, NeverWaitsForTheDaemon) {
  listen();
  hold();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 10000; ++i) {
    EXPECT_FALSE(isKnown("/f/" + std::to_string(i)));
  }
  service().commandWasGiven({"/f/1"});
  service().lookAfter();
  service().close("/f");
  service_.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST_F(StatusServiceTest, TellsNobodyAfterItsEnd) {
  listen();
  hold();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return daemon_->count(kQuestion) == 1; }));
  service_.reset();
  release();
  EXPECT_TRUE(daemon_->waitForClients(0)) << "its thread leaves";
  EXPECT_FALSE(wasTold("/f/a"));
}

TEST_F(StatusServiceTest, AListenerIsReplacedAfterItsCallHasEnded) {
  expectToWaitForTheListener([&] { service_->setListener(nullptr); });
}

TEST_F(StatusServiceTest, EndsAfterACallOfTheListenerHasEnded) {
  expectToWaitForTheListener([&] { service_.reset(); });
}

TEST_F(StatusServiceTest, ATaskMayBeItsLastOwner) {
  listen();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  std::promise<void> mayEnd;
  std::shared_ptr<StatusService> owner = std::move(service_);
  owner->perform([owner, end = mayEnd.get_future().share()](DaemonLink*) { end.wait(); });
  owner.reset();
  mayEnd.set_value();
  EXPECT_TRUE(daemon_->waitForClients(0)) << "its thread leaves";
}

TEST_F(StatusServiceTest, WhatItDropsMayUseItWhileItIsDestroyed) {
  int drops = 0;
  const auto user = [&] {
    return std::shared_ptr<void>(nullptr, [&drops, &service = service()](void*) {
      service.openFolders();
      ++drops;
    });
  };
  service().setListener([kept = user()](const std::vector<std::string>&) {});
  service().setListener([kept = user()](const std::vector<std::string>&) {});
  EXPECT_EQ(drops, 1);
  std::promise<void> mayEnd;
  service().perform([end = mayEnd.get_future().share()](DaemonLink*) { end.wait(); });
  service().perform([kept = user()](DaemonLink*) {});
  service_.reset();
  EXPECT_EQ(drops, 3);
  mayEnd.set_value();
}

TEST_F(StatusServiceTest, LeavesTheDaemonWhenNothingIsShown) {
  listen();
  service().statusOf("/f/a");
  ASSERT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  const auto open = service().openFolders();
  ASSERT_EQ(open.size(), 1U);
  service().close(open[0].path);
  EXPECT_TRUE(daemon_->waitForClients(0));
  service().statusOf("/f/a");
  EXPECT_TRUE(eventually([&] { return isKnown("/f/a"); }));
}

TEST_F(StatusServiceTest, PerformsWhatAPersonAskedFor) {
  const auto ask = [&] {
    std::promise<std::string> promise;
    service().perform([&](DaemonLink* link) {
      promise.set_value(
          link == nullptr ? "away" : std::string(link->dictionaryForPath("/f/a", false)["state"].string()));
    });
    return promise.get_future().get();
  };
  EXPECT_EQ(ask(), "away");
  listen();
  EXPECT_EQ(ask(), "State 1") << "without waiting for the next attempt";
  EXPECT_TRUE(daemon_->waitForClients(0)) << "nothing is shown";
}

TEST_F(StatusServiceTest, LeavesTheHostsSignalsToTheHostsThreads) {
  listen();
  const std::size_t before = testing::threadsThatTake(SIGCHLD);
  service().statusOf("/f/a");
  EXPECT_TRUE(eventually([&] { return isKnown("/f/a"); }));
  EXPECT_EQ(testing::threadsThatTake(SIGCHLD), before);
}

TEST_F(StatusServiceTest, StandsStrangeAnswers) {
  daemon_ = std::make_unique<FakeDaemon>(folder_ / "d.sock");
  daemon_->answer(kQuestion, PropertyList("strange"));
  daemon_->answer(kListing, PropertyList::array({"strange", 5, PropertyList::dictionary({{"fileName", 7}})}));
  service().statusOf("/f/a");
  EXPECT_TRUE(eventually([&] { return text("/f/a").empty(); }));
  for (int i = 0; i < 100; ++i) {
    service().statusOf("/g/" + std::to_string(i));
  }
  EXPECT_TRUE(eventually([&] { return text("/g/1").empty(); }));
  EXPECT_FALSE(service().statusOf("/"));
  EXPECT_FALSE(service().statusOf("relative"));
}

// These tests use the daemon of this project.
class StatusOfOurDaemonTest : public testing::DaemonServerTest {};

TEST_F(StatusOfOurDaemonTest, ItsStatesHaveTheirEmblems) {
  StatusService service(options_.socket, quick());
  const auto becomes = [&](const std::string& path, Emblem emblem, const std::string& text) {
    return eventually([&] {
      const std::optional<FileStatus> status = service.statusOf(path);
      return status && status->emblem == emblem && status->text == text;
    });
  };
  EXPECT_TRUE(becomes(docs("a.txt"), Emblem::none, "Not selected for backup"));
  EXPECT_TRUE(becomes("/etc/passwd", Emblem::excluded, "Excluded by policy"));
  (*client_)->setPausedMinutes(10U);
  (*client_)->addFileToBackup(docs("a.txt"));
  EXPECT_TRUE(becomes(docs("a.txt"), Emblem::waiting, "Waiting to be backed up"));
  EXPECT_TRUE(becomes(docs(), Emblem::none, "Partly selected for backup"));
  (*client_)->setPausedMinutes(0U);
  EXPECT_TRUE(becomes(docs("a.txt"), Emblem::backedUp, "Backed up"));
  EXPECT_GT(service.statusOf(docs("a.txt"))->lastBackup, 0);
  (*client_)->setPausedMinutes(10U);
  folder_.write("home/docs/a.txt", "alpha, changed");
  service.commandWasGiven({docs("a.txt")});
  EXPECT_TRUE(becomes(docs("a.txt"), Emblem::changed, "Changed since last backup"));
  (*client_)->removeFileFromBackup(docs("b.txt"));
  service.commandWasGiven({docs("b.txt")});
  EXPECT_TRUE(becomes(docs("b.txt"), Emblem::excluded, "Not selected for backup"));
}

}  // namespace
}  // namespace keldane
