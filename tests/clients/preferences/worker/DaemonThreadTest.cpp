#include "clients/preferences/worker/DaemonThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "tests/clients/preferences/worker/DaemonFixture.h"

namespace keldane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::eventually;

/// The updates that a window would receive.
class Inbox {
 public:
  void put(Update update) {
    const std::lock_guard guard(mutex_);
    updates_.push_back(std::move(update));
  }
  /// All updates of one kind so far.
  template <class Kind>
  std::vector<Kind> all() const {
    const std::lock_guard guard(mutex_);
    std::vector<Kind> found;
    for (const Update& each : updates_) {
      if (const Kind* kind = std::get_if<Kind>(&each)) {
        found.push_back(*kind);
      }
    }
    return found;
  }
  template <class Kind>
  std::size_t count() const {
    return all<Kind>().size();
  }
  std::size_t size() const {
    const std::lock_guard guard(mutex_);
    return updates_.size();
  }
  bool lastStatus(const std::function<bool(const StatusSnapshot&)>& condition) const {
    const std::vector<StatusSnapshot> found = all<StatusSnapshot>();
    return !found.empty() && condition(found.back());
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Update> updates_;  // guarded by the mutex
};

class DaemonThreadTest : public testing::DaemonFixture {
 protected:
  DaemonThreadTest() {
    has("/", true);
    has("/d", true);
    has("/d/f", false);
    has("/barred", false);
  }

  void start() {
    thread_ = std::make_unique<DaemonThread>(bundle_.bundle(),
                                             [this](Update update) { inbox_.put(std::move(update)); });
  }
  bool waitForStatus(const std::function<bool(const StatusSnapshot&)>& condition) const {
    return eventually([&] { return inbox_.lastStatus(condition); });
  }
  bool waitForConnection(bool connected) const {
    return waitForStatus([&](const StatusSnapshot& status) { return status.connected == connected; });
  }
  template <class Kind>
  bool waitFor(std::size_t count) const {
    return eventually([&] { return inbox_.count<Kind>() >= count; });
  }

  Inbox inbox_;  // outlives the thread
  std::unique_ptr<DaemonThread> thread_;
};

TEST_F(DaemonThreadTest, TellsTheDaemonsState) {
  listen();
  start();
  EXPECT_TRUE(waitForStatus([](const StatusSnapshot& status) { return status.status == "Up to date"; }));
}

TEST_F(DaemonThreadTest, FollowsADaemonThatComesAndGoes) {
  start();
  EXPECT_TRUE(waitForConnection(false));
  listen();
  EXPECT_TRUE(waitForConnection(true));
  daemon_.reset();
  EXPECT_TRUE(waitForConnection(false));
  listen();
  EXPECT_TRUE(waitForConnection(true));
}

TEST_F(DaemonThreadTest, AFolderThatWasOpenedWithoutADaemonComesWithIt) {
  start();
  thread_->perform([](DaemonSession& session) { session.openFolder("/d"); });
  ASSERT_TRUE(waitFor<TopRow>(1));
  EXPECT_FALSE(inbox_.all<TopRow>().back().row.enabled);
  listen();
  // Finds the first of the daemon's rows; rows of a later look, which may be there already, are not fresh.
  const auto enabled = [](const TopRow& top) { return top.row.enabled; };
  std::vector<TopRow> rows;
  ASSERT_TRUE(eventually([&] {
    rows = inbox_.all<TopRow>();
    return std::any_of(rows.begin(), rows.end(), enabled);
  }));
  EXPECT_TRUE(std::find_if(rows.begin(), rows.end(), enabled)->fresh);
}

TEST_F(DaemonThreadTest, ManyRowsComeInPieces) {
  for (int i = 0; i < 250; ++i) {
    has("/d/" + std::to_string(i), false);
  }
  listen();
  start();
  thread_->perform([](DaemonSession& session) {
    session.openFolder("/d");
    session.lookInto("/d");
  });
  ASSERT_TRUE(waitFor<FolderChange>(3));
  std::size_t rows = 0;
  for (const FolderChange& change : inbox_.all<FolderChange>()) {
    EXPECT_LE(change.added.size(), 100U);
    rows += change.added.size();
  }
  EXPECT_EQ(rows, 251U);
}

TEST_F(DaemonThreadTest, ARuleIsSentAndWhatTheDaemonMakesOfItToldBack) {
  listen();
  start();
  thread_->perform([](DaemonSession& session) {
    session.openFolder("/d");
    session.lookInto("/d");
    session.setIncluded("/d/f", true);
  });
  ASSERT_TRUE(eventually([&] {
    const std::vector<FolderChange> changes = inbox_.all<FolderChange>();
    return changes.size() >= 2 && !changes[1].changed.empty();
  }));
  const std::vector<NodeRow> rows = inbox_.all<FolderChange>()[1].changed;
  EXPECT_EQ(rows.front().path, "/d/f");
  EXPECT_TRUE(rows.front().checked);
  EXPECT_EQ(rows.back().path, "/d");
  EXPECT_EQ(inbox_.count<Refusal>(), 0U);
  thread_->perform([](DaemonSession& session) { session.setIncluded("/d/f", false); });
  EXPECT_TRUE(eventually([&] { return daemon_->count("removeFileFromBackup:") == 1; }));
}

TEST_F(DaemonThreadTest, ARuleThatIsNotTakenIsTold) {
  listen();
  start();
  thread_->perform([](DaemonSession& session) {
    session.openFolder("/");
    session.setIncluded("/barred", true);
    session.setIncluded("/nowhere", true);
  });
  ASSERT_TRUE(waitFor<Refusal>(2));
  EXPECT_EQ(inbox_.all<Refusal>()[0].path, "/barred");
  EXPECT_EQ(inbox_.all<Refusal>()[1].path, "/nowhere");
}

TEST_F(DaemonThreadTest, SettingsAreSentAndAskedFor) {
  listen();
  daemon_->answer("automaticMode", true);
  daemon_->answer("pausedMinutes", 5);
  start();
  thread_->perform([](DaemonSession& session) {
    session.setAutomatic(true);
    session.pause(5);
  });
  EXPECT_TRUE(waitForStatus([](const StatusSnapshot& status) {
    return status.settingsMade == 2 && status.automatic && status.pausedMinutes == 5;
  }));
  EXPECT_EQ(inbox_.count<Refusal>(), 0U);
}

TEST_F(DaemonThreadTest, ASettingThatIsNotTakenIsTold) {
  listen();
  start();
  thread_->perform([](DaemonSession& session) {
    session.setAutomatic(true);
    session.setLowPriority(true);
    session.pause(5);
  });
  ASSERT_TRUE(waitFor<Refusal>(3));
  EXPECT_TRUE(inbox_.all<Refusal>().front().path.empty());
}

TEST_F(DaemonThreadTest, NothingIsRefusedWhereNobodyIs) {
  start();
  thread_->perform([](DaemonSession& session) {
    session.setAutomatic(true);
    session.setIncluded("/d", true);
  });
  std::promise<void> done;
  thread_->perform([&](DaemonSession&) { done.set_value(); });
  done.get_future().wait();
  EXPECT_EQ(inbox_.count<Refusal>(), 0U);
}

TEST_F(DaemonThreadTest, ADaemonThatDiesDoesNotTakeTheRememberedAccountAlong) {
  listen();
  daemon_->answer("userEmail", "someone@example.org");
  start();
  ASSERT_TRUE(
      waitForStatus([](const StatusSnapshot& s) { return s.account.userEmail == "someone@example.org"; }));
  daemon_.reset();
  EXPECT_TRUE(waitForStatus(
      [](const StatusSnapshot& s) { return !s.connected && s.account.userEmail == "someone@example.org"; }));
}

TEST_F(DaemonThreadTest, ADaemonThatDiesWhileItIsAskedHasRefusedNothing) {
  listen();
  daemon_->answer("userEmail", "someone@example.org");
  start();
  ASSERT_TRUE(
      waitForStatus([](const StatusSnapshot& s) { return s.account.userEmail == "someone@example.org"; }));
  std::promise<void> dead;
  daemon_->answer("automaticMode", [&, wait = dead.get_future().share()](const PropertyList::Array&) {
    wait.wait();
    return PropertyList(true);
  });
  daemon_->forgetCalls();
  thread_->perform([](DaemonSession& session) { session.setAutomatic(true); });
  ASSERT_TRUE(eventually([&] { return daemon_->count("automaticMode") == 1; }));
  std::thread hangUp([&] { daemon_->hangUp(); });  // it waits for the answer that is being made
  EXPECT_TRUE(daemon_->waitForClients(0));
  dead.set_value();
  hangUp.join();
  daemon_.reset();
  EXPECT_TRUE(waitForStatus(
      [](const StatusSnapshot& s) { return !s.connected && s.account.userEmail == "someone@example.org"; }));
  EXPECT_EQ(inbox_.count<Refusal>(), 0U);
}

TEST_F(DaemonThreadTest, IsSilentForAMomentOnlyWhileTheDaemonAnswers) {
  listen();
  start();
  ASSERT_TRUE(waitForConnection(true));
  EXPECT_TRUE(eventually([&] { return thread_->silence() < seconds(1); }));
}

TEST_F(DaemonThreadTest, IsSilentAndCannotBeEndedWhileTheDaemonDoesNotAnswer) {
  listen();
  std::promise<void> answer;
  std::atomic<bool> asked = false;
  daemon_->answer("daemonState", [&, wait = answer.get_future().share()](const PropertyList::Array&) {
    asked = true;
    wait.wait();
    return PropertyList::dictionary({});
  });
  start();
  ASSERT_TRUE(eventually([&] { return asked.load(); }));
  EXPECT_TRUE(eventually([&] { return thread_->silence() > milliseconds(1500); }));
  EXPECT_FALSE(thread_->end(milliseconds(10)));
  answer.set_value();
  EXPECT_TRUE(thread_->end(seconds(20)));
}

TEST_F(DaemonThreadTest, OnceItHasEndedNothingIsDone) {
  listen();
  start();
  ASSERT_TRUE(waitForConnection(true));
  EXPECT_TRUE(thread_->end(seconds(20)));
  EXPECT_TRUE(daemon_->waitForClients(0));
  const std::size_t told = inbox_.size();
  thread_->perform([](DaemonSession& session) { session.pause(1); });
  EXPECT_TRUE(thread_->end(seconds(20)));
  EXPECT_EQ(inbox_.size(), told);
  EXPECT_EQ(daemon_->count("setPausedMinutes:"), 0U);
}

}  // namespace
}  // namespace keldane
