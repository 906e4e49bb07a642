#include "daemon/engine/process/ChildProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <future>

#include "platform/files/Descriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"

namespace keldane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class ChildProcessTest : public ::testing::Test {
 protected:
  ChildCommand shell(const std::string& line) {
    ChildCommand command;
    command.arguments = {"/bin/sh", "-c", line};
    command.environment = childEnvironment({});
    command.outputLine = [this](std::string_view text) { output_.emplace_back(text); };
    command.errorLine = [this](std::string_view text) { errors_.emplace_back(text); };
    return command;
  }
  ChildEnd run(const std::string& line) { return runChild(shell(line), job_); }
  /// The process id that a child has written into a file.
  pid_t writtenPid(const std::string& name) const {
    const std::string file = folder_ / name;
    EXPECT_TRUE(eventually([&] { return readWhole(file).ends_with('\n'); }));
    return static_cast<pid_t>(std::stoi(readWhole(file)));
  }
  static bool hasEnded(pid_t process) {
    const std::string status = readWhole("/proc/" + std::to_string(process) + "/stat");
    return status.empty() || status.find(") Z ") != std::string::npos;
  }

  TemporaryFolder folder_;
  EngineJob job_;
  std::vector<std::string> output_, errors_;
};

TEST_F(ChildProcessTest, GivesOutputByLines) {
  const ChildEnd end = run("printf 'one\\n\\ntwo'; echo three >&2; exit 3");
  EXPECT_EQ(end.exitStatus, 3);
  EXPECT_THAT(output_, ElementsAre("one", "", "two"));
  EXPECT_THAT(errors_, ElementsAre("three"));
  EXPECT_EQ(end.errorText, "three\n");
}

TEST_F(ChildProcessTest, GivesOutputToADescriptor) {
  const std::string target = folder_ / "target";
  const Descriptor file(::open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ChildCommand command = shell("printf 'a\\000b'");
  command.standardOutput = file.get();
  EXPECT_EQ(runChild(command, job_).exitStatus, 0);
  EXPECT_EQ(readWhole(target), std::string("a\0b", 3));
}

TEST_F(ChildProcessTest, KeepsTheEndOfALongStandardError) {
  const ChildEnd end = run("i=0; while [ $i -lt 20000 ]; do echo line $i; i=$((i+1)); done >&2");
  EXPECT_EQ(errors_.size(), 20000U);
  EXPECT_LE(end.errorText.size(), 65536U);
  EXPECT_TRUE(end.errorText.ends_with("line 19999\n"));
}

TEST_F(ChildProcessTest, GivesTheChildNothingThatItNeedsNot) {
  setenv("KELDANE_TEST_SECRET", "x", 1);
  const Descriptor open(::open("/dev/null", O_RDONLY));  // without O_CLOEXEC
  sigset_t blocked;
  sigset_t before;
  sigfillset(&blocked);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  auto* const handler = ::signal(SIGPIPE, SIG_IGN);
  run("env; ls /proc/self/fd; grep -E 'Sig(Blk|Ign)' /proc/self/status; cat; pwd; umask; ps -o tty= -p $$");
  ::signal(SIGPIPE, handler);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  unsetenv("KELDANE_TEST_SECRET");
  std::string all;
  for (const std::string& line : output_) {
    all += line + "\n";
  }
  EXPECT_THAT(all, Not(HasSubstr("KELDANE_TEST_SECRET")));
  EXPECT_THAT(all, HasSubstr("LANG=C\n"));
  EXPECT_THAT(all,
              HasSubstr("\n0\n1\n2\n3\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n/\n0077\n?"));
}

TEST_F(ChildProcessTest, LowersThePriorityWhenTheJobSaysSo) {
  run("nice; ionice");
  job_.lowPriority = true;
  run("nice; ionice");
  ASSERT_EQ(output_.size(), 4U);
  EXPECT_EQ(output_[2], "19");
  EXPECT_EQ(output_[3], "best-effort: prio 7");
  EXPECT_NE(output_[1], output_[3]);
}

TEST_F(ChildProcessTest, TellsWhyAProgramCannotStart) {
  ChildCommand command = shell("");
  command.arguments[0] = folder_ / "none";
  EXPECT_EQ(runChild(command, job_).startError, ENOENT);
  command.arguments[0] = folder_.path();
  EXPECT_EQ(runChild(command, job_).startError, EACCES);
  command = shell("");
  command.workingFolder = folder_ / "none";
  EXPECT_EQ(runChild(command, job_).startError, ENOENT);
}

TEST_F(ChildProcessTest, TellsTheSignalThatEndedIt) {
  const ChildEnd end = run("kill -9 $$");
  EXPECT_EQ(end.signal, SIGKILL);
  EXPECT_EQ(end.exitStatus, -1);
  EXPECT_FALSE(end.cancelled);
}

TEST_F(ChildProcessTest, InterruptsTheChildWhenTheJobIsCancelled) {
  ChildCommand command = shell("trap 'echo cleaned; exit 130' INT; echo ready; while :; do sleep 0.01; done");
  command.outputLine = [&](std::string_view line) {
    output_.emplace_back(line);
    job_.cancelled = true;
  };
  const ChildEnd end = runChild(command, job_);
  EXPECT_TRUE(end.cancelled);
  EXPECT_EQ(end.exitStatus, 130);
  EXPECT_THAT(output_, ElementsAre("ready", "cleaned"));
  EXPECT_EQ(runChild(command, job_).exitStatus, -1) << "a cancelled job starts nothing";
}

TEST_F(ChildProcessTest, LooksAtTheJobWhileOutputComesWithoutAnEnd) {
  ChildCommand command = shell("exec yes");
  std::size_t lines = 0;
  command.outputLine = [&](std::string_view) { job_.cancelled = ++lines > 1000; };
  EXPECT_EQ(runChild(command, job_).signal, SIGINT);
}

TEST_F(ChildProcessTest, KillsTheChildAndItsHelpersWhenItDoesNotListen) {
  // This takes ten seconds, the time that a child has for cleaning up.
  const std::string helper = folder_ / "helper";
  ChildCommand command = shell("trap '' INT; setsid sleep 60 & echo $! > " + helper +
                               "; echo ready; while :; do sleep 0.05; done");
  command.outputLine = [&](std::string_view) { job_.cancelled = true; };
  const ChildEnd end = runChild(command, job_);
  EXPECT_EQ(end.signal, SIGKILL);
  const pid_t process = writtenPid("helper");
  EXPECT_TRUE(eventually([&] { return hasEnded(process); }));
}

TEST_F(ChildProcessTest, DoesNotWaitForHelpersThatHoldItsOutput) {
  const auto begin = std::chrono::steady_clock::now();
  run("sleep 30 & echo $! > " + (folder_ / "helper"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  ::kill(writtenPid("helper"), SIGKILL);
}

TEST_F(ChildProcessTest, EndsTheChildWhenItsReaderThrows) {
  ChildCommand command = shell("echo $$ > " + (folder_ / "pid") + "; echo line; sleep 60");
  command.outputLine = [](std::string_view) { throw std::runtime_error("enough"); };
  EXPECT_THROW(runChild(command, job_), std::runtime_error);
  EXPECT_TRUE(hasEnded(writtenPid("pid")));
}

TEST_F(ChildProcessTest, EndsWithTheProcessThatStartedIt) {
  const ChildCommand command = shell("echo $$ > " + (folder_ / "pid") + "; sleep 60");
  const pid_t parent = ::fork();
  if (parent == 0) {
    runChild(command, job_);
    ::_exit(0);
  }
  const pid_t child = writtenPid("pid");
  ::kill(parent, SIGKILL);
  ::waitpid(parent, nullptr, 0);
  EXPECT_TRUE(eventually([&] { return hasEnded(child); }));
}

TEST_F(ChildProcessTest, RunsSeveralAtOnce) {
  std::vector<std::future<int>> ends;
  for (int i = 0; i < 8; ++i) {
    ends.push_back(std::async(std::launch::async, [i] {
      EngineJob job;
      ChildCommand command;
      command.arguments = {"/bin/sh", "-c", "exit " + std::to_string(i)};
      command.environment = childEnvironment({});
      return runChild(command, job).exitStatus;
    }));
  }
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(ends[static_cast<std::size_t>(i)].get(), i);
  }
}

}  // namespace
}  // namespace keldane::testing
