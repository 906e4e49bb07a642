// The daemon's program: its start, its end, and its error messages.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "Common/nodes/FileNode.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/Client.h"
#include "tests/support/process/Program.h"

namespace keldane {
namespace {

using testing::Client;
using testing::eventually;
using testing::TemporaryFolder;

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
