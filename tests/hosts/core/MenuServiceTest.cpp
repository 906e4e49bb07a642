#include "hosts/core/MenuService.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <future>
#include <mutex>
#include <stdexcept>

#include "platform/bundle/Bundle.h"
#include "platform/runloop/RunLoop.h"
#include "tests/hosts/core/HeldListener.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/FakeDaemon.h"
#include "tests/support/process/SignalMasks.h"

namespace keldane {
namespace {

using testing::eventually;
using testing::FakeDaemon;
using Menu = std::shared_ptr<const OfferedMenu>;

constexpr auto kLong = MenuService::Patience(60000);
constexpr auto kShort = MenuService::Patience(20);
constexpr std::uint32_t kAdd = fourCharCode("r2d<");
constexpr char kQuestion[] = "dictionaryForPath:withDirSizes:";

/// Holds the daemon's answers back until it is opened.
class Gate {
 public:
  void close() { set(true); }
  void open() { set(false); }
  void pass() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return !closed_; });
  }

 private:
  void set(bool closed) {
    {
      const std::lock_guard guard(mutex_);
      closed_ = closed;
    }
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  bool closed_ = false;
};

class MenuServiceTest : public ::testing::Test {
 protected:
  void listen() {
    daemon_ = std::make_unique<FakeDaemon>(bundle_.daemonPath());
    daemon_->answer(kQuestion, [this](const PropertyList::Array& arguments) {
      gate_.pass();
      return PropertyList::dictionary(
          {{"path", arguments[0]}, {"simpleFlags", 2}, {"state", "Not selected for backup"}});
    });
  }
  MenuService& service(MenuService::Patience patience = kLong) {
    if (!service_) {
      service_ = std::make_unique<MenuService>(bundle_.path(), patience);
      service_->setLateListener([this] { ++late_; });
    }
    return *service_;
  }
  static std::vector<std::string> titles(const Menu& menu) {
    std::vector<std::string> titles;
    if (menu && !menu->items.empty()) {
      for (const MenuItem& item : menu->items.front().items) {
        titles.push_back(item.title);
      }
    }
    return titles;
  }
  /// The number of times that the daemon was asked about a path.
  std::size_t questions(const std::string& path) const {
    std::size_t count = 0;
    for (const testing::DaemonCall& call : daemon_->calls()) {
      count += call.selector == kQuestion && call.arguments[0] == PropertyList(path) ? 1U : 0U;
    }
    return count;
  }

  /// Expects that `removal`, which removes the late listener, returns only after a call of it that is under
  /// way.
  void expectToWaitForTheListener(const std::function<void()>& removal) {
    const testing::HeldListener held;
    gate_.close();
    listen();
    service(kShort).setLateListener(held.listener());
    EXPECT_EQ(service().menuFor({"/a"}), nullptr);
    gate_.open();
    ASSERT_TRUE(held.isCalled());
    EXPECT_TRUE(service().menuFor({"/a"})) << "no menu waits for the listener";
    held.expectToOutlast(removal);
  }

  testing::UserPreferences user_;
  testing::PluginBundle bundle_;
  Gate gate_;
  std::unique_ptr<FakeDaemon> daemon_;
  std::atomic<int> late_ = 0;
  std::unique_ptr<MenuService> service_;
};

const std::vector<std::string> kOffers = {"Status: Not selected for backup", "-", "Back This Up", "-",
                                          "Open Keldane Preferences…"};

TEST_F(MenuServiceTest, AnswersThePluginsMenu) {
  listen();
  const Menu menu = service().menuFor({"/a"});
  ASSERT_TRUE(menu);
  EXPECT_EQ(menu->items.front().title, "Keldane");
  EXPECT_EQ(titles(menu), kOffers);
  EXPECT_EQ(late_, 0);
}

TEST_F(MenuServiceTest, ExaminesOnceHoweverOftenTheToolkitAsksForOneMenu) {
  listen();
  const Menu first = service().menuFor({"/a"});
  const std::size_t once = questions("/a");
  EXPECT_GT(once, 0U);
  const Menu second = service().menuFor({"/a"});
  EXPECT_EQ(second->number, first->number);
  EXPECT_EQ(questions("/a"), once);
  EXPECT_EQ(service().rememberedMenuFor({"/a"})->number, first->number);
  EXPECT_EQ(service().rememberedMenuFor({"/b"}), nullptr);
}

TEST_F(MenuServiceTest, ExaminesAnewForANewMenu) {
  listen();
  const Menu first = service().menuFor({"/a"});
  service().forget();
  EXPECT_EQ(service().rememberedMenuFor({"/a"}), nullptr);
  const Menu second = service().menuFor({"/a"});
  EXPECT_GT(second->number, first->number);
}

TEST_F(MenuServiceTest, TheCycleEndsWhenTheItemsAreGone) {
  listen();
  Menu menu = service().menuFor({"/a"});
  Menu again = service().menuFor({"/a"});
  ASSERT_TRUE(daemon_->waitForClients(1));
  menu.reset();
  again.reset();
  EXPECT_TRUE(daemon_->waitForClients(0));
  EXPECT_TRUE(eventually([&] { return service().rememberedMenuFor({"/a"}) == nullptr; }));
}

TEST_F(MenuServiceTest, ItemsThatAreMadeAnewGoOnWithTheCycle) {
  listen();
  Menu menu = service().menuFor({"/a"});
  const std::uint64_t number = menu->number;
  for (int i = 0; i < 10; ++i) {
    menu.reset();
    menu = service().menuFor({"/a"});
    ASSERT_TRUE(menu);
    EXPECT_EQ(menu->number, number);
  }
}

TEST_F(MenuServiceTest, CarriesACommandOutOnceAndEndsTheCycle) {
  listen();
  const Menu menu = service().menuFor({"/a", "/b"});
  service().choose(*menu, kAdd);
  service().choose(*menu, kAdd);
  EXPECT_TRUE(daemon_->waitForClients(0));
  EXPECT_TRUE(eventually([&] { return daemon_->count("addFileToBackup:") == 2; }));
  const Menu next = service().menuFor({"/c"});
  EXPECT_EQ(daemon_->count("addFileToBackup:"), 2U);
}

TEST_F(MenuServiceTest, AnItemOfAnOlderMenuStillDoesWhatItSays) {
  listen();
  const Menu menu = service().menuFor({"/a"});
  service().forget();
  const Menu newer = service().menuFor({"/b"});
  service().choose(*menu, kAdd);
  ASSERT_TRUE(eventually([&] { return daemon_->count("addFileToBackup:") == 1; }));
  for (const testing::DaemonCall& call : daemon_->calls()) {
    if (call.selector == "addFileToBackup:") {
      EXPECT_EQ(call.arguments[0], PropertyList("/a"));
    }
  }
}

TEST_F(MenuServiceTest, DoesNotWaitForADaemonThatHangs) {
  listen();
  gate_.close();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(service(kShort).menuFor({"/a"}), nullptr);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(service().menuFor({"/" + std::to_string(i)}), nullptr);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  gate_.open();
}

TEST_F(MenuServiceTest, TellsWhenALateMenuIsThere) {
  listen();
  gate_.close();
  EXPECT_EQ(service(kShort).menuFor({"/a"}), nullptr);
  EXPECT_EQ(service().menuFor({"/a"}), nullptr);
  EXPECT_EQ(late_, 0);
  gate_.open();
  ASSERT_TRUE(eventually([&] { return late_ == 1; }));
  const std::size_t asked = questions("/a");
  EXPECT_EQ(titles(service().menuFor({"/a"})), kOffers);
  EXPECT_EQ(questions("/a"), asked) << "the menu that came late is the one that is shown";
}

TEST_F(MenuServiceTest, ALateListenerIsReplacedAfterItsCallHasEnded) {
  expectToWaitForTheListener([&] { service_->setLateListener(nullptr); });
}

TEST_F(MenuServiceTest, EndsAfterACallOfTheLateListenerHasEnded) {
  expectToWaitForTheListener([&] { service_.reset(); });
}

TEST_F(MenuServiceTest, AMenuThatCameLateIsThereWhenTheNextIsOpened) {
  listen();
  gate_.close();
  EXPECT_FALSE(service(kShort).menuFor({"/a"}));
  gate_.open();
  ASSERT_TRUE(eventually([&] { return late_ == 1; }));
  const std::size_t once = questions("/a");
  service().forget();
  Menu menu = service().rememberedMenuFor({"/a"});
  EXPECT_EQ(titles(menu), kOffers);
  EXPECT_EQ(questions("/a"), once);
  service().forget();
  EXPECT_FALSE(service().rememberedMenuFor({"/a"})) << "it was seen, and may be out of date";
}

TEST_F(MenuServiceTest, AMenuThatCameLateIsOfNoUseToAnotherSelection) {
  listen();
  gate_.close();
  EXPECT_FALSE(service(kShort).menuFor({"/a"}));
  gate_.open();
  ASSERT_TRUE(eventually([&] { return late_ == 1; }));
  service().forget();
  EXPECT_FALSE(service().rememberedMenuFor({"/b"}));
  ASSERT_TRUE(eventually([&] { return service().menuFor({"/b"}) != nullptr; }));
  EXPECT_FALSE(service().rememberedMenuFor({"/a"}));
}

TEST_F(MenuServiceTest, OfTheSelectionsThatComeMeanwhileTheLastIsExamined) {
  listen();
  gate_.close();
  EXPECT_EQ(service(kShort).menuFor({"/a"}), nullptr);
  EXPECT_EQ(service().menuFor({"/b"}), nullptr);
  EXPECT_EQ(service().menuFor({"/c"}), nullptr);
  EXPECT_EQ(service().menuFor({"/d"}), nullptr);
  gate_.open();
  ASSERT_TRUE(eventually([&] { return service().rememberedMenuFor({"/d"}) != nullptr; }));
  EXPECT_EQ(questions("/b") + questions("/c"), 0U);
  EXPECT_EQ(service().rememberedMenuFor({"/a"}), nullptr);
}

TEST_F(MenuServiceTest, TheNextMenuWorksWhenTheLinkToAHangingDaemonFails) {
  listen();
  gate_.close();
  EXPECT_EQ(service(kShort).menuFor({"/a"}), nullptr);
  daemon_->hangUp();
  gate_.open();
  EXPECT_TRUE(eventually([&] {
    service().forget();
    const Menu menu = service().menuFor({"/b"});
    return titles(menu) == kOffers;
  }));
}

TEST_F(MenuServiceTest, ACommandThatIsChosenWhileTheDaemonHangsIsNotLost) {
  listen();
  const Menu menu = service(kShort).menuFor({"/a"});
  Menu first = menu;
  if (!first) {
    ASSERT_TRUE(eventually([&] { return (first = service().rememberedMenuFor({"/a"})) != nullptr; }));
  }
  gate_.close();
  service().forget();
  EXPECT_EQ(service().menuFor({"/b"}), nullptr);
  service().choose(*first, kAdd);
  gate_.open();
  EXPECT_TRUE(eventually([&] { return daemon_->count("addFileToBackup:") == 1; }));
}

TEST_F(MenuServiceTest, WithoutADaemonThereIsNothingToShow) {
  const Menu menu = service().menuFor({"/a"});
  ASSERT_TRUE(menu);
  EXPECT_TRUE(menu->items.empty());
}

TEST_F(MenuServiceTest, WithoutAPluginThereIsNothingToShowUntilThereIsOne) {
  const std::string place = bundle_.folder() / "Later.plugin";
  MenuService other(place, kLong);
  const Menu menu = other.menuFor({"/a"});
  ASSERT_TRUE(menu);
  EXPECT_TRUE(menu->items.empty());
  listen();
  std::filesystem::copy(bundle_.path(), place, std::filesystem::copy_options::recursive);
  other.forget();
  EXPECT_EQ(titles(other.menuFor({"/a"})), kOffers);
}

/// Runs in a process of its own in which no run loop has been made yet, because making one takes descriptors.
[[noreturn]] void startWithoutDescriptors() {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none = {3, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  MenuService service("/none", kLong);
  const bool isRefused = !service.menuFor({"/a"});
  setrlimit(RLIMIT_NOFILE, &before);
  const bool isServed = service.menuFor({"/a"}) != nullptr;
  _exit(isRefused && isServed ? 0 : 1);
}

TEST(MenuServiceDeathTest, WithoutDescriptorsTriesAgainWithTheNextMenu) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(startWithoutDescriptors(), ::testing::ExitedWithCode(0), "");
}

TEST_F(MenuServiceTest, ManySelectedItemsAreOneMenu) {
  listen();
  std::vector<std::string> paths;
  for (int i = 0; i < 10000; ++i) {
    paths.push_back("/folder/" + std::to_string(i));
  }
  const Menu menu = service().menuFor(paths);
  ASSERT_NE(menu, nullptr);
  EXPECT_EQ(titles(menu).front(), "Status: <multiple files selected>");
}

TEST_F(MenuServiceTest, GoesAtOnceWhileThePluginIsStuck) {
  listen();
  gate_.close();
  EXPECT_EQ(service(kShort).menuFor({"/a"}), nullptr);
  const auto start = std::chrono::steady_clock::now();
  service_.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  gate_.open();
  EXPECT_TRUE(daemon_->waitForClients(0)) << "the thread that was left behind ends its cycle";
}

TEST_F(MenuServiceTest, LeavesTheHostsSignalsToTheHostsThreads) {
  listen();
  const std::size_t before = testing::threadsThatTake(SIGCHLD);
  ASSERT_TRUE(service().menuFor({"/a"}));
  EXPECT_EQ(testing::threadsThatTake(SIGCHLD), before);
}

TEST(MenuServicePatience, IsWhatTheEnvironmentSaysInReason) {
  const std::pair<const char*, int> cases[] = {{"1", 1},    {"60000", 60000}, {"60001", 100}, {"0", 100},
                                               {"-5", 100}, {"", 100},        {"1s", 100},    {"soon", 100}};
  unsetenv("KELDANE_MENU_PATIENCE");
  EXPECT_EQ(MenuService::configuredPatience().count(), 100);
  for (const auto& [text, milliseconds] : cases) {
    setenv("KELDANE_MENU_PATIENCE", text, 1);
    EXPECT_EQ(MenuService::configuredPatience().count(), milliseconds) << text;
  }
  unsetenv("KELDANE_MENU_PATIENCE");
}

TEST_F(MenuServiceTest, KnowsWhatToSayForAMenuThatDoesNotCome) {
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_EQ(service().notRespondingTitle(), "Keldane is not responding") << "no bundle has been read";
  const Menu menu = service().menuFor({"/a"});
  EXPECT_EQ(service().notRespondingTitle(), "Keldane antwortet nicht");
  unsetenv("LC_ALL");
}

TEST_F(MenuServiceTest, AThreadThatAnExceptionEndedIsStartedAgain) {
  listen();
  MenuService& menus = service(kShort);
  ASSERT_TRUE(eventually([&] { return menus.menuFor({"/a"}) != nullptr; }));
  std::promise<void> released;
  RunLoop::main().perform([&] {
    released.get_future().wait();
    throw std::runtime_error("thrown by the test");
  });
  EXPECT_FALSE(menus.menuFor({"/b"})) << "the examination is queued behind the exception";
  released.set_value();
  EXPECT_TRUE(eventually([&] { return menus.menuFor({"/b"}) != nullptr; }));
}

}  // namespace
}  // namespace keldane
