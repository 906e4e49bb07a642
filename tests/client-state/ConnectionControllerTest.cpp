#include "client-state/ConnectionController.h"

#include <gtest/gtest.h>

#include <csignal>

#include "log/KeldaneLog.h"
#include "platform/host/Host.h"
#include "platform/notifications/NotificationCenter.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/LogCapture.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane {
namespace {

using testing::ClientBundle;
using testing::eventuallyRunning;
using testing::FakeDaemon;

constexpr char kUnable[] = "ConnectionController: unable to connect to daemon, will try again...";

class ConnectionControllerTest : public ::testing::Test {
 protected:
  ConnectionControllerTest() {
    gLoggingEnabled = true;
    controller_->setBundle(bundle_.bundle());
    NotificationCenter::defaultCenter().addObserver(this, KeldaneConnectionReadyChangedNotification,
                                                    controller_.get(), [this](const Notification& notice) {
                                                      EXPECT_TRUE(notice.userInfo.isAbsent());
                                                      notices_.push_back(controller_->connected());
                                                    });
  }
  ~ConnectionControllerTest() override {
    controller_->stop();
    NotificationCenter::defaultCenter().removeObserver(this);
    gLoggingEnabled = false;
  }
  static std::size_t timers() { return RunLoop::main().load().timers; }

  ClientBundle bundle_;
  testing::LogCapture log_;
  std::shared_ptr<ConnectionController> controller_ = ConnectionController::initWithProxyDelegate({});
  std::vector<bool> notices_;  // the value of `connected` at each notification
};

TEST(ConnectionReadyChanged, IsNamedAsItReads) {
  EXPECT_STREQ(KeldaneConnectionReadyChangedNotification, "KeldaneConnectionReadyChangedNotification");
}

TEST_F(ConnectionControllerTest, HasNothingBeforeItIsStarted) {
  EXPECT_FALSE(controller_->connected());
  EXPECT_EQ(controller_->proxy(), nullptr);
  EXPECT_EQ(timers(), 0U);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(ConnectionControllerTest, ConnectsBeforeStartReturns) {
  FakeDaemon daemon(bundle_.daemonPath());
  controller_->start();
  EXPECT_TRUE(controller_->connected());
  EXPECT_NE(controller_->proxy(), nullptr);
  EXPECT_EQ(timers(), 0U) << "the retry timer ends with the success";
  EXPECT_EQ(notices_, (std::vector<bool>{true}));
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"ConnectionController:start()", "ConnectionController: connected"}));
}

TEST_F(ConnectionControllerTest, SaysThatItConnectsAtOnceOnlyWithoutATimer) {
  FakeDaemon daemon(bundle_.daemonPath());
  controller_->disableConnectTimer();
  controller_->start();
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"ConnectionController:start()",
                                      "ConnectionController:start - trying to connect immediately",
                                      "ConnectionController: connected"}));
}

TEST_F(ConnectionControllerTest, ItsProxySpeaksTheDaemonsProtocol) {
  FakeDaemon daemon(bundle_.daemonPath());
  daemon.answer("serverURL", "https://backup.example");
  controller_->start();
  EXPECT_EQ(controller_->proxy()->serverURL(), PropertyList("https://backup.example"));
}

TEST_F(ConnectionControllerTest, TellsOnTheMainThreadThatTheSocketIsConnected) {
  FakeDaemon daemon(bundle_.daemonPath());
  controller_->start();
  EXPECT_FALSE(log_.has("ConnectionController::socketConnected:"));
  EXPECT_TRUE(eventuallyRunning([&] { return log_.has("ConnectionController::socketConnected:"); }));
  EXPECT_EQ(notices_.size(), 1U) << "the line is all";
}

TEST_F(ConnectionControllerTest, WithoutATimerTriesOnce) {
  controller_->disableConnectTimer();
  controller_->start();
  EXPECT_EQ(timers(), 0U);
  RunLoop::main().run(RunLoop::Seconds(1.3));
  EXPECT_EQ(log_.count(kUnable), 1U);
  EXPECT_TRUE(notices_.empty());
  EXPECT_FALSE(controller_->connected());
  EXPECT_NE(controller_->proxy(), nullptr);
}

TEST_F(ConnectionControllerTest, TriesAgainEverySecondWithTheSameObjectsUntilTheDaemonIsThere) {
  controller_->start();
  EXPECT_EQ(log_.count(kUnable), 1U) << "at once";
  EXPECT_EQ(timers(), 1U);
  const std::shared_ptr<KeldaneProxy> proxy = controller_->proxy();
  ASSERT_NE(proxy, nullptr);
  EXPECT_TRUE(eventuallyRunning([&] { return log_.count(kUnable) == 2; }));
  EXPECT_TRUE(notices_.empty());

  FakeDaemon daemon(bundle_.daemonPath());
  daemon.answer("pausedMinutes", 7);
  EXPECT_TRUE(eventuallyRunning([&] { return controller_->connected(); }));
  EXPECT_EQ(controller_->proxy(), proxy);
  EXPECT_EQ(proxy->pausedMinutes(), 7U) << "the socket that has connected is still the proxy's";
  EXPECT_EQ(timers(), 0U);
  EXPECT_EQ(notices_, (std::vector<bool>{true}));
}

TEST_F(ConnectionControllerTest, TheRetryTimerHasASecondsInterval) {
  controller_->start();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(eventuallyRunning([&] { return log_.count(kUnable) == 3; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
}

TEST_F(ConnectionControllerTest, StopTellsEvenWhenThereNeverWasAConnection) {
  controller_->start();
  controller_->stop();
  EXPECT_EQ(notices_, (std::vector<bool>{false}));
  EXPECT_EQ(timers(), 0U);
  EXPECT_EQ(controller_->proxy(), nullptr);
}

TEST_F(ConnectionControllerTest, StopWithoutStartTellsToo) {
  controller_->stop();
  EXPECT_EQ(notices_, (std::vector<bool>{false}));
}

TEST_F(ConnectionControllerTest, IsGoneWhenItTells) {
  FakeDaemon daemon(bundle_.daemonPath());
  controller_->start();
  ASSERT_TRUE(daemon.waitForClients(1));
  bool told = false;
  NotificationCenter::defaultCenter().addObserver(&told, KeldaneConnectionReadyChangedNotification,
                                                  controller_.get(), [&](const Notification&) {
                                                    told = true;
                                                    EXPECT_EQ(controller_->proxy(), nullptr);
                                                    EXPECT_EQ(timers(), 0U);
                                                    EXPECT_TRUE(daemon.waitForClients(0));
                                                  });
  controller_->stop();
  NotificationCenter::defaultCenter().removeObserver(&told);
  EXPECT_TRUE(told);
  EXPECT_EQ(notices_, (std::vector<bool>{true, false}));
  EXPECT_TRUE(daemon.waitForClients(0));
}

TEST_F(ConnectionControllerTest, StartsAfreshAfterStop) {
  FakeDaemon daemon(bundle_.daemonPath());
  controller_->start();
  ASSERT_TRUE(daemon.waitForClients(1));
  const std::shared_ptr<KeldaneProxy> first = controller_->proxy();
  controller_->stop();
  ASSERT_TRUE(daemon.waitForClients(0));
  controller_->start();
  EXPECT_TRUE(controller_->connected());
  EXPECT_NE(controller_->proxy(), nullptr);
  EXPECT_NE(controller_->proxy(), first);
  EXPECT_EQ(notices_, (std::vector<bool>{true, false, true}));
  ASSERT_TRUE(daemon.waitForClients(1));
  daemon.hangUp();
  EXPECT_TRUE(eventuallyRunning([&] { return log_.has("ConnectionController::socketFailed:"); }))
      << "the new socket reports to the controller too";
}

TEST_F(ConnectionControllerTest, TriesEverySecondForALostConnectionWhateverWasAskedFor) {
  auto daemon = std::make_unique<FakeDaemon>(bundle_.daemonPath());
  controller_->disableConnectTimer();
  controller_->start();
  const std::shared_ptr<KeldaneProxy> first = controller_->proxy();
  ASSERT_TRUE(daemon->waitForClients(1));
  daemon.reset();
  EXPECT_TRUE(eventuallyRunning([&] { return log_.has("ConnectionController::socketFailed:"); }));
  EXPECT_FALSE(controller_->connected());
  EXPECT_EQ(timers(), 1U);
  EXPECT_EQ(notices_, (std::vector<bool>{true, false}));
  EXPECT_EQ(controller_->proxy(), nullptr);

  daemon = std::make_unique<FakeDaemon>(bundle_.daemonPath());
  EXPECT_TRUE(eventuallyRunning([&] { return controller_->connected(); }));
  EXPECT_EQ(timers(), 0U);
  EXPECT_NE(controller_->proxy(), first);
  EXPECT_EQ(notices_, (std::vector<bool>{true, false, true}));
}

TEST_F(ConnectionControllerTest, AWriteThatFailsTakesTheLinkDownBeforeTheCallReturns) {
  FakeDaemon daemon(bundle_.daemonPath());
  controller_->start();
  ASSERT_TRUE(daemon.waitForClients(1));
  daemon.hangUp();
  const std::shared_ptr<KeldaneProxy> proxy = controller_->proxy();
  EXPECT_EQ(proxy->pausedMinutes(), 0U);
  EXPECT_FALSE(controller_->connected());
  EXPECT_EQ(notices_, (std::vector<bool>{true, false}));
  EXPECT_EQ(timers(), 1U);
}

TEST_F(ConnectionControllerTest, IgnoresTheBrokenPipeSignalFromTheFirstAttemptOn) {
  std::signal(SIGPIPE, SIG_DFL);
  controller_->disableConnectTimer();
  controller_->start();
  struct sigaction now {};
  sigaction(SIGPIPE, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
  controller_->stop();
  sigaction(SIGPIPE, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_IGN) << "and never takes it back";
}

TEST_F(ConnectionControllerTest, ItsTimerNeitherKeepsItNorOutlivesIt) {
  controller_->start();
  ASSERT_EQ(timers(), 1U);
  NotificationCenter::defaultCenter().removeObserver(this);
  const std::weak_ptr<ConnectionController> weak = controller_;
  controller_->stop();
  controller_ = ConnectionController::initWithProxyDelegate({});
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(timers(), 0U);
}

TEST_F(ConnectionControllerTest, MayBeLetGoByAnObserverOfItsFailure) {
  FakeDaemon daemon(bundle_.daemonPath());
  auto owned = ConnectionController::initWithProxyDelegate({});
  owned->setBundle(bundle_.bundle());
  owned->disableConnectTimer();
  owned->start();
  ASSERT_TRUE(daemon.waitForClients(1));
  int token = 0;
  NotificationCenter::defaultCenter().addObserver(
      &token, KeldaneConnectionReadyChangedNotification, owned.get(), [&](const Notification&) {
        NotificationCenter::defaultCenter().removeObserver(&token);
        owned.reset();
      });
  daemon.hangUp();
  EXPECT_TRUE(eventuallyRunning([&] { return owned == nullptr; }));
  EXPECT_TRUE(eventuallyRunning([&] { return timers() == 0; }));
}

class Delegate final : public InvocationTarget {
 public:
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    static constexpr MethodSignature kMethod = {"stateChanged:", 'v', "@"};
    return selector == kMethod.selector ? &kMethod : nullptr;
  }
  void invoke(Invocation& invocation) override {
    EXPECT_TRUE(Host::shared().isMainThread());
    received = invocation.arguments.front().encoded();
  }
  PropertyList received;
};

TEST_F(ConnectionControllerTest, HandsTheDaemonsCallsToItsDelegateOnTheMainThread) {
  FakeDaemon daemon(bundle_.daemonPath());
  const auto delegate = std::make_shared<Delegate>();
  const auto controller = ConnectionController::initWithProxyDelegate(delegate);
  controller->setBundle(bundle_.bundle());
  controller->start();
  ASSERT_TRUE(daemon.waitForClients(1));
  daemon.tellClients("news");
  EXPECT_TRUE(eventuallyRunning([&] { return delegate->received == PropertyList("news"); }));
  EXPECT_EQ(delegate.use_count(), 1) << "not owned";
  controller->stop();
}

/// Values for the daemon's path in a bundle that lead nowhere.
class UselessDaemonPath : public ::testing::TestWithParam<testing::Labelled<PropertyList>> {};

TEST_P(UselessDaemonPath, ConnectsToNothing) {
  const testing::LogCapture log;
  gLoggingEnabled = true;
  PropertyList::Entries entries = {{"CFBundleName", "Test"}};
  entries.emplace_back("DaemonPath", GetParam().value);  // an entry with an absent value is left out
  const ClientBundle bundle(entries);
  const auto controller = ConnectionController::initWithProxyDelegate({});
  controller->setBundle(bundle.bundle());
  controller->disableConnectTimer();
  controller->start();
  EXPECT_FALSE(controller->connected());
  EXPECT_EQ(log.count(kUnable), 1U);
  controller->stop();
  gLoggingEnabled = false;
}

const testing::Labelled<PropertyList> kUselessPaths[] = {{"Absent", {}},
                                                         {"Empty", ""},
                                                         {"Number", 5},
                                                         {"Array", PropertyList::array({"/tmp"})},
                                                         {"Root", "/"},
                                                         {"Folder", "/tmp"},
                                                         {"Relative", "relative"},
                                                         {"LeadingNul", std::string("\0name", 5)},
                                                         {"TooLong", "/" + std::string(5000, 'x')}};

INSTANTIATE_TEST_SUITE_P(ConnectionController, UselessDaemonPath, ::testing::ValuesIn(kUselessPaths),
                         testing::byLabel);

TEST(ConnectionControllerWithoutABundle, ConnectsToNothing) {
  const auto controller = ConnectionController::initWithProxyDelegate({});
  controller->setBundle(nullptr);
  controller->disableConnectTimer();
  controller->start();
  EXPECT_FALSE(controller->connected());
  controller->stop();
}

TEST(ConnectionControllerByDefault, AsksTheProcesssMainBundle) {
  const ClientBundle bundle;
  FakeDaemon daemon(bundle.daemonPath());
  Bundle::setMainBundle(bundle.bundle());
  const auto controller = ConnectionController::initWithProxyDelegate({});
  controller->start();
  EXPECT_TRUE(controller->connected());
  controller->stop();
  Bundle::setMainBundle(nullptr);
}

}  // namespace
}  // namespace keldane
