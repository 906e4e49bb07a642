// Looks after the repository: makes it at the first start, keeps it within its bounds, and proves it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "daemon/backup/RepositoryKeeper.h"
#include "daemon/backup/RepositoryWatch.h"
#include "daemon/care/Drill.h"
#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"

namespace keldane {

/// The configuration of a computer that has no repository yet: its name and a number that is its own.
RepositoryConfig newComputer();

/// When each kind of upkeep is due, in seconds.
struct CareTimes {
  double probe = 6 * 3600.0;
  double forget = 3600;      ///< when many snapshots may go
  double forgetFew = 86400;  ///< when any may go
  double prune = 7 * 86400.0;
  double check = 7 * 86400.0;  ///< each checks an eighth of the stored bytes
  double drill = 7 * 86400.0;
};

/// The upkeep of the repository. Called by the worker's threads and, for checks and drills that a person asks
/// for, by a client's; such calls take turns. What it finds out is kept in the store's settings.
class RepositoryCare final : public RepositoryKeeper {
 public:
  RepositoryCare(Store& store, RuleBook& rules, BackupEngine& engine, RepositoryFiles& files,
                 RepositoryWatch& watch, const CareTimes& times = {})
      : store_(store), rules_(rules), engine_(engine), files_(files), watch_(watch), times_(times) {}

  /// Where a daemon that has no repository yet makes one; empty: in its own folder. Set before the first
  /// call.
  std::string firstLocation;

  /// Called on the thread at hand when files that counted as stored no longer do.
  std::function<void()> lostFiles = [] {};
  /// The same when stored bytes turned out to be damaged, before `lostFiles`: no snapshot is a parent to go
  /// by.
  std::function<void()> lostBytes = [] {};
  /// Keeps batches from running for as long as the answer lives, but for one whose thread calls this with its
  /// job.
  std::function<std::shared_ptr<void>(const EngineJob& job)> holdStill = [](const EngineJob&) {
    return nullptr;
  };
  /// Takes a sentence that a person must be told.
  std::function<void(const std::string& sentence)> alert = [](const std::string&) {};

  EngineAnswer makeReady(EngineJob& job) override;
  std::optional<EngineAnswer> lookAfter(EngineJob& job) override;
  bool isRecovering() override;
  EngineAnswer mayGrow() override;
  void grew(std::uint64_t bytes) override;
  void noteGood() override;
  void storedAnew() override;

  struct CheckEnd {
    EngineAnswer answer;
    bool ok = false;
    std::string sentence;
    std::vector<std::string> damagedFiles;
  };
  /// Checks the structure and that part of the stored bytes (0 of 0: none). Files in damaged packs stop
  /// counting as stored.
  CheckEnd check(unsigned part, unsigned parts, EngineJob& job);
  /// A drill that fails is followed by a check of everything: what is stored anew would rest on the damage.
  DrillEnd drill(std::size_t files, EngineJob& job);

  /// Forgets what retention allows, all of it. Answers how many snapshots went.
  EngineAnswer forgetDue(std::size_t fewest, EngineJob& job, std::size_t* gone = nullptr);

  /// Keeps checks, drills and upkeep away for as long as the answer lives. Waits for the one that is under
  /// way.
  [[nodiscard]] std::unique_lock<std::mutex> takeTurn() { return std::unique_lock(turn_); }

  std::uint64_t repositorySize() const { return size_; }
  std::uint64_t quotaBytes();
  /// The catalogue is to be made anew, as soon as the repository is made ready.
  void expectRebuild() {
    read_ = 0;
    toRead_ = 1;
  }
  /// How far the catalogue has been made anew; both 0 when it is complete.
  std::size_t snapshotsToRead() const { return toRead_; }
  std::size_t snapshotsRead() const { return read_; }

 private:
  EngineAnswer setUpHere(EngineJob& job);
  EngineAnswer reconcile(EngineJob& job);
  bool isDue(const std::string& key, double interval);
  void did(const std::string& key);
  EngineAnswer measure(EngineJob& job);
  CheckEnd checkInTurn(unsigned part, unsigned parts, EngineJob& job);
  DrillEnd drillInTurn(std::size_t files, EngineJob& job);
  EngineAnswer forgetAll(const std::vector<SnapshotRecord>& snapshots, EngineJob& job);
  EngineAnswer dropPacks(const std::vector<std::string>& packs, EngineJob& job);
  EngineAnswer filesInPacks(const std::vector<std::string>& packs, std::vector<FoundEntry>& found,
                            EngineJob& job);
  EngineAnswer giveUpDamaged(const std::vector<std::string>& packs, std::vector<std::string>& files,
                             EngineJob& job);
  void giveUp(const FoundEntry& found, const SnapshotRecord& snapshot, std::vector<std::string>& files);
  EngineAnswer giveUpUnreadable(const std::vector<std::string>& snapshots, EngineJob& job);
  CheckAnswer checkTwice(unsigned part, unsigned parts, EngineJob& job);

  Store& store_;
  RuleBook& rules_;
  BackupEngine& engine_;
  RepositoryFiles& files_;
  RepositoryWatch& watch_;
  const CareTimes times_;
  std::mutex turn_;  // one check, drill or piece of upkeep at a time
  std::atomic<std::uint64_t> size_ = 0;
  std::atomic<std::size_t> toRead_ = 0, read_ = 0;
};

}  // namespace keldane
