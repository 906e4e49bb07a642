#include "platform/syslog/SystemLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <regex>
#include <sstream>
#include <thread>

#include "platform/files/Descriptor.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

TEST(SystemLog, GivesEachLineToTheReceiver) {
  const testing::LogCapture log;
  systemLog("%s: %@ = %u", "name", PropertyList("key"), 5U);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"name: key = 5"});
}

TEST(SystemLog, SendsTimeProcessNameAndProcessIdToTheLogDaemon) {
  const testing::TemporaryFolder folder;
  const std::string path = folder / "log";
  const Descriptor daemon(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  sendToSystemLog("Nobody listens yet.", path.c_str());
  ASSERT_EQ(bind(daemon.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  sendToSystemLog("A 100% plain text", path.c_str());
  char buffer[200] = {};
  ASSERT_GT(recv(daemon.get(), buffer, sizeof(buffer), 0), 0);
  const std::regex form(R"(<13>[A-Z][a-z]{2} [ 123]\d \d\d:\d\d:\d\d test-platform-syslog\[)" +
                        std::to_string(getpid()) + R"(\]: A 100% plain text)");
  EXPECT_TRUE(std::regex_match(std::string(buffer), form)) << buffer;
}

TEST(SystemLog, WritesToStandardErrorWithTimeProcessAndThreadInFront) {
  const testing::TemporaryFolder folder;
  const int saved = dup(STDERR_FILENO);
  const int file = open((folder / "err").c_str(), O_RDWR | O_CREAT, 0600);
  dup2(file, STDERR_FILENO);
  systemLog("first %d%%", 5);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 50; ++i) {
        systemLog("line of a thread");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(file);
  std::istringstream lines(testing::readWhole(folder / "err"));
  const std::regex form(
      R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} test-platform-syslog\[\d+:\d+\] (first 5%|line of a thread))");
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_TRUE(std::regex_match(line, form)) << line;
  }
  EXPECT_EQ(count, 201);
}

}  // namespace
}  // namespace keldane
