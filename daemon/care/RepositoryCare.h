// Looks after the repository: makes it at the first start, keeps it within its bounds, and proves it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
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
#include "platform/threads/Mutex.h"

namespace keldane {

/// The configuration of a computer that has no repository yet: its name and a random number.
RepositoryConfig newComputer();

/// The intervals of each kind of upkeep, in seconds.
struct CareTimes {
  double probe = 6 * 3600.0;
  double forget = 3600;      ///< between looks for many snapshots that may go
  double forgetFew = 86400;  ///< between looks for any snapshot that may go
  double prune = 7 * 86400.0;
  double check = 7 * 86400.0;  ///< each checks an eighth of the stored bytes
  double drill = 7 * 86400.0;
};

/// The upkeep of the repository. The worker's threads call it, and clients' threads for checks and drills
/// that a user asks for; such calls take turns. Its results are kept in the store's settings.
class RepositoryCare final : public RepositoryKeeper {
 public:
  RepositoryCare(Store& store, RuleBook& rules, BackupEngine& engine, RepositoryFiles& files,
                 RepositoryWatch& watch, const CareTimes& times = {})
      : store_(store), rules_(rules), engine_(engine), files_(files), watch_(watch), times_(times) {}

  /// The location where a daemon without a repository makes one; empty means its own folder. It is set before
  /// the first call.
  std::string firstLocation;

  /// Called when files no longer count as stored, on the thread that finds that out.
  std::function<void()> lostFiles = [] {};
  /// Called before `lostFiles` when stored bytes turned out to be damaged. No snapshot may then be used as a
  /// parent.
  std::function<void()> lostBytes = [] {};
  /// Keeps batches from running for as long as the returned object lives. The lane whose thread calls this
  /// with its job is excepted.
  std::function<std::shared_ptr<void>(const EngineJob& job)> holdStill = [](const EngineJob&) {
    return nullptr;
  };
  /// Called with a sentence that a user must be told.
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
  /// Checks the structure and that part of the stored bytes (0 of 0: none). Files in damaged packs no longer
  /// count as stored.
  CheckEnd check(unsigned part, unsigned parts, EngineJob& job);
  /// A failed drill is followed by a check of everything, because later backups would use the damaged data.
  DrillEnd drill(std::size_t files, EngineJob& job);

  /// Forgets all snapshots that retention allows, if they are at least `fewest`. `gone` receives their
  /// number.
  EngineAnswer forgetDue(std::size_t fewest, EngineJob& job, std::size_t* gone = nullptr);

  /// Keeps checks, drills and upkeep away while it is held. Taking it waits for the one that is under way.
  Mutex& turn() { return turn_; }

  std::uint64_t repositorySize() const { return size_; }
  std::uint64_t quotaBytes();
  /// Has the catalogue made anew as soon as the repository is made ready.
  void expectRebuild() {
    read_ = 0;
    toRead_ = 1;
  }
  /// The progress of making the catalogue anew; both are 0 when it is complete.
  std::size_t snapshotsToRead() const { return toRead_; }
  std::size_t snapshotsRead() const { return read_; }

 private:
  EngineAnswer setUpHere(EngineJob& job);
  EngineAnswer reconcile(EngineJob& job);
  bool isDue(const std::string& key, double interval);
  void did(const std::string& key);
  EngineAnswer measure(EngineJob& job);
  CheckEnd checkInTurn(unsigned part, unsigned parts, EngineJob& job) KELDANE_REQUIRES(turn_);
  DrillEnd drillInTurn(std::size_t files, EngineJob& job) KELDANE_REQUIRES(turn_);
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
  // One check, drill or piece of upkeep at a time.
  Mutex turn_{{.name = "RepositoryCare.turn", .heldWhileWaiting = true}};
  std::atomic<std::uint64_t> size_ = 0;
  std::atomic<std::size_t> toRead_ = 0, read_ = 0;
};

}  // namespace keldane
