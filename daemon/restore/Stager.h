// Making what is to be restored whole, in a staging.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemon/restore/RestorePlan.h"
#include "daemon/restore/Staging.h"

namespace keldane {

/// Has the storage program restore what a plan names, drops what does not belong to the wanted state or is
/// not whole, and puts the rest together in the folder `new` of the staging, laid out as the target is to be.
/// One thread.
class Stager {
 public:
  struct Options {
    bool ownPlaces = true;       ///< `new` is laid out from "/"; otherwise it has each item under its name
    std::optional<uid_t> owner;  ///< only what belongs to this user; names of others' files are not told
    std::function<bool()> mayGoOn;
    std::function<void(const std::string& sentence)> problem;
  };
  Stager(BackupEngine& engine, const Staging& staging, EngineJob& job, Options options)
      : engine_(engine), staging_(staging), job_(job), options_(std::move(options)) {}

  /// Not ready when the repository as a whole fails. What failed by itself is a problem, and `failed` in the
  /// plan.
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
