// A worker for a folder with three files, and an engine that the test observes.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "daemon/backup/BackupWorker.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/RecordingEngine.h"

namespace keldane::testing {

/// Records the requests to store, and fails when the test says so.
struct WatchedEngine : RecordingEngine {
  using RecordingEngine::RecordingEngine;
  StoreAnswer store(const StoreRequest& request, const StoreObserver& observer, EngineJob& job) override {
    std::function<EngineAnswer(const StoreRequest&, EngineJob&)> before;
    {
      const std::lock_guard guard(mutex);
      requests.push_back(request);
      before = whenStoring;
    }
    if (const EngineAnswer answer = before(request, job); !answer) {
      StoreAnswer failed;
      static_cast<EngineAnswer&>(failed) = answer;
      return failed;
    }
    return RecordingEngine::store(request, observer, job);
  }
  std::size_t batches() {
    const std::lock_guard guard(mutex);
    return requests.size();
  }
  /// The targets of a batch, without its manifest.
  std::vector<std::string> targets(std::size_t batch) {
    const std::lock_guard guard(mutex);
    std::vector<std::string> targets = requests.at(batch).targets;
    targets.pop_back();
    return targets;
  }
  void answerWith(std::function<EngineAnswer(const StoreRequest&, EngineJob&)> answer) {
    const std::lock_guard guard(mutex);
    whenStoring = std::move(answer);
  }
  std::mutex mutex;
  std::vector<StoreRequest> requests;
  std::function<EngineAnswer(const StoreRequest&, EngineJob&)> whenStoring =
      [](const StoreRequest&, EngineJob&) { return EngineAnswer(); };
};

/// A repository that needs no upkeep.
struct CarelessKeeper : RepositoryKeeper {
  EngineAnswer makeReady(EngineJob&) override { return {}; }
  std::optional<EngineAnswer> lookAfter(EngineJob&) override { return std::nullopt; }
  bool isRecovering() override { return recovering; }
  EngineAnswer mayGrow() override { return room; }
  void grew(std::uint64_t) override {}
  void noteGood() override { ++good; }
  void storedAnew() override { ++anew; }
  std::atomic<bool> recovering = false;
  std::atomic<int> good = 0, anew = 0;
  EngineAnswer room;
};

class BackupWorkerTest : public ::testing::Test {
 protected:
  BackupWorkerTest() {
    for (const char* name : {"a", "b", "c"}) {
      folder_.write(std::string("files/") + name, name);
    }
  }
  ~BackupWorkerTest() override { worker_.stop(); }
  void pause() { worker_.setModes({.enabled = false}); }
  bool waitUntilDone() {
    return eventually([&] {
      const BackupWorker::Progress progress = worker_.progress();
      return progress.pendingFiles == 0 && progress.placesToScan == 0 && !progress.isStoring;
    });
  }
  bool isStored(const std::string& name) { return store_.record(file(name)).has_value(); }
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }
  static BackupWorker::Timing quickly() {
    BackupWorker::Timing timing;
    timing.batchDelay = {};
    return timing;
  }

  BackupWorker::Timing timing_ = quickly();
  TemporaryFolder folder_;
  Store store_{folder_ / "store.sqlite"};
  RuleBook rules_{store_, "/", {}};
  RepositoryFiles files_{DataFolder{folder_ / "data"}};
  WatchedEngine engine_{files_};
  RepositoryWatch watch_;
  CarelessKeeper keeper_;
  BackupWorker worker_{store_, rules_, engine_, files_, watch_, keeper_, timing_};
};

}  // namespace keldane::testing
