// Failures in the middle of a restore.
#include "tests/daemon/restore/RestoreFixture.h"

namespace keldane::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class RestoreTroubleTest : public RestoreFixture {
 protected:
  /// Lets the first restore wait until `go_` is set or the job is cancelled.
  void holdRestores() {
    interfering_.beforeRestore = [this](EngineJob& job) {
      isHeld_ = true;
      while (!go_ && !job.cancelled) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      return job.cancelled ? EngineAnswer{Health::cancelled, {}} : EngineAnswer();
    };
  }
  std::atomic<bool> isHeld_ = false;
  std::atomic<bool> go_ = false;
};

TEST_F(RestoreTroubleTest, PlacesNothingOfADamagedFileAndAllOfTheOthers) {
  write("docs/good.txt", "small");
  backUp();
  for (int i = 0; i < 3; ++i) {
    write("docs/noise" + std::to_string(i), noise(300'000));
  }
  backUp();
  damage(packs().front());
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::doneWithProblems);
  EXPECT_THAT(report.problems, Contains(AllOf(HasSubstr("docs/noise"), HasSubstr("is not restored"))));
  EXPECT_EQ(readWhole(target() + "/docs/good.txt"), "small");
  for (const std::string& name : contentsOf(target() + "/docs")) {
    EXPECT_EQ(readWhole(target() + "/docs/" + name), readWhole(home() + "/docs/" + name)) << name;
  }
  EXPECT_LT(contentsOf(target() + "/docs").size(), 4U);
}

TEST_F(RestoreTroubleTest, PlacesNoFileOfAnotherSizeThanWasStored) {
  write("docs/a.txt", "whole");
  write("docs/b.txt", "whole");
  backUp();
  interfering_.afterRestore = [this](const std::string& folder) {
    std::filesystem::resize_file(folder + home() + "/docs/a.txt", 2);
  };
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::doneWithProblems);
  EXPECT_THAT(report.problems, ElementsAre(HasSubstr("it has 2 bytes, and 5 were stored")));
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/b.txt"));
}

TEST_F(RestoreTroubleTest, TrustsNothingOfAnEngineThatFailed) {
  write("docs/a.txt", "whole");
  backUp();
  interfering_.beforeRestore = [](EngineJob&) { return EngineAnswer{Health::failed, "It was killed."}; };
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::failed);
  EXPECT_THAT(report.problems, ElementsAre(HasSubstr("It was killed.")));
  EXPECT_THAT(contentsOf(target()), IsEmpty());
}

TEST_F(RestoreTroubleTest, LeavesOutWhatCannotBeWrittenAndTriesTheRestAgain) {
  write("docs/a.txt", "whole");
  write("docs/b.txt", "whole");
  backUp();
  // A folder is in the way of one of the files.
  interfering_.beforeRestore = [this](EngineJob&) {
    for (const std::string& staging : stagings()) {
      std::filesystem::create_directories(staging + "/from-0" + home() + "/docs/a.txt/in the way");
    }
    return EngineAnswer();
  };
  const RestoreReport report = restore(requestFor({"docs"}));
  EXPECT_EQ(report.status, RestoreStatus::doneWithProblems);
  EXPECT_THAT(report.problems, ElementsAre(AllOf(HasSubstr("docs/a.txt"), HasSubstr("is not restored"))));
  EXPECT_EQ(report.restored, 1U);
  EXPECT_EQ(readWhole(target() + "/docs/b.txt"), "whole");
}

TEST_F(RestoreTroubleTest, CancelsAJobThatRuns) {
  write("a.txt", "stored");
  backUp();
  holdRestores();
  const std::uint32_t job = add(requestFor({"a.txt"}));
  ASSERT_TRUE(eventually([&] { return isHeld_.load(); }));
  EXPECT_EQ(jobs_->current(), job);
  EXPECT_EQ(jobs_->currentFile(), home() + "/a.txt");
  EXPECT_EQ(jobs_->report(job).status, RestoreStatus::running);
  jobs_->cancel(job);
  ASSERT_TRUE(eventually([&] { return hasEnded(job); }));
  const RestoreReport report = jobs_->report(job);
  EXPECT_EQ(report.status, RestoreStatus::cancelled);
  EXPECT_THAT(report.problems, ElementsAre(home() + "/a.txt is not restored: the job was cancelled."));
  EXPECT_THAT(stagings(), IsEmpty());
  EXPECT_THAT(contentsOf(target()), IsEmpty());
}

TEST_F(RestoreTroubleTest, ListsWhatWasNotPlacedWhenItIsCancelledWhilePlacing) {
  for (const char* name : {"a", "b", "c"}) {
    write(std::string("docs/") + name, name);
  }
  std::filesystem::create_directories(target() + "/docs");
  backUp();
  end();
  std::unique_ptr<RestoreJobs> jobs;
  std::uint32_t job = 0;
  int files = 0;
  jobs = std::make_unique<RestoreJobs>(*store_, interfering_, data(), [&] {
    if (jobs->currentFile().starts_with(target() + "/docs/") && ++files == 2) {
      jobs->cancel(job);
    }
  });
  std::string refusal;
  job = jobs->add(requestFor({"docs"}), &refusal);
  jobs->start();
  ASSERT_TRUE(eventually([&] { return jobs->report(job).status == RestoreStatus::cancelled; }));
  const RestoreReport report = jobs->report(job);
  EXPECT_EQ(report.restored, 2U);
  EXPECT_THAT(report.problems, ElementsAre(HasSubstr("is not restored: the job was cancelled.")));
  EXPECT_EQ(contentsOf(target() + "/docs").size(), 2U);
  EXPECT_THAT(stagings(), IsEmpty());
}

TEST_F(RestoreTroubleTest, CancelsJobsThatWait) {
  write("a.txt", "stored");
  backUp();
  holdRestores();
  add(requestFor({"a.txt"}));
  ASSERT_TRUE(eventually([&] { return isHeld_.load(); }));
  const std::uint32_t waiting = add(requestFor({"a.txt"}));
  jobs_->cancelAll();
  EXPECT_EQ(jobs_->report(waiting).status, RestoreStatus::cancelled);
  EXPECT_TRUE(eventually([&] { return jobs_->current() == 0; }));
}

TEST_F(RestoreTroubleTest, RunsJobsOfAHigherPriorityFirst) {
  write("a.txt", "stored");
  write("b.txt", "stored");
  backUp();
  holdRestores();
  add(requestFor({"a.txt"}));
  ASSERT_TRUE(eventually([&] { return isHeld_.load(); }));
  const std::uint32_t late = add(requestFor({"a.txt"}));
  RestoreRequest urgent = requestFor({"b.txt"});
  urgent.priority = 5;
  const std::uint32_t first = add(urgent);
  std::vector<std::uint32_t> order;
  interfering_.afterRestore = [&](const std::string&) { order.push_back(jobs_->current()); };
  go_ = true;
  ASSERT_TRUE(eventually([&] { return hasEnded(late); }));
  EXPECT_THAT(order, ElementsAre(1U, first, late));
}

TEST_F(RestoreTroubleTest, GoesOnAfterARestartWithAJobThatWasBeingMadeWhole) {
  write("docs/a.txt", "stored");
  backUp();
  holdRestores();
  const std::uint32_t job = add(requestFor({"docs"}));
  ASSERT_TRUE(eventually([&] { return isHeld_.load(); }));
  end();
  EXPECT_THAT(stagings(), IsEmpty());
  go_ = true;
  begin();
  ASSERT_TRUE(eventually([&] { return hasEnded(job); }));
  EXPECT_EQ(jobs_->report(job).status, RestoreStatus::done);
  EXPECT_EQ(jobs_->userOf(job), ::geteuid());
  EXPECT_EQ(jobs_->report(job).files, 1U);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/a.txt"));
}

TEST_F(RestoreTroubleTest, PlacesNothingTwiceWhenItWasCutOffWhilePlacing) {
  for (const char* name : {"a", "b", "c", "d"}) {
    write(std::string("docs/") + name, name);
    folder_.write(std::string("target/docs/") + name, "mine");
  }
  backUp();
  end();
  // The process ends after the second file.
  int files = 0;
  std::unique_ptr<RestoreJobs> cut;
  std::atomic<bool> isCut = false;
  cut = std::make_unique<RestoreJobs>(*store_, interfering_, data(), [&] {
    if (cut->currentFile().starts_with(target() + "/docs/") && ++files == 3) {
      isCut = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));  // until stop() was called
    }
  });
  std::string refusal;
  const std::uint32_t job = cut->add(requestFor({"docs"}), &refusal);
  cut->start();
  ASSERT_TRUE(eventually([&] { return isCut.load(); }));
  cut->stop();
  EXPECT_EQ(stagings().size() > 0, true);
  EXPECT_EQ(cut->report(job).status, RestoreStatus::waiting);
  begin();
  ASSERT_TRUE(eventually([&] { return hasEnded(job); }));
  const RestoreReport report = jobs_->report(job);
  EXPECT_EQ(report.status, RestoreStatus::done);
  EXPECT_EQ(report.restored, 4U);
  EXPECT_EQ(interfering_.restores, 1);
  EXPECT_THAT(contentsOf(target()),
              ElementsAre("docs", "docs/a", "docs/a (restored)", "docs/b", "docs/b (restored)", "docs/c",
                          "docs/c (restored)", "docs/d", "docs/d (restored)"));
  EXPECT_THAT(stagings(), IsEmpty());
}

TEST_F(RestoreTroubleTest, RemovesWhatACrashLeft) {
  write("a.txt", "stored");
  backUp();
  holdRestores();
  const std::uint32_t job = add(requestFor({"a.txt"}));
  ASSERT_TRUE(eventually([&] { return isHeld_.load(); }));
  // A killed process leaves the store and the staging in this state.
  const std::vector<std::string> left = stagings();
  std::filesystem::copy(folder_ / "store.sqlite", folder_ / "crashed.sqlite");
  std::filesystem::copy(folder_ / "store.sqlite-wal", folder_ / "crashed.sqlite-wal");
  ASSERT_FALSE(left.empty());
  end();
  std::filesystem::create_directory(left.front());
  std::filesystem::permissions(left.front(), std::filesystem::perms(0700));
  folder_.write(left.front().substr(folder_.path().string().size() + 1) + "/from-0/half", "half");
  store_ = std::make_unique<Store>(folder_ / "crashed.sqlite");
  go_ = true;
  begin();
  ASSERT_TRUE(eventually([&] { return hasEnded(job); }));
  EXPECT_EQ(jobs_->report(job).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(target()), ElementsAre("a.txt"));
}

TEST_F(RestoreTroubleTest, WaitsForARepositoryThatCannotBeReached) {
  write("a.txt", "stored");
  backUp();
  std::atomic<bool> isAway = true;
  interfering_.beforeRestore = [&](EngineJob&) {
    return isAway ? EngineAnswer{Health::unreachable, "The server is away."} : EngineAnswer();
  };
  const std::uint32_t job = add(requestFor({"a.txt"}));
  ASSERT_TRUE(eventually([&] { return jobs_->report(job).message == "The server is away."; }));
  EXPECT_EQ(jobs_->report(job).status, RestoreStatus::waiting);
  EXPECT_THAT(stagings(), IsEmpty());
  isAway = false;
  jobs_->tryNow();
  ASSERT_TRUE(eventually([&] { return hasEnded(job); }));
  EXPECT_EQ(jobs_->report(job).status, RestoreStatus::done);
  EXPECT_EQ(jobs_->report(job).message, "");
  EXPECT_EQ(jobs_->report(job).files, 1U);
  EXPECT_EQ(interfering_.restores, 2);
}

TEST_F(RestoreTroubleTest, KeepsTheReportsOfAHundredJobs) {
  end();
  for (int i = 0; i < 101; ++i) {
    jobs_ = std::make_unique<RestoreJobs>(*store_, interfering_, data(), [] {});
    jobs_->cancel(add(requestFor({"a.txt"})));
  }
  EXPECT_EQ(jobs_->report(1).status, RestoreStatus::unknown);
  EXPECT_EQ(jobs_->report(2).status, RestoreStatus::cancelled);
  EXPECT_EQ(store_->restores().size(), 100U);
}

}  // namespace
}  // namespace keldane::testing
