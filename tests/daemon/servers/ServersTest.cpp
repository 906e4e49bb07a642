#include "tests/daemon/servers/Servers.h"

#include <gmock/gmock.h>

#include <future>

#include "tests/daemon/engine/EngineFixture.h"

namespace keldane::testing {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

struct Kind {
  const char* name;
  std::unique_ptr<Server> (*make)();
};

template <class Made>
std::unique_ptr<Server> made() {
  return std::make_unique<Made>();
}

/// A repository on a server, and files of random bytes, so that all bytes are transferred.
class ServersTest : public EngineFixture, public ::testing::WithParamInterface<Kind> {
 protected:
  void SetUp() override {
    if (const std::string why = server_->missing(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    ASSERT_TRUE(server_->start());
    point(false);
  }
  /// Configures the server as the repository's place. With `quick` the repository opens quickly, where the
  /// server allows that.
  void point(bool quick) {
    RepositoryConfig configuration = files().configuration().value();
    std::map<std::string, std::string> environment;
    server_->configure(configuration, environment);
    files().setEnvironment(environment);
    if (quick && !server_->plainFolder().empty()) {
      QuickRepository::write(server_->plainFolder());
      files().setKey(QuickRepository::kKey);
      configuration.repositoryId = QuickRepository::kId;
    }
    files().setConfiguration(configuration);
    if (quick && server_->plainFolder().empty()) {
      ASSERT_TRUE(engine_.initialize(job_));
    }
  }
  /// An engine on a slow line, so that it can be interrupted in the middle of its work.
  std::unique_ptr<ResticEngine> slowEngine() const {
    return std::make_unique<ResticEngine>(
        files(), script("case $1 in version) exec restic version;; esac\n"
                        "exec restic --limit-upload 4000 --limit-download 4000 \"$@\""));
  }
  void expectRestored(const std::string& snapshot, const std::string& folder) {
    std::vector<std::string> problems;
    answer_ = engine_.restore(snapshot, {home()}, folder, problems, job_);
    EXPECT_TRUE(answer_) << answer_;
    EXPECT_THAT(problems, IsEmpty());
    for (const auto& entry : std::filesystem::directory_iterator(home())) {
      EXPECT_TRUE(readWhole(folder + entry.path().string()) == readWhole(entry.path())) << entry.path();
    }
  }
  void expectSound() {
    answer_ = engine_.unlock(job_);
    EXPECT_TRUE(answer_) << answer_;
    const CheckAnswer check = engine_.check(1, 1, job_);
    EXPECT_TRUE(check) << check << ::testing::PrintToString(check.messages);
  }

  const std::unique_ptr<Server> server_ = GetParam().make();
};

TEST_P(ServersTest, MakesARepositoryOnce) {
  EXPECT_EQ(engine_.probe(job_).health, Health::notSetUp);
  ASSERT_TRUE(engine_.initialize(job_));
  EXPECT_TRUE(engine_.probe(job_));
  configure([](RepositoryConfig& configuration) { configuration.repositoryId.clear(); });
  EXPECT_EQ(engine_.initialize(job_).health, Health::otherRepository);
}

TEST_P(ServersTest, KeepsVersionsAndGivesThemBack) {
  point(true);
  const std::string file = write("file", noise(100'000));
  const std::string old = readWhole(file);
  const StoreAnswer first = store({home()});
  ASSERT_TRUE(first) << first;
  write("file", noise(100'000));
  const StoreAnswer second = store({home()}, {}, first.snapshot);
  ASSERT_TRUE(second) << second;
  EXPECT_TRUE(fetch(first.snapshot, file) == old);
  EXPECT_TRUE(fetch(second.snapshot, file) == readWhole(file));
  expectRestored(second.snapshot, folder_ / "out");
  std::uint64_t bytes = 0;
  EXPECT_TRUE(engine_.size(bytes, job_));
  EXPECT_GT(bytes, 200'000U);
  expectSound();
}

TEST_P(ServersTest, TellsThatTheServerIsAwayOrHasLostTheRepository) {
  point(true);
  server_->stop();
  for (const EngineAnswer& answer : {engine_.probe(job_), engine_.initialize(job_)}) {
    EXPECT_EQ(answer.health, Health::unreachable) << answer;
    EXPECT_THAT(answer.detail, Not(HasSubstr("secretword")));
  }
  ASSERT_TRUE(server_->start());
  EXPECT_TRUE(engine_.probe(job_));
  if (!server_->plainFolder().empty()) {
    server_->stop();  // a running server keeps files in memory
    std::filesystem::remove_all(server_->plainFolder());
    std::filesystem::create_directory(server_->plainFolder());
    ASSERT_TRUE(server_->start());
    EXPECT_EQ(engine_.probe(job_).health, Health::missing);
    EXPECT_EQ(engine_.initialize(job_).health, Health::missing);
    EXPECT_TRUE(std::filesystem::is_empty(server_->plainFolder()));
  }
}

TEST_P(ServersTest, GoesOnAfterTheServerStoppedInTheMiddleOfABackup) {
  point(true);
  for (int i = 0; i < 3; ++i) {
    write(std::to_string(i), noise(3'000'000));
  }
  const std::unique_ptr<ResticEngine> slow = slowEngine();
  std::future<bool> back;
  StoreObserver observer;
  observer.took = [&](const std::string&, bool) {
    if (!back.valid()) {
      server_->stop();
      back = std::async(std::launch::async, [this] { return server_->start(); });
    }
  };
  const StoreAnswer torn = slow->store({{home()}, {}, {}}, observer, job_);
  ASSERT_TRUE(back.valid());
  ASSERT_TRUE(back.get());
  // The program tries again by itself where it can connect anew.
  EXPECT_THAT(torn.health, AnyOf(Health::ready, Health::unreachable)) << torn;
  EXPECT_EQ(torn.health == Health::ready, !torn.snapshot.empty());
  const StoreAnswer whole = store({home()});
  ASSERT_TRUE(whole) << whole;
  expectSound();
  expectRestored(whole.snapshot, folder_ / "out");
}

TEST_P(ServersTest, GivesUpWhenItIsCancelledWhileTheServerIsAway) {
  point(true);
  write("file", noise(30'000'000));
  const std::unique_ptr<ResticEngine> slow = slowEngine();
  StoreObserver observer;
  observer.progress = [&](std::uint64_t, std::uint64_t, const std::string&) {
    server_->stop();
    job_.cancelled = true;
  };
  const auto begin = std::chrono::steady_clock::now();
  const StoreAnswer answer = slow->store({{home()}, {}, {}}, observer, job_);
  EXPECT_THAT(answer.health, AnyOf(Health::cancelled, Health::unreachable)) << answer;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  job_.cancelled = false;
  ASSERT_TRUE(server_->start());
  EXPECT_TRUE(store({home()}));
  expectSound();
}

TEST_P(ServersTest, RestoresAfterTheServerStoppedInTheMiddleOfARestore) {
  point(true);
  for (int i = 0; i < 3; ++i) {
    write(std::to_string(i), noise(3'000'000));
  }
  const std::string snapshot = store({home()}).snapshot;
  ASSERT_FALSE(snapshot.empty());
  const std::unique_ptr<ResticEngine> slow = slowEngine();
  const std::string out = folder_ / "torn";
  std::vector<std::string> problems;
  std::future<EngineAnswer> torn = std::async(std::launch::async, [&] {
    EngineJob job;
    return slow->restore(snapshot, {home()}, out, problems, job);
  });
  EXPECT_TRUE(eventually([&] {
    std::error_code error;
    return std::filesystem::exists(out + home(), error) && !std::filesystem::is_empty(out + home(), error);
  }));
  server_->stop();
  ASSERT_TRUE(server_->start());
  const EngineAnswer answer = torn.get();
  if (answer) {
    for (const auto& entry : std::filesystem::directory_iterator(home())) {
      EXPECT_TRUE(readWhole(out + entry.path().string()) == readWhole(entry.path()));
    }
  } else {
    EXPECT_EQ(answer.health, Health::unreachable) << answer;
  }
  expectRestored(snapshot, folder_ / "out");
  expectSound();
}

INSTANTIATE_TEST_SUITE_P(Servers, ServersTest,
                         ::testing::Values(Kind{"rest", made<RestServer>}, Kind{"sftp", made<SftpServer>},
                                           Kind{"s3", made<S3Server>}),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
}  // namespace keldane::testing
