// Brings the catalogue up to what the repository holds.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "daemon/backup/Manifest.h"
#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"

namespace keldane {

/// The number in a tag such as "number:17" or "computer:5"; 0 when there is none.
std::uint32_t numberFromTags(const Snapshot& snapshot, std::string_view prefix);

/// The setting that lets the next catalogue take over the rules of the repository although there are some.
inline constexpr const char* kTakeRules = "takeRules";

/// Compares this computer's snapshots with the catalogue: what the catalogue does not know is read from the
/// repository, newest first; what the repository no longer holds leaves the catalogue. So a lost catalogue is
/// made anew, a snapshot that was finished when the daemon was killed is found, and so is what somebody else
/// forgot. A catalogue that knew nothing also gets rules and settings back from the newest manifest.
class Reconciliation {
 public:
  Reconciliation(Store& store, RuleBook& rules, BackupEngine& engine, const RepositoryFiles& files)
      : store_(store), rules_(rules), engine_(engine), files_(files) {}

  using Progress = std::function<void(std::size_t done, std::size_t all)>;
  /// Blocks until it is done, has failed or was cancelled. What was read stays; the next run goes on from
  /// there.
  EngineAnswer run(const Progress& progress, EngineJob& job);
  bool hasChanged() const { return changed_; }

 private:
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
