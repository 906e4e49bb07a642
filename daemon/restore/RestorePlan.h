// What a restore takes from which snapshot.
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

/// A snapshot that something is taken from.
struct RestoreSource {
  std::string snapshot;
  std::string prefix;  ///< what stands before the paths in it
  std::uint32_t number = 0;
  bool full = false;
};

/// A file or link that is to be had.
struct WantedFile {
  enum State : std::uint8_t { missing, staged, failed };
  std::uint64_t size = 0;    ///< bytes; of a regular file
  std::uint32_t source = 0;  ///< an index
  State state = missing;
};

struct PlannedItem {
  std::string path;
  std::string name;  ///< in the target; unused when it goes to its own place
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

/// Asks the catalogue, and the repository itself for what the catalogue does not know. One thread.
class RestorePlanner {
 public:
  RestorePlanner(Store& store, BackupEngine& engine, const DataFolder& folder, EngineJob& job)
      : store_(store), engine_(engine), folder_(folder), job_(job) {}

  /// Adds an item. `name`: see PlannedItem. Not ready when the repository had to be asked and cannot be.
  EngineAnswer add(const RestoreRequest::Item& item, const std::string& name, double before,
                   RestorePlan& plan);
  /// Takes out everything that is not stored as a file of that user.
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
  std::optional<std::map<std::string, SnapshotRecord>> snapshots_;  // of the repository, by id
};

}  // namespace keldane
