// The plan of a restore: which files come from which snapshots.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/restore/RestoreJobs.h"
#include "daemon/store/Store.h"

namespace keldane {

/// A snapshot from which items are restored.
struct RestoreSource {
  std::string snapshot;
  std::string prefix;  ///< precedes the paths in the snapshot
  std::uint32_t number = 0;
  bool full = false;
};

/// A file or link that is to be restored.
struct WantedFile {
  enum State : std::uint8_t { missing, staged, failed };
  std::uint64_t size = 0;    ///< bytes; of a regular file
  std::uint32_t source = 0;  ///< an index
  State state = missing;
};

struct PlannedItem {
  std::string path;
  std::string name;  ///< the name in the target; unused when the item goes to its own place
  /// For a folder: the source whose whole folder is taken, with links and empty folders. Files that belong to
  /// others are dropped from it.
  std::optional<std::uint32_t> base;
};

struct RestorePlan {
  std::vector<RestoreSource> sources;
  std::map<std::string, WantedFile> files;  ///< by path, below all items
  std::vector<PlannedItem> items;
  std::vector<std::string> problems;  ///< a sentence for each item of which nothing is stored
  bool leavesOutForeign = false;      ///< something was left out because it is another user's

  std::uint64_t bytes() const;
};

/// Makes the plan from the catalogue, and from the repository itself where the catalogue has no answer. One
/// thread.
class RestorePlanner {
 public:
  RestorePlanner(Store& store, BackupEngine& engine, const DataFolder& folder, EngineJob& job)
      : store_(store), engine_(engine), folder_(folder), job_(job) {}

  /// Adds an item. PlannedItem explains `name`. The answer is not ready when the repository is needed and
  /// cannot be used.
  EngineAnswer add(const RestoreRequest::Item& item, const std::string& name, double before,
                   RestorePlan& plan);
  /// Removes everything from the plan that is not stored as a file of that user.
  EngineAnswer keepOnly(uid_t owner, RestorePlan& plan);

 private:
  struct Bounds {
    std::uint32_t number = 0;
    double before = 0;
  };
  bool addFromCatalogue(const Bounds& bounds, PlannedItem& item, RestorePlan& plan);
  EngineAnswer addFromRepository(const Bounds& bounds, PlannedItem& item, RestorePlan& plan);
  EngineAnswer readSnapshots();
  EngineAnswer addListed(std::uint32_t source, PlannedItem& item, RestorePlan& plan);
  EngineAnswer readOwners(std::uint32_t source, const PlannedItem& item, uid_t owner, RestorePlan& plan);

  Store& store_;
  BackupEngine& engine_;
  const DataFolder folder_;
  EngineJob& job_;
  std::optional<std::map<std::string, SnapshotRecord>> snapshots_;  // all snapshots of the repository, by id
};

}  // namespace keldane
