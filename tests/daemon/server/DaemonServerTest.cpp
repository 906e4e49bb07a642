#include "daemon/server/DaemonServer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/daemon/server/ServerFixture.h"

namespace keldane {
namespace {

using testing::Client;
using testing::connectedTo;
using testing::DaemonServerTest;
using testing::eventually;

TEST_F(DaemonServerTest, TellsAClientThatWantsToKnowOfTheState) {
  struct Listener : InvocationTarget {
    const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
      return KeldaneClientProtocol.find(selector);
    }
    void invoke(Invocation& invocation) override {
      const std::lock_guard guard(mutex);
      last = invocation.arguments.at(0).as<'@'>();
    }
    std::mutex mutex;
    PropertyList last;
  };
  const auto listener = std::make_shared<Listener>();
  client_->proxy().setDelegate(listener);
  const auto seen = [&](const char* text) {
    return eventually([&] {
      const std::lock_guard guard(listener->mutex);
      return listener->last["statusString"] == PropertyList(text);
    });
  };
  (*client_)->setStateHandler();
  EXPECT_TRUE(seen("Up to date"));
  (*client_)->setPausedMinutes(5U);
  EXPECT_TRUE(seen("Paused"));
  (*client_)->endStateHandler();
}

TEST_F(DaemonServerTest, TellsEveryAlertInItsOrderToWhoeverAskedForThem) {
  struct Listener final : InvocationTarget {
    const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
      return KeldaneClientProtocol.find(selector);
    }
    void invoke(Invocation& invocation) override {
      const std::lock_guard guard(mutex);
      if (invocation.signature.selector == "alertRaised:") {
        texts.emplace_back(invocation.arguments[0].encoded()["text"].string());
      }
    }
    std::mutex mutex;
    std::vector<std::string> texts;
  };
  const auto listener = std::make_shared<Listener>();
  client_->proxy().setDelegate(listener);
  (*client_)->setStateHandler();  // the state comes over the same link
  (*client_)->setAlertHandler();
  EXPECT_EQ((*client_)->serviceState(), 1U) << "what was said before this is done";
  const std::vector<std::string> alerts = {"one", "two", "three", "four", "five"};
  for (const std::string& text : alerts) {
    daemon_->announce("alertRaised:", PropertyList::dictionary({{"text", text}}));
  }
  EXPECT_TRUE(eventually([&] {
    const std::lock_guard guard(listener->mutex);
    return listener->texts == alerts;
  }));
}

TEST_F(DaemonServerTest, ServesManyPeersAtOnce) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 50; ++i) {
    clients.push_back(std::make_unique<Client>(options_.socket));
    ASSERT_TRUE(clients.back()->connected());
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < 5; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        Client& client = *clients[static_cast<std::size_t>(10 * t + i % 10)];
        EXPECT_EQ(client->dictionaryForPath(docs("a.txt"), 0)["fileName"].string(), "a.txt");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(DaemonServerTest, LetsGoOfAPeerThatAnsweredUnasked) {
  EXPECT_EQ((*client_)->getCurrentRestoreJob(), 0U);  // every thread exists from here on
  const std::ptrdiff_t threads = testing::settledThreadCount();
  for (int i = 0; i < 4; ++i) {
    testing::RawConnection peer = connectedTo(options_.socket);
    peer.writeFrame(kResponseFrame, "");
    peer.writeFrame(kRequestFrame, testing::RawConnection::payloadOf(
                                       PropertyList::array({4, "I", "getCurrentRestoreJob", 0})));
    EXPECT_EQ(peer.readFrame().value(), PropertyList(0));
  }
  EXPECT_TRUE(eventually([&] { return testing::countOf("task") <= threads; }))
      << "the word that the link failed waits for nobody to take the answer";
}

TEST_F(DaemonServerTest, RefusesASecondServerOnItsSocket) {
  const auto second = std::make_shared<DaemonServer>(daemon_, options_.socket);
  std::string error;
  EXPECT_FALSE(second->start(&error));
  EXPECT_EQ(error, "Another keldaned already serves " + options_.socket + ".");
  EXPECT_EQ(state(docs("a.txt")), "Not selected for backup") << "and the first goes on";
}

TEST_F(DaemonServerTest, DoesNotRemoveWhatIsNoSocket) {
  const std::string path = folder_.write("precious", "data");
  const auto server = std::make_shared<DaemonServer>(daemon_, path);
  std::string error;
  EXPECT_FALSE(server->start(&error));
  EXPECT_NE(error.find(path), std::string::npos);
  EXPECT_EQ(testing::readWhole(path), "data");
  const auto tooLong = std::make_shared<DaemonServer>(daemon_, "/tmp/" + std::string(120, 'x'));
  EXPECT_FALSE(tooLong->start(&error));
}

TEST_F(DaemonServerTest, MakesTheFolderOfItsSocketForEveryUser) {
  const mode_t mask = umask(077);
  const auto server = std::make_shared<DaemonServer>(daemon_, folder_ / "run/d.sock");
  std::string error;
  EXPECT_TRUE(server->start(&error)) << error;
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat((folder_ / "run").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0755U);
  server->stop();
}

TEST_F(DaemonServerTest, TakesASocketOverOnlyIfNobodyAnswers) {
  const testing::RawPeer alive;
  std::string error;
  EXPECT_FALSE(std::make_shared<DaemonServer>(daemon_, alive.path())->start(&error));
  EXPECT_EQ(error, "Another program already serves " + alive.path() + ".");
  std::vector<testing::RawConnection> queue;
  for (int i = 0; i < 10; ++i) {  // these wait behind the one that has just asked
    queue.push_back(connectedTo(alive.path()));
  }
  EXPECT_FALSE(std::make_shared<DaemonServer>(daemon_, alive.path())->start(&error)) << "its queue is full";

  const std::string stale = folder_ / "stale.sock";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  stale.copy(address.sun_path, sizeof(address.sun_path) - 1);
  {
    const Descriptor dead(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(dead.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  }
  const auto server = std::make_shared<DaemonServer>(daemon_, stale);
  EXPECT_TRUE(server->start(&error)) << error;
  server->stop();
}

TEST_F(DaemonServerTest, FollowsNoLinkAtItsSocketOrItsLock) {
  const std::string precious = folder_.write("precious", "data");
  std::filesystem::create_symlink(precious, folder_ / "l.sock");
  std::string error;
  EXPECT_FALSE(std::make_shared<DaemonServer>(daemon_, folder_ / "l.sock")->start(&error));
  EXPECT_EQ(error, (folder_ / "l.sock") + " is in the way: it is no socket.");
  std::filesystem::create_symlink(precious, folder_ / "m.sock.lock");
  EXPECT_FALSE(std::make_shared<DaemonServer>(daemon_, folder_ / "m.sock")->start(&error));
  EXPECT_EQ(testing::readWhole(precious), "data");
  EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "l.sock"));
}

TEST_F(DaemonServerTest, ServesNotWhereOthersCanWriteUnlessAskedTo) {
  std::filesystem::create_directory(folder_ / "shared");
  ASSERT_EQ(chmod((folder_ / "shared").c_str(), 01777), 0);
  const std::string path = folder_ / "shared/d.sock";
  std::string error;
  EXPECT_FALSE(std::make_shared<DaemonServer>(daemon_, path)->start(&error));
  EXPECT_EQ(error, "Others can write to the folder " + (folder_ / "shared") + ". The socket " + path +
                       " is not safe there (--allow-shared-folder).");
  EXPECT_TRUE(std::filesystem::is_empty(folder_ / "shared")) << "and nothing is left there";
  const auto server = std::make_shared<DaemonServer>(daemon_, path, true);
  EXPECT_TRUE(server->start(&error)) << error;
  server->stop();
}

TEST_F(DaemonServerTest, UsesNoLockOfAnotherUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root gives files away";
  }
  const std::string lock = folder_.write("o.sock.lock", "");
  ASSERT_EQ(chown(lock.c_str(), 4123456, 4123456), 0);
  std::string error;
  EXPECT_FALSE(std::make_shared<DaemonServer>(daemon_, folder_ / "o.sock")->start(&error));
  EXPECT_EQ(error, "The lock " + lock + " is another user's.");
}

TEST_F(DaemonServerTest, LeavesNoSocketBehind) {
  end();
  EXPECT_FALSE(std::filesystem::exists(options_.socket));
}

}  // namespace
}  // namespace keldane
