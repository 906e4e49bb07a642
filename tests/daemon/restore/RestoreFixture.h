// A repository with a catalogue, and jobs that restore from it.
#pragma once

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>

#include "daemon/restore/RestoreJobs.h"
#include "tests/daemon/engine/EngineFixture.h"

namespace keldane::testing {

/// Passes all calls to another engine. A test can act before a restore, or instead of it.
class InterferingEngine : public BackupEngine {
 public:
  explicit InterferingEngine(BackupEngine& engine) : engine_(engine) {}
  /// Called before each restore. If its answer is not ready, it is the restore's answer.
  std::function<EngineAnswer(EngineJob& job)> beforeRestore;
  /// Called after each restore, with the folder.
  std::function<void(const std::string& folder)> afterRestore;
  std::atomic<int> restores = 0;
  std::atomic<int> finds = 0;

  EngineAnswer probe(EngineJob& job) override { return engine_.probe(job); }
  EngineAnswer initialize(EngineJob& job) override { return engine_.initialize(job); }
  StoreAnswer store(const StoreRequest& request, const StoreObserver& observer, EngineJob& job) override {
    return engine_.store(request, observer, job);
  }
  EngineAnswer snapshots(bool ofAll, std::vector<Snapshot>& found, EngineJob& job) override {
    return engine_.snapshots(ofAll, found, job);
  }
  EngineAnswer list(const std::string& snapshot, const std::string& path, const Visit& visit,
                    EngineJob& job) override {
    return engine_.list(snapshot, path, visit, job);
  }
  EngineAnswer find(const std::string& pattern, std::vector<FoundEntry>& found, EngineJob& job) override {
    ++finds;
    return engine_.find(pattern, found, job);
  }
  EngineAnswer fetch(const std::string& snapshot, const std::string& path, int descriptor,
                     EngineJob& job) override {
    return engine_.fetch(snapshot, path, descriptor, job);
  }
  EngineAnswer restore(const std::string& snapshot, const std::vector<std::string>& paths,
                       const std::string& folder, std::vector<std::string>& problems,
                       EngineJob& job) override {
    ++restores;
    if (beforeRestore) {
      if (EngineAnswer answer = beforeRestore(job); !answer) {
        return answer;
      }
    }
    EngineAnswer answer = engine_.restore(snapshot, paths, folder, problems, job);
    if (afterRestore) {
      afterRestore(folder);
    }
    return answer;
  }
  EngineAnswer forget(const std::vector<std::string>& snapshots, EngineJob& job) override {
    return engine_.forget(snapshots, job);
  }
  EngineAnswer prune(EngineJob& job) override { return engine_.prune(job); }
  EngineAnswer unlock(EngineJob& job) override { return engine_.unlock(job); }
  CheckAnswer check(unsigned part, unsigned parts, EngineJob& job) override {
    return engine_.check(part, parts, job);
  }
  EngineAnswer filesInPacks(const std::vector<std::string>& packs, std::vector<FoundEntry>& found,
                            EngineJob& job) override {
    return engine_.filesInPacks(packs, found, job);
  }
  EngineAnswer dropPacks(const std::vector<std::string>& packs, EngineJob& job) override {
    return engine_.dropPacks(packs, job);
  }
  EngineAnswer size(std::uint64_t& bytes, EngineJob& job) override { return engine_.size(bytes, job); }
  EngineAnswer addKey(const std::string& passphrase, EngineJob& job) override {
    return engine_.addKey(passphrase, job);
  }

 private:
  BackupEngine& engine_;
};

class RestoreFixture : public EngineFixture {
 protected:
  RestoreFixture() {
    initialize();
    begin();
  }
  ~RestoreFixture() override { end(); }

  void begin() {
    jobs_ = std::make_unique<RestoreJobs>(*store_, interfering_, data(), [] {});
    jobs_->start();
  }
  void end() { jobs_.reset(); }

  static std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
  }

  /// Stores everything in "home" as a full backup, or the given paths as a partial one. Returns its number.
  std::uint32_t backUp(const std::vector<std::string>& paths = {}) {
    const std::uint32_t number = store_->takeNumber();
    const bool isFull = paths.empty();
    const double now = static_cast<double>(++clock_);
    const StoreAnswer answer =
        store(isFull ? std::vector{home()} : paths,
              {"keldane", "number:" + std::to_string(number), isFull ? "full" : "part"});
    EXPECT_TRUE(answer) << answer;
    std::vector<StoredFile> stored;
    std::vector<std::string> confirmed;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home())) {
      const std::string path = entry.path().string();
      struct stat status {};
      lstat(path.c_str(), &status);
      if ((!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) ||
          (!isFull && std::find(paths.begin(), paths.end(), path) == paths.end())) {
        continue;
      }
      const FileState state{static_cast<std::uint64_t>(status.st_size), nanoseconds(status.st_mtim),
                            nanoseconds(status.st_ctim)};
      const std::optional<BackupRecord> known = store_->record(path);
      if (known && static_cast<const FileState&>(*known) == state) {
        confirmed.push_back(path);
      } else {
        stored.push_back({path, state});
      }
    }
    store_->addSnapshot({number, answer.snapshot, now, isFull, {}}, stored, confirmed);
    return number;
  }
  void remove(const std::string& name) {
    std::filesystem::remove_all(home() + "/" + name);
    store_->setRemoved(home() + "/" + name, true, static_cast<double>(++clock_));
  }

  RestoreRequest requestFor(const std::vector<std::string>& names, std::uint32_t version = 0) const {
    RestoreRequest request;
    for (const std::string& name : names) {
      request.items.push_back({name.empty() ? home() : home() + "/" + name, version});
    }
    request.target = target();
    request.user = ::geteuid();
    request.group = ::getegid();
    return request;
  }
  std::string target() const { return folder_ / "target"; }

  bool hasEnded(std::uint32_t job) const {
    const RestoreStatus status = jobs_->report(job).status;
    return status != RestoreStatus::waiting && status != RestoreStatus::running;
  }
  std::uint32_t add(const RestoreRequest& request) {
    std::string refusal;
    const std::uint32_t job = jobs_->add(request, &refusal);
    EXPECT_NE(job, 0U) << refusal;
    return job;
  }
  RestoreReport restore(const RestoreRequest& request) {
    const std::uint32_t job = add(request);
    EXPECT_TRUE(eventually([&] { return hasEnded(job); }));
    const RestoreReport report = jobs_->report(job);
    EXPECT_EQ(report.filesDone, report.files);
    EXPECT_EQ(report.bytesDone, report.bytes);
    EXPECT_EQ(stagings(), std::vector<std::string>());
    return report;
  }
  /// The staging folders that restores have left behind anywhere.
  std::vector<std::string> stagings() const {
    std::vector<std::string> found;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path(), ignored)) {
      if (entry.path().filename().string().starts_with(".keldane-restore-")) {
        found.push_back(entry.path());
      }
    }
    return found;
  }
  /// The paths in a folder, relative to it, in order.
  static std::vector<std::string> contentsOf(const std::string& folder) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      found.push_back(entry.path().string().substr(folder.size() + 1));
    }
    std::sort(found.begin(), found.end());
    return found;
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
  }

  std::unique_ptr<Store> store_ = std::make_unique<Store>(folder_ / "store.sqlite");
  InterferingEngine interfering_{engine_};
  std::unique_ptr<RestoreJobs> jobs_;
  std::uint32_t clock_ = 1'000'000;
};

}  // namespace keldane::testing
