// Gathers old versions in one snapshot, so that the many snapshots that hold one each can be forgotten.
#pragma once

#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/store/Store.h"

namespace keldane {

/// Fetches the versions that are the only reason for keeping many snapshots, mostly those of deleted files,
/// and stores them again in one snapshot, each below a prefix. Their contents are already in the repository,
/// so this takes no room there.
class Gathering {
 public:
  Gathering(Store& store, BackupEngine& engine, const RepositoryFiles& files)
      : store_(store), engine_(engine), files_(files) {}

  /// Gathers versions. It does nothing while that is not worth the work.
  EngineAnswer run(double now, const Store::Retention& retention, EngineJob& job);

 private:
  using Versions = std::vector<std::pair<std::string, VersionRecord>>;
  EngineAnswer fetch(const Versions& versions, const std::string& folder, EngineJob& job);
  EngineAnswer storeAgain(const Versions& versions, const std::string& folder, std::uint32_t number,
                          double now, EngineJob& job);

  Store& store_;
  BackupEngine& engine_;
  const RepositoryFiles& files_;
};

}  // namespace keldane
