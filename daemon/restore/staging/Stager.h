// Makes the items of a plan whole in a staging.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemon/restore/RestorePlan.h"
#include "daemon/restore/staging/Staging.h"

namespace keldane {

/// Has the storage program restore the items of a plan, removes files that are not wanted or not whole, and
/// arranges the others in the folder `new` of the staging as they are to be in the target. Used on one
/// thread.
class Stager {
 public:
  struct Options {
    bool ownPlaces = true;  ///< `new` is laid out from "/"; otherwise it has each item under its name
    /// Only files of this user are restored; the names of other users' files are not reported.
    std::optional<uid_t> owner;
    std::function<bool()> mayGoOn;
    std::function<void(const std::string& sentence)> problem;
  };
  Stager(BackupEngine& engine, const Staging& staging, EngineJob& job, Options options)
      : engine_(engine), staging_(staging), job_(job), options_(std::move(options)) {}

  /// The answer is not ready when the whole repository fails. A file that fails is reported as a problem and
  /// is `failed` in the plan.
  EngineAnswer stage(RestorePlan& plan);

  static constexpr const char* kResult = "new";

 private:
  struct Part {
    std::uint32_t source = 0;
    std::string name;
    std::vector<std::string> paths;  // without prefix
  };
  std::vector<std::string> pathsFrom(std::uint32_t source, const RestorePlan& plan) const;
  EngineAnswer fetch(const Part& part, RestorePlan& plan);
  void noteProblems(const Part& part, std::vector<std::string> lines, RestorePlan& plan, Health health);
  void noteProblemOf(const Part& part, const std::string& path, const std::string& reason, RestorePlan& plan,
                     Health health);
  void failMissing(const Part& part, RestorePlan& plan, const std::string& reason);
  void filter(const Part& part, RestorePlan& plan);
  bool stays(std::uint32_t source, int folder, const std::string& name, const std::string& path,
             const struct stat& status, RestorePlan& plan);
  void compose(const Part& part, const RestorePlan& plan);
  void composeItem(int root, const std::string& prefix, const PlannedItem& item);
  void merge(int folder);

  BackupEngine& engine_;
  const Staging& staging_;
  EngineJob& job_;
  const Options options_;
};

}  // namespace keldane
