#include "daemon/backup/BackupWorker.h"

#include <sys/stat.h>

#include <algorithm>

#include "daemon/Clock.h"
#include "tests/daemon/backup/BackupFixture.h"

namespace keldane {
namespace {

using testing::BackupWorkerTest;
using testing::eventually;

EngineAnswer unreachable(const StoreRequest&, EngineJob&) {
  return {Health::unreachable, "The server is away."};
}
EngineAnswer ready(const StoreRequest&, EngineJob&) { return {}; }

/// Delays a call until its job is cancelled.
EngineAnswer untilCancelled(const StoreRequest&, EngineJob& job) {
  eventually([&] { return job.cancelled.load(); });
  return {Health::cancelled, ""};
}

TEST_F(BackupWorkerTest, KeepsSizeTimesAndDateOfWhatIsStored) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  const std::optional<BackupRecord> record = store_.record(file("a"));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->size, 1U);
  EXPECT_EQ(static_cast<const FileState&>(*record), fileStateOf(*statusOf(file("a"))));
  EXPECT_NEAR(record->date, timeOfDay(), 1000);
  EXPECT_TRUE(waitUntilDone());
  EXPECT_EQ(worker_.progress().pendingBytes, 0U);
  EXPECT_GE(keeper_.good, 1);
}

TEST_F(BackupWorkerTest, StoresAWholeFolderAsOneTargetInAFullSnapshot) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  EXPECT_EQ(engine_.targets(0), std::vector<std::string>{folder_ / "files"});
  const std::vector<std::string>& tags = engine_.requests.at(0).tags;
  EXPECT_NE(std::find(tags.begin(), tags.end(), "full"), tags.end());
  EXPECT_TRUE(store_.snapshots().at(0).full);
}

TEST_F(BackupWorkerTest, StoresWhatChangedInAPartialSnapshot) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  ASSERT_TRUE(waitUntilDone());
  folder_.write("files/a", "changed");
  worker_.reconsiderAll();
  EXPECT_TRUE(eventually([&] { return store_.record(file("a"))->version == 2; }));
  EXPECT_EQ(store_.record(file("b"))->version, 1U) << "what did not change is not stored again";
  EXPECT_EQ(engine_.targets(1), std::vector<std::string>{file("a")});
  EXPECT_FALSE(store_.snapshots().at(1).full);
  EXPECT_EQ(store_.versions(file("a")).size(), 2U);
}

TEST_F(BackupWorkerTest, ABatchTakesTheOthersOfItsHourAlong) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  for (const char* name : {"a", "b"}) {
    ASSERT_TRUE(waitUntilDone());
    folder_.write(std::string("files/") + name, "changed");
    const std::size_t before = engine_.batches();
    worker_.reconsiderAll();
    ASSERT_TRUE(eventually([&] { return engine_.batches() > before; }));
  }
  ASSERT_TRUE(waitUntilDone());
  // Another hour may have begun between the two batches.
  const std::vector<std::string> targets = engine_.targets(2);
  if (targets.size() > 1) {
    EXPECT_EQ(targets, (std::vector<std::string>{file("b"), file("a")}));
    EXPECT_EQ(engine_.requests.at(2).parent, store_.snapshots().at(1).id);
  }
  EXPECT_EQ(store_.record(file("a"))->version, 2U) << "it has no new version";
  EXPECT_EQ(store_.record(file("b"))->version, 3U);
}

TEST_F(BackupWorkerTest, DoesNotPreferWhatIsStoredAlready) {
  rules_.setRule(file("a"), true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 1; }));
  ASSERT_TRUE(waitUntilDone());
  worker_.prioritize(file("a"));
  EXPECT_FALSE(worker_.isPrioritized(file("a")));
  EXPECT_TRUE(eventually([&] { return store_.priorities().empty(); }));
}

TEST_F(BackupWorkerTest, CountsWhatIsPendingWhileItIsOff) {
  pause();
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  EXPECT_EQ(worker_.progress().pendingBytes, 3U);
  EXPECT_TRUE(worker_.isPending(file("a")));
  EXPECT_TRUE(worker_.isPendingBelow(folder_.path()));
  EXPECT_FALSE(worker_.isPendingBelow("/elsewhere"));
  rules_.setRule(file("a"), false);
  worker_.reconsider(file("a"));
  EXPECT_EQ(worker_.progress().pendingFiles, 2U);
  worker_.setModes({});
  EXPECT_TRUE(waitUntilDone());
  EXPECT_FALSE(isStored("a"));
  EXPECT_TRUE(isStored("b"));
}

TEST_F(BackupWorkerTest, StoresPreferredFilesByThemselves) {
  worker_.setModes({.automatic = false});
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  worker_.prioritize(file("b"));
  ASSERT_TRUE(eventually([&] { return isStored("b"); }));
  EXPECT_EQ(store_.totals().files, 1U);
  EXPECT_EQ(engine_.targets(0), std::vector<std::string>{file("b")});
  EXPECT_TRUE(eventually([&] { return !worker_.isPrioritized(file("b")); })) << "done is done";
  EXPECT_TRUE(eventually([&] { return store_.priorities().empty(); }));
  worker_.setModes({});
  EXPECT_TRUE(eventually([&] { return store_.totals().files == 3; }));
}

TEST_F(BackupWorkerTest, AFileThatIsPreferredAgainWhileItIsStoredIsStoredAgain) {
  worker_.setModes({.automatic = false});
  rules_.setRule(folder_ / "files", true);
  engine_.answerWith([&](const StoreRequest&, EngineJob&) {
    if (engine_.batches() == 1) {
      folder_.write("files/a", "longer");
      worker_.prioritize(file("a"));
    }
    return EngineAnswer();
  });
  worker_.start();
  worker_.prioritize(file("a"));
  ASSERT_TRUE(eventually([&] { return engine_.batches() == 2; }));
  EXPECT_TRUE(eventually([&] { return !worker_.isPrioritized(file("a")); }));
  EXPECT_EQ(store_.record(file("a"))->size, 6U);
  EXPECT_EQ(store_.totals().files, 1U) << "no other file was preferred";
  EXPECT_TRUE(eventually([&] { return store_.priorities().empty(); }));
}

TEST_F(BackupWorkerTest, AFileThatChangesWhileItIsStoredIsNoLongerPreferred) {
  worker_.setModes({.automatic = false});
  rules_.setRule(folder_ / "files", true);
  engine_.answerWith([&](const StoreRequest&, EngineJob&) {
    folder_.write("files/a", "longer");
    return EngineAnswer();
  });
  worker_.start();
  worker_.prioritize(file("a"));
  ASSERT_TRUE(eventually([&] { return isStored("a") && !worker_.isPrioritized(file("a")); }));
  EXPECT_TRUE(eventually([&] { return worker_.isPending(file("a")); }));
  EXPECT_EQ(engine_.batches(), 1U);
}

TEST_F(BackupWorkerTest, WhileItRestsPreferredFilesAloneAreStoredAndThenTheOthers) {
  BackupWorker::Modes modes;
  modes.restsUntil = secondsSinceBoot() + 3600;
  worker_.setModes(modes);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  worker_.prioritize(file("b"));
  ASSERT_TRUE(eventually([&] { return isStored("b"); }));
  EXPECT_EQ(store_.totals().files, 1U);
  modes.restsUntil = secondsSinceBoot() + 1;  // and no further report follows
  worker_.setModes(modes);
  EXPECT_TRUE(eventually([&] { return store_.totals().files == 3; }));
}

TEST_F(BackupWorkerTest, AFailureOfTheRepositoryKeepsEverythingPending) {
  engine_.answerWith(unreachable);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return watch_.standing().health == Health::unreachable; }));
  EXPECT_EQ(worker_.progress().pendingFiles, 3U);
  EXPECT_EQ(store_.totals().files, 0U);
  EXPECT_EQ(store_.failureCount(), 0U);
  EXPECT_FALSE(watch_.mayTry());
  engine_.answerWith(ready);
  worker_.repositoryChanged();
  EXPECT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  EXPECT_TRUE(watch_.standing());
}

TEST_F(BackupWorkerTest, ANumberIsNeverUsedAgain) {
  engine_.answerWith(unreachable);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return engine_.batches() == 1; }));
  engine_.answerWith(ready);
  worker_.repositoryChanged();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  EXPECT_GE(store_.record(file("a"))->version, 2U);
}

TEST_F(BackupWorkerTest, SwitchingItOffEndsTheBatchThatRuns) {
  engine_.answerWith(untilCancelled);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().isStoring; }));
  pause();
  EXPECT_TRUE(eventually([&] { return !worker_.progress().isStoring; }));
  EXPECT_EQ(worker_.progress().pendingFiles, 3U);
  EXPECT_TRUE(watch_.standing()) << "that is no failure";
  engine_.answerWith(ready);
  worker_.setModes({});
  EXPECT_TRUE(eventually([&] { return store_.totals().files == 3; }));
}

TEST_F(BackupWorkerTest, StoppingEndsTheBatchThatRuns) {
  engine_.answerWith(untilCancelled);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().isStoring; }));
  worker_.stop();
  EXPECT_EQ(store_.totals().files, 0U);
}

TEST_F(BackupWorkerTest, WhoeverHoldsItStillWaitsForNoBatch) {
  engine_.answerWith(untilCancelled);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().isStoring; }));
  {
    const BackupWorker::Stillness still = worker_.holdStill();
    EXPECT_FALSE(worker_.progress().isStoring);
    engine_.answerWith(ready);
  }
  EXPECT_TRUE(eventually([&] { return store_.totals().files == 3; }));
}

TEST_F(BackupWorkerTest, AFileThatChangesWhileItIsStoredIsStoredAgain) {
  std::atomic<int> calls = 0;
  engine_.answerWith([&](const StoreRequest&, EngineJob&) {
    if (++calls == 1) {
      folder_.write("files/a", "changed meanwhile");
    }
    return EngineAnswer();
  });
  rules_.setRule(file("a"), true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return calls >= 2; }));
  ASSERT_TRUE(waitUntilDone());
  EXPECT_EQ(store_.record(file("a"))->size, 17U);
}

TEST_F(BackupWorkerTest, WhatIsExcludedWhileItIsStoredIsNotTold) {
  engine_.answerWith([&](const StoreRequest&, EngineJob&) {
    rules_.setRule(file("a"), false);
    return EngineAnswer();
  });
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return isStored("b") && isStored("c"); }));
  EXPECT_TRUE(waitUntilDone());
  EXPECT_FALSE(isStored("a"));
  EXPECT_EQ(store_.failureCount(), 0U);
}

TEST_F(BackupWorkerTest, SomethingIsToBeScannedFromTheWishOnAndUntilItWasFound) {
  EXPECT_EQ(worker_.progress().placesToScan, 0U);
  {
    const BackupWorker::Intention intention(worker_);
    EXPECT_EQ(worker_.progress().placesToScan, 1U);
    rules_.setRule(folder_ / "files", true);
    worker_.reconsider(folder_ / "files");
  }
  EXPECT_EQ(worker_.progress().placesToScan, 1U);
  EXPECT_TRUE(worker_.isToBeScanned(file("a")));
  EXPECT_TRUE(worker_.isToBeScanned(folder_ / "files"));
  EXPECT_FALSE(worker_.isToBeScanned(folder_.path()));
  EXPECT_FALSE(worker_.isToBeScanned(folder_ / "file"));
  pause();
  worker_.start();
  BackupWorker::Progress progress;
  do {
    progress = worker_.progress();
  } while (progress.placesToScan > 0);
  EXPECT_EQ(progress.pendingFiles, 3U);
  EXPECT_FALSE(worker_.isToBeScanned(file("a")));
}

TEST_F(BackupWorkerTest, ALossOfBytesIsRememberedUntilEverythingIsStoredAnew) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  ASSERT_TRUE(waitUntilDone());
  worker_.bytesLost();
  worker_.stop();
  timing_.fullInterval = {};
  const std::size_t before = engine_.batches();
  BackupWorker next(store_, rules_, engine_, files_, watch_, keeper_, timing_);
  folder_.write("files/a", "changed");
  next.start();
  ASSERT_TRUE(eventually([&] { return engine_.batches() >= before + 2; })) << "the change, and a full one";
  ASSERT_TRUE(eventually([&] { return keeper_.anew > 0; }));
  next.stop();
  EXPECT_EQ(engine_.requests.at(before + 1).parent, "") << "every file is read";
  EXPECT_EQ(store_.value(Store::Table::settings, "bytesLost"), "0");
}

TEST_F(BackupWorkerTest, WhatIsExcludedHasNotFailed) {
  chmod(file("a").c_str(), 0);
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.failureCount() == 1; }));
  ASSERT_TRUE(waitUntilDone());
  rules_.setRule(file("b"), false);
  worker_.reconsider(file("b"));
  EXPECT_EQ(store_.failureCount(), 1U);
  rules_.setRule(folder_ / "files", false);
  worker_.reconsider(folder_ / "files");
  EXPECT_EQ(store_.failureCount(), 0U);
}

TEST_F(BackupWorkerTest, WhatIsExcludedIsNoLongerPreferred) {
  pause();
  rules_.setRule(folder_ / "files", true);
  worker_.prioritize(file("a"));
  worker_.prioritize(file("b"));
  EXPECT_TRUE(worker_.progress().hasPreferred);
  rules_.setRule(file("a"), false);
  worker_.endUnwantedPreferences(folder_.path());
  EXPECT_FALSE(worker_.isPrioritized(file("a")));
  EXPECT_TRUE(worker_.isPrioritized(file("b")));
  EXPECT_EQ(store_.priorities().size(), 1U);
}

TEST_F(BackupWorkerTest, AFileThatALookFindsStoredIsNoLongerPrioritized) {
  pause();
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  worker_.prioritize(file("b"));
  EXPECT_TRUE(worker_.isPrioritized(file("b")));
  // The catalogue has the file, and its batch has not ended yet.
  store_.addSnapshot({store_.takeNumber(), "a snapshot", 1000, false, {}},
                     {{file("b"), fileStateOf(*statusOf(file("b")))}}, {});
  worker_.reconsider(folder_ / "files");
  ASSERT_TRUE(eventually([&] {
    const BackupWorker::Progress progress = worker_.progress();
    return progress.pendingFiles == 2 && progress.placesToScan == 0;
  }));
  EXPECT_FALSE(worker_.isPrioritized(file("b")));
}

TEST_F(BackupWorkerTest, AFileThatVanishedIsPendingNoLonger) {
  engine_.answerWith([&](const StoreRequest&, EngineJob&) {
    std::filesystem::remove(file("a"));
    return EngineAnswer();
  });
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 2; }));
  EXPECT_TRUE(waitUntilDone());
  EXPECT_FALSE(isStored("a"));
  EXPECT_EQ(store_.failureCount(), 0U);
}

TEST_F(BackupWorkerTest, AFileThatIsDeletedIsNotedAsRemoved) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  std::filesystem::remove(file("a"));
  worker_.reconsiderAll();
  EXPECT_TRUE(eventually([&] { return store_.record(file("a"))->removed; }));
  folder_.write("files/a", "again");
  worker_.reconsiderAll();
  EXPECT_TRUE(eventually([&] { return !store_.record(file("a"))->removed; }));
}

TEST_F(BackupWorkerTest, LinksAreStoredAndWhatIsNotThereIsPassedOver) {
  rules_.setRule(file("none"), true);
  rules_.setRule(file("a"), true);
  std::filesystem::create_symlink(file("a"), file("link"));
  rules_.setRule(file("link"), true);
  worker_.start();
  EXPECT_TRUE(eventually([&] { return isStored("a") && isStored("link"); }));
  EXPECT_TRUE(waitUntilDone());
  EXPECT_EQ(store_.totals().files, 2U);
}

TEST_F(BackupWorkerTest, NothingIsStoredWhileARecoveryIsLookedOver) {
  keeper_.recovering = true;
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3 && worker_.progress().isReady; }));
  EXPECT_EQ(engine_.batches(), 0U);
  keeper_.recovering = false;
  worker_.wake();
  EXPECT_TRUE(eventually([&] { return store_.totals().files == 3; }));
}

TEST_F(BackupWorkerTest, AUsedUpQuotaKeepsEverythingPending) {
  keeper_.room = {Health::full, "The quota is used up."};
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return watch_.standing().health == Health::full; }));
  EXPECT_EQ(engine_.batches(), 0U);
  EXPECT_EQ(worker_.progress().pendingFiles, 3U);
}

TEST_F(BackupWorkerTest, APlaceThatIsAskedForAThousandTimesIsLookedAtOnce) {
  for (int i = 0; i < 1000; ++i) {
    worker_.reconsider(folder_ / "files");
  }
  EXPECT_EQ(worker_.progress().placesToScan, 1U);
  EXPECT_TRUE(worker_.isPendingBelow(folder_ / "files"));
  EXPECT_TRUE(worker_.isPendingBelow("/"));
  EXPECT_FALSE(worker_.isPendingBelow(folder_ / "file"));
}

TEST_F(BackupWorkerTest, WhatChangesIsStoredWithoutBeingAskedFor) {
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return store_.totals().files == 3; }));
  ASSERT_TRUE(waitUntilDone());
  folder_.write("files/a", "changed");
  folder_.write("files/new/deep/d", "new");
  EXPECT_TRUE(eventually([&] { return store_.record(file("a"))->size == 7 && isStored("new/deep/d"); }));
  std::filesystem::rename(file("new"), file("moved"));
  EXPECT_TRUE(
      eventually([&] { return isStored("moved/deep/d") && store_.record(file("new/deep/d"))->removed; }));
  std::filesystem::remove(file("b"));
  EXPECT_TRUE(eventually([&] { return store_.record(file("b"))->removed; }));
}

TEST_F(BackupWorkerTest, AFolderThatBecomesACacheWaitsNoLonger) {
  pause();
  folder_.write("files/build/d", "x");
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 4; }));
  folder_.write("files/build/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55");
  EXPECT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 3; }));
  std::filesystem::remove(file("build/CACHEDIR.TAG"));
  EXPECT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 4; }));
}

TEST_F(BackupWorkerTest, WhatIsExcludedWaitsNoLongerAtOnce) {
  pause();
  folder_.write("files/sub/d", "x");
  rules_.setRule(folder_ / "files", true);
  worker_.start();
  ASSERT_TRUE(eventually([&] { return worker_.progress().pendingFiles == 4; }));
  rules_.setRule(file("sub"), false);
  worker_.reconsider(file("sub"));
  EXPECT_EQ(worker_.progress().pendingFiles, 3U);
  rules_.setRule(file("a"), true);
  rules_.setRule(folder_ / "files", false);
  worker_.reconsider(folder_ / "files");
  EXPECT_EQ(worker_.progress().pendingFiles, 1U) << "one has a rule of its own";
}

}  // namespace
}  // namespace keldane
