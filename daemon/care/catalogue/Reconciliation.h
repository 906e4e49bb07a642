// Brings the catalogue up to date with the repository.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/backup/batch/Manifest.h"
#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"

namespace keldane {

/// The number in a tag such as "number:17" or "computer:5"; 0 when there is none.
std::uint32_t numberFromTags(const Snapshot& snapshot, std::string_view prefix);
/// Whether a snapshot is this computer's own, or a recovered one of the former computer.
bool isOfInterest(const Snapshot& snapshot, const RepositoryConfig& configuration);

/// The setting that lets the next catalogue take over the rules of the repository although there are some.
inline constexpr const char* kTakeRules = "takeRules";

/// Compares this computer's snapshots with the catalogue. Snapshots that the catalogue does not know are read
/// from the repository, newest first. Snapshots that are no longer in the repository are removed from the
/// catalogue. So a lost catalogue is made anew, and snapshots are noticed that were finished when the daemon
/// was killed, or that somebody else forgot. An empty catalogue also gets rules and settings from the newest
/// manifest.
class Reconciliation {
 public:
  Reconciliation(Store& store, RuleBook& rules, BackupEngine& engine, const RepositoryFiles& files)
      : store_(store), rules_(rules), engine_(engine), files_(files) {}

  using Progress = std::function<void(std::size_t done, std::size_t all)>;
  /// Blocks until it is done, has failed or was cancelled. Everything that was read is kept, and the next run
  /// goes on from there.
  EngineAnswer run(const Progress& progress, EngineJob& job);
  bool hasChanged() const { return changed_; }

 private:
  /// A snapshot that the catalogue does not have, and its record for the catalogue.
  struct UnknownSnapshot {
    const Snapshot* snapshot;
    SnapshotRecord record;
  };

  /// Removes vanished snapshots from the catalogue. Returns the snapshots that must be read, the newest
  /// first.
  std::vector<UnknownSnapshot> compare(const std::vector<SnapshotRecord>& known,
                                       const std::vector<Snapshot>& found);
  EngineAnswer takeAll(const std::vector<UnknownSnapshot>& unknown, bool withRules, const Progress& progress,
                       EngineJob& job);
  EngineAnswer take(const Snapshot& snapshot, SnapshotRecord record, bool withRules, EngineJob& job);
  EngineAnswer manifestOf(const Snapshot& snapshot, const std::string& path, ManifestHead& head,
                          std::map<std::string, ManifestFile>& files, EngineJob& job);
  void takeRules(const ManifestHead& head);

  Store& store_;
  RuleBook& rules_;
  BackupEngine& engine_;
  const RepositoryFiles& files_;
  bool changed_ = false;
};

}  // namespace keldane
