#include "daemon/server/DaemonServer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "Common/FileNode.h"
#include "tests/daemon/server/ServerFixture.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Program.h"

namespace keldane {
namespace {

using testing::Client;
using testing::connectedTo;
using testing::DaemonServerTest;
using testing::eventually;
using testing::TemporaryFolder;

TEST_F(DaemonServerTest, AFileNeverSeenCanBeChosen) {
  const PropertyList value = node(docs("a.txt"));
  EXPECT_EQ(value["state"].string(), "Not selected for backup");
  EXPECT_EQ(value["fileName"].string(), "a.txt");
  EXPECT_EQ(value["path"].string(), docs("a.txt"));
  EXPECT_EQ(value["size"].intValue(), 5);
  EXPECT_EQ(value["uid"].unsignedIntValue(), getuid());
  EXPECT_FALSE(value["isDirectory"].boolValue());
  EXPECT_TRUE(value["backupDate"].isAbsent());
  const std::uint32_t flags = value["simpleFlags"].unsignedIntValue();
  EXPECT_EQ(flags & 7U, simple_flags::kEnabled);
  EXPECT_EQ(flags & 0x70000U, simple_flags::kPriorityEnabled | simple_flags::kPriorityVisible);
}

TEST_F(DaemonServerTest, WhatIsAddedIsBackedUpAndWhatIsRemovedIsNot) {
  (*client_)->addFileToBackup(docs("a.txt"));
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  const PropertyList value = node(docs("a.txt"));
  EXPECT_TRUE(value["backupDate"].isDate());
  EXPECT_EQ(value["version"].intValue(), 1);
  EXPECT_EQ(value["backupColor"].intValue(), 2);
  EXPECT_EQ(value["simpleFlags"].unsignedIntValue() & 0x70007U,
            simple_flags::kEnabled | simple_flags::kChecked);
  EXPECT_EQ(value["backupFlags"].unsignedIntValue(),
            backup_flags::kBackup | backup_flags::kBackedUp | backup_flags::kInclude);
  (*client_)->removeFileFromBackup(docs("a.txt"));
  EXPECT_EQ(state(docs("a.txt")), "Not selected for backup");
  EXPECT_EQ(simple(docs("a.txt")) & 7U, simple_flags::kEnabled);
}

TEST_F(DaemonServerTest, AFolderTakesWhatIsInIt) {
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomes(docs("b.txt"), "Backed up"));
  ASSERT_TRUE(becomes(docs(), "Backed up"));
  const PropertyList value = (*client_)->dictionaryForPath(docs(), 1);
  EXPECT_TRUE(value["isDirectory"].boolValue());
  EXPECT_EQ(value["size"].intValue(), 9);
  EXPECT_EQ(value["totalCount"].intValue(), 2);
  EXPECT_EQ(node(docs())["size"].intValue(), 0) << "sizes of folders on demand only";
  (*client_)->removeFileFromBackup(docs("a.txt"));
  EXPECT_EQ(simple(docs()) & 7U, simple_flags::kEnabled | simple_flags::kChecked | simple_flags::kGrayed);
  (*client_)->removeFileFromBackup(docs());
  (*client_)->addFileToBackup(docs("b.txt"));
  EXPECT_EQ(state(docs()), "Partly selected for backup");
}

TEST_F(DaemonServerTest, EachStandingHasItsText) {
  EXPECT_EQ(state("/etc/passwd"), "Excluded by policy");
  EXPECT_EQ(simple("/etc/passwd"), 0U) << "no choice";
  EXPECT_EQ(node("/etc/passwd")["backupColor"].intValue(), 4);
  EXPECT_EQ(state(options_.store), "Excluded by policy");
  (*client_)->setPausedMinutes(10U);
  (*client_)->addFileToBackup(docs("a.txt"));
  EXPECT_EQ(state(docs("a.txt")), "Waiting to be backed up");
  EXPECT_EQ(node(docs("a.txt"))["backupColor"].intValue(), 3);
  (*client_)->setPriorityBackup(docs("a.txt"));
  EXPECT_NE(simple(docs("a.txt")) & simple_flags::kPriorityChecked, 0U);
  (*client_)->setPausedMinutes(0U);
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  // The batch is over a moment after the file counts as stored.
  ASSERT_TRUE(eventually([&] { return (*client_)->daemonState()["pendingFileCount"].intValue() == 0; }));
  (*client_)->setPausedMinutes(10U);
  folder_.write("home/docs/a.txt", "alpha, changed");
  EXPECT_EQ(state(docs("a.txt")), "Changed since last backup");
  std::filesystem::remove(docs("a.txt"));
  EXPECT_EQ(state(docs("a.txt")), "Deleted here, still in the backup");
  EXPECT_NE(node(docs("a.txt"))["backupFlags"].unsignedIntValue() & backup_flags::kMissing, 0U);
  (*client_)->addFileToBackup(docs());
  folder_.write("home/docs/new.txt", "");
  EXPECT_TRUE(eventually([&] { return node(docs("new.txt"))["backupColor"].intValue() == 3; }));
  EXPECT_TRUE(node(docs("never")).isAbsent());
}

TEST_F(DaemonServerTest, ListsTheChildrenOfAFolder) {
  const PropertyList children = (*client_)->childrenDictionariesForPath(docs());
  ASSERT_EQ(children.count(), 2U);
  EXPECT_EQ(children[0]["fileName"].string(), "a.txt");
  EXPECT_EQ(children[1]["path"].string(), docs("b.txt"));
  EXPECT_TRUE((*client_)->childrenDictionariesForPath(docs("a.txt")).isAbsent());
}

TEST_F(DaemonServerTest, TypesHaveRules) {
  EXPECT_EQ((*client_)->getFileTypeToggle(".txt"), 0U);
  (*client_)->setFileTypeToggle(".txt", 6U);
  EXPECT_EQ((*client_)->getFileTypeToggle(".txt"), 6U);
  EXPECT_TRUE(becomes(docs("a.txt"), "Backed up"));
  EXPECT_NE(simple(docs("a.txt")) & simple_flags::kTypeChecked, 0U);
  (*client_)->setFileTypeToggle(".txt", 7U);
  EXPECT_EQ(state(docs("a.txt")), "Not selected for backup");
  (*client_)->setFileTypeToggle(".txt", 99U);
  EXPECT_EQ((*client_)->getFileTypeToggle(".txt"), 7U) << "no such toggle";
}

TEST_F(DaemonServerTest, WhatIsIgnoredCanBeSeenAndChanged) {
  (*client_)->addFileToBackup(docs());
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  EXPECT_NE((*client_)->stringValueForProfileKey("Ignored").string().find("@cache-tag"), std::string::npos);
  (*client_)->setValueForProfileKey("Ignored", "a.*\n");
  EXPECT_TRUE(becomes(docs("a.txt"), "Not selected for backup"));
  EXPECT_EQ((*client_)->stringValueForProfileKey("Ignored").string(), "a.*\n");
  (*client_)->addFileToBackup(docs("a.txt"));
  EXPECT_TRUE(becomes(docs("a.txt"), "Backed up")) << "a person's rule outranks the list";
}

TEST_F(DaemonServerTest, TheStateHasEveryKeyAndMoves) {
  PropertyList value = (*client_)->daemonState();
  for (const char* key : {"backedUpFileCount", "backedupFileSize", "backupState", "currentBackupFile",
                          "currentRestoreFile", "currentRestoreJob", "isBackupNeeded", "lowerPriorityMode",
                          "paused", "pendingFileCount", "pendingFileSize", "recoverMode", "serviceState",
                          "statusString", "isQuotaLimited", "isOverQuota", "quotaMB", "backupControlFlags"}) {
    EXPECT_FALSE(value[key].isAbsent()) << key;
  }
  EXPECT_EQ(value["statusString"].string(), "Up to date");
  (*client_)->setPausedMinutes(10U);
  (*client_)->addFileToBackup(docs("a.txt"));
  value = (*client_)->daemonState();
  EXPECT_TRUE(value["paused"].boolValue());
  EXPECT_EQ(value["backupState"].intValue(), 2);
  EXPECT_EQ(value["pendingFileCount"].intValue(), 1);
  EXPECT_EQ(value["pendingFileSize"].intValue(), 5);
  EXPECT_TRUE(value["isBackupNeeded"].boolValue());
  EXPECT_EQ((*client_)->pausedMinutes(), 10U);
  (*client_)->setPausedMinutes(0U);
  EXPECT_TRUE(eventually([&] { return (*client_)->daemonState()["backedUpFileCount"].intValue() == 1; }));
  EXPECT_TRUE(eventually([&] { return (*client_)->daemonState()["pendingFileCount"].intValue() == 0; }));
}

TEST_F(DaemonServerTest, AnswersEveryMethodOfTheTable) {
  Client& client = *client_;
  for (const auto set :
       {&DaemonCalls<KeldaneProxy>::setEnabled<int>, &DaemonCalls<KeldaneProxy>::setIncludeRequired<int>,
        &DaemonCalls<KeldaneProxy>::setRecoverMode<int>,
        &DaemonCalls<KeldaneProxy>::setLowerPriorityMode<int>,
        &DaemonCalls<KeldaneProxy>::setDelayShutdown<int>,
        &DaemonCalls<KeldaneProxy>::setAutomaticMode<int>}) {
    (client.proxy().*set)(1);
  }
  EXPECT_EQ(client->recoverMode(), 1);
  client->setRecoverMode(0);  // else nothing is backed up
  EXPECT_EQ(client->lowerPriorityMode(), 1);
  EXPECT_EQ(client->delayShutdown(), 1);
  EXPECT_EQ(client->automaticMode(), 1);
  EXPECT_EQ(client->serviceState(), 1U);
  client->setServiceState(4U);
  EXPECT_EQ(client->serviceState(), 4U);
  client->setServiceState(0U);
  EXPECT_EQ(client->serviceState(), 0U) << "which is not the same as never set";
  EXPECT_EQ(client->daemonState()["serviceState"].unsignedIntValue(), 0U);
  EXPECT_EQ(client->serverURL().string(), "");
  client->setValueForProfileKey("ServerURL", "https://backup");
  client->setValueForProfileKey("UserEmail", "a@b");
  client->setValueForProfileKey("ComputerNumber", "12");
  client->setValueForProfileKey("MarketingMessage", "more room");
  client->setValueForProfileKey("QuotaMB", "2048");
  EXPECT_EQ(client->serverURL().string(), "https://backup");
  EXPECT_EQ(client->userEmail().string(), "a@b");
  EXPECT_TRUE(client->computerNumber().identical(12));
  EXPECT_EQ(client->marketingMessage().string(), "more room");
  EXPECT_EQ(client->stringValueForProfileKey("UserEmail").string(), "a@b");
  EXPECT_TRUE(client->stringValueForProfileKey("none").isAbsent());
  EXPECT_EQ(client->daemonState()["quotaMB"].intValue(), 2048);
  EXPECT_TRUE(client->daemonState()["isQuotaLimited"].boolValue());
  client->setAccountOverQuotaTestingFlag(1);
  EXPECT_TRUE(client->daemonState()["isOverQuota"].boolValue());
  client->clearAccountOverQuotaTestingFlag();
  EXPECT_FALSE(client->daemonState()["isOverQuota"].boolValue());
  client->setBackupControl(5U);
  EXPECT_EQ(client->daemonState()["backupControlFlags"].intValue(), 5);
  EXPECT_EQ(client->dictionaryForPath(docs("a.txt"))["fileName"].string(), "a.txt");
  EXPECT_EQ(client->excludeFileFromBackup(docs("a.txt")), 0U);
  EXPECT_EQ(client->excludedFiles(docs())[0].string(), docs("a.txt"));
  EXPECT_EQ(client->unexcludeFileFromBackup(docs("a.txt")), 0U);
  EXPECT_EQ(client->excludedFiles(docs()).count(), 0U);
  EXPECT_EQ(client->excludeFileFromBackup("/etc/passwd"), static_cast<std::uint32_t>(EPERM));
  EXPECT_EQ(client->excludeFileFromBackup(5), static_cast<std::uint32_t>(EINVAL));
  EXPECT_GT(client->policyExcludeList().count(), 3U);
  client->addFilesToBackup(PropertyList::array({docs("a.txt"), 5, docs("b.txt")}));
  EXPECT_TRUE(becomes(docs("b.txt"), "Backed up"));
  EXPECT_EQ(client->backupColorsForFiles(PropertyList::array({docs("b.txt"), "/etc/passwd", 7})),
            PropertyList::array({2, 4, 0}));
  EXPECT_EQ(client->restoreFile("a", "/b", 1U, 0U), 0U) << "a relative path is refused";
  const std::uint32_t job = client->restoreFile(docs("none"), docs("copy"), 1U, 0U);
  EXPECT_GT(job, 0U);
  EXPECT_TRUE(eventually([&] {
    return client->getRestoreJobStatus(job) == static_cast<std::uint32_t>(RestoreStatus::failed) ||
           client->getRestoreJobStatus(job) == static_cast<std::uint32_t>(RestoreStatus::doneWithProblems);
  })) << "nothing of that path is stored";
  EXPECT_TRUE(eventually([&] { return client->getCurrentRestoreJob() == 0U; }));
  EXPECT_EQ(client->getRestoreJobStatus(99U), 0U);
  client->cancelAllRestoreJobs();
  EXPECT_EQ(client->restoreWithChoices(PropertyList::array({})), 0);
  client->showRestoreWizard();
  EXPECT_TRUE(eventually([&] { return client->longForState(0U) == 2; })) << "the first key counts files";
  EXPECT_EQ(client->longlongForState(0U), 2U);
  EXPECT_EQ(client->stringForState(0U).string(), "2");
  EXPECT_TRUE(client->stringForState(99U).isAbsent());
  EXPECT_FALSE(client->liveStateString().string().empty());
  EXPECT_EQ(client->backedupStateString().string(), "2 files, 9 bytes backed up");
  EXPECT_EQ(client->mappedUserAsString(0).string(), "root");
  EXPECT_EQ(client->mappedUserAsString("somebody").string(), "somebody");
  client->setAlertHandler();
  client->endAlertHandler();
  client->terminate();
  EXPECT_TRUE(eventually([&] { return terminated_.load(); }));
}

TEST_F(DaemonServerTest, WhatLeavesTheBackupIsNotPreferredWhenItComesBack) {
  (*client_)->setAutomaticMode(0);
  (*client_)->setPausedMinutes(5U);
  const auto isPreferred = [&] {
    return ((*client_)->dictionaryForPath(docs("a.txt"))["backupFlags"].unsignedIntValue() & 15U) != 0;
  };
  const auto prefer = [&] {
    (*client_)->addFileToBackup(docs("a.txt"));
    EXPECT_FALSE(isPreferred());
    (*client_)->setPriorityBackup(docs("a.txt"));
    EXPECT_TRUE(isPreferred());
  };
  prefer();
  EXPECT_EQ((*client_)->excludeFileFromBackup(docs("a.txt")), 0U);
  EXPECT_FALSE(isPreferred());
  prefer();
  EXPECT_EQ((*client_)->unexcludeFileFromBackup(docs("a.txt")), 0U);
  prefer();
  (*client_)->unexcludeFileFromBackup(docs("a.txt"));
  (*client_)->addFileToBackup(docs());
  prefer();
  (*client_)->unexcludeFileFromBackup(docs("a.txt"));
  (*client_)->excludeFileFromBackup(docs());
  prefer();
}

TEST_F(DaemonServerTest, WhatIsNoPathIsAnsweredWithNothing) {
  for (const PropertyList& path :
       {PropertyList(5), PropertyList("relative"), PropertyList(std::string("/a\0b", 4)),
        PropertyList::array({}), PropertyList("")}) {
    EXPECT_TRUE((*client_)->dictionaryForPath(path, 0).isAbsent());
    EXPECT_TRUE((*client_)->childrenDictionariesForPath(path).isAbsent());
    (*client_)->addFileToBackup(path);
    (*client_)->setPriorityBackup(path);
    (*client_)->setFileTypeToggle(path, 6U);
  }
  (*client_)->setFileTypeToggle(std::string(100'000, 'x'), 6U);
  EXPECT_EQ((*client_)->getFileTypeToggle(std::string(100'000, 'x')), 0U);
}

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
  (*client_)->setStateHandler();  // the state is told on the same link
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
  EXPECT_EQ((*client_)->getCurrentRestoreJob(), 0U);  // from here on every thread is there
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

TEST_F(DaemonServerTest, RememberAllWhenItBeginsAgain) {
  (*client_)->addFileToBackup(docs("a.txt"));
  ASSERT_TRUE(becomes(docs("a.txt"), "Backed up"));
  (*client_)->setPausedMinutes(30U);
  (*client_)->setFileTypeToggle(".tmp", 7U);
  (*client_)->setLowerPriorityMode(1);
  (*client_)->setValueForProfileKey("k", "v");
  EXPECT_EQ((*client_)->stringValueForProfileKey("k").string(), "v");
  end();
  begin();
  EXPECT_EQ(state(docs("a.txt")), "Backed up");
  EXPECT_EQ((*client_)->pausedMinutes(), 30U);
  EXPECT_EQ((*client_)->getFileTypeToggle(".tmp"), 7U);
  EXPECT_EQ((*client_)->lowerPriorityMode(), 1);
  EXPECT_EQ((*client_)->stringValueForProfileKey("k").string(), "v");
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
  for (int i = 0; i < 10; ++i) {  // behind the one that has just asked
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

// --- The program ---

class KeldanedTest : public ::testing::Test {
 protected:
  static pid_t spawn(std::vector<std::string> arguments, const std::string& errors = "/dev/null") {
    arguments.insert(arguments.begin(), KELDANED_PROGRAM);
    return testing::spawnProgram(std::move(arguments), errors);
  }
  static int wait(pid_t child) { return testing::waitForEnd(child); }
  int run(const std::vector<std::string>& arguments) {
    const int status = wait(spawn(arguments, folder_ / "errors"));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  pid_t serve() {
    const pid_t child = spawn({"--foreground", "--socket", socket_, "--store", folder_ / "store", "--root",
                               folder_.path().string()});
    EXPECT_TRUE(eventually([&] { return Client(socket_).connected(); }));
    return child;
  }
  TemporaryFolder folder_;
  const std::string socket_ = folder_ / "d.sock";
};

TEST_F(KeldanedTest, EndsCleanlyOnASignal) {
  const pid_t child = serve();
  kill(child, SIGTERM);
  const int status = wait(child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST_F(KeldanedTest, AnAcceptedRuleSurvivesItsDeath) {
  const std::string file = folder_.write("a.txt", "x");
  pid_t child = serve();
  {
    Client client(socket_);
    client->setPausedMinutes(60U);
    client->addFileToBackup(file);
    EXPECT_EQ(client->dictionaryForPath(file, 0)["state"].string(), "Waiting to be backed up");
  }
  kill(child, SIGKILL);
  wait(child);
  EXPECT_TRUE(std::filesystem::exists(socket_))
      << "a dead daemon's socket stays, and the next one replaces it";
  child = serve();
  {
    Client client(socket_);
    EXPECT_EQ(client->pausedMinutes(), 60U);
    EXPECT_NE(client->dictionaryForPath(file, 0)["simpleFlags"].unsignedIntValue() & simple_flags::kChecked,
              0U);
    client->terminate();
  }
  EXPECT_EQ(wait(child), 0);
}

TEST_F(KeldanedTest, LeavesTheTerminalOnceItServes) {
  EXPECT_EQ(run({"--socket", socket_, "--store", folder_ / "store", "--root", folder_.path().string()}), 0);
  Client client(socket_);
  ASSERT_TRUE(client.connected());
  EXPECT_EQ(run({"--socket", socket_, "--store", folder_ / "store2", "--root", folder_.path().string()}), 1);
  EXPECT_NE(testing::readWhole(folder_ / "errors").find("Another keldaned already serves " + socket_),
            std::string::npos);
  client->terminate();
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(socket_); }));
}

TEST_F(KeldanedTest, OfManyThatStartAtOnceOneServes) {
  std::vector<pid_t> children;
  for (int i = 0; i < 6; ++i) {
    children.push_back(spawn({"--foreground", "--socket", socket_, "--store", folder_ / "store", "--root",
                              folder_.path().string()}));
  }
  pid_t serving = 0;
  for (std::size_t left = children.size(); left > 1; --left) {
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    EXPECT_EQ(std::count(children.begin(), children.end(), ended), 1);
    std::erase(children, ended);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
  }
  serving = children.front();
  EXPECT_TRUE(eventually([&] { return Client(socket_).connected(); }));
  kill(serving, SIGTERM);
  EXPECT_EQ(wait(serving), 0);
}

TEST_F(KeldanedTest, KeepsNoStoreWhereOthersCanWriteUnlessAskedTo) {
  std::filesystem::create_directory(folder_ / "shared");
  ASSERT_EQ(chmod((folder_ / "shared").c_str(), 0775), 0);
  const std::vector<std::string> arguments = {"--socket",           socket_,  "--store",
                                              folder_ / "shared/s", "--root", folder_.path().string()};
  EXPECT_EQ(run(arguments), 1);
  EXPECT_NE(testing::readWhole(folder_ / "errors").find("--allow-shared-folder"), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(folder_ / "shared"));
  std::vector<std::string> asked = arguments;
  asked.push_back("--allow-shared-folder");
  EXPECT_EQ(run(asked), 0);
  Client(socket_)->terminate();
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(socket_); }));
}

TEST_F(KeldanedTest, SaysInOneSentenceWhatIsWrong) {
  EXPECT_EQ(run({"--nonsense"}), 2);
  EXPECT_EQ(run({"--socket", ""}), 2);
  EXPECT_EQ(run({"--foreground", "--socket", socket_, "--store", folder_ / "s", "--root", folder_ / "none"}),
            1);
  EXPECT_EQ(testing::readWhole(folder_ / "errors"),
            "keldaned: The root " + (folder_ / "none") + " is no folder.\n");
  folder_.write("file", "");
  EXPECT_EQ(run({"--foreground", "--socket", socket_, "--store", folder_ / "file/s", "--root",
                 folder_.path().string()}),
            1);
  EXPECT_NE(testing::readWhole(folder_ / "errors").find("The store " + (folder_ / "file/s")),
            std::string::npos);
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_EQ(run({"--version"}), 0);
}

}  // namespace
}  // namespace keldane
