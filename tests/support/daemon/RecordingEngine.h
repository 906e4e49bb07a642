// An engine without a repository, for tests that are not about storage.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"

namespace keldane::testing {

/// Reads each file and reports it as stored. It keeps only the list of snapshots, so nothing can be restored.
/// For files whose names can look alike it also lists and fetches the names, which decide whether they count
/// as stored. Used from any thread.
class RecordingEngine : public BackupEngine {
 public:
  explicit RecordingEngine(RepositoryFiles files) : files_(std::move(files)) {}

  EngineAnswer probe(EngineJob& job) override;
  EngineAnswer initialize(EngineJob& job) override;
  EngineAnswer repositoryId(std::string& id, EngineJob& job) override;
  StoreAnswer store(const StoreRequest& request, const StoreObserver& observer, EngineJob& job) override;
  EngineAnswer snapshots(bool ofAllComputers, std::vector<Snapshot>& found, EngineJob& job) override;
  EngineAnswer list(const std::string& snapshot, const std::string& path, const Visit& visit,
                    EngineJob& job) override;
  EngineAnswer find(const std::string& pattern, std::vector<FoundEntry>& found, EngineJob& job) override;
  EngineAnswer fetch(const std::string& snapshot, const std::string& path, int descriptor,
                     EngineJob& job) override;
  EngineAnswer restore(const std::string& snapshot, const std::vector<std::string>& paths,
                       const std::string& folder, std::vector<std::string>& problems,
                       EngineJob& job) override;
  EngineAnswer forget(const std::vector<std::string>& snapshots, EngineJob& job) override;
  EngineAnswer prune(EngineJob& job) override;
  EngineAnswer unlock(EngineJob& job) override;
  CheckAnswer check(unsigned part, unsigned parts, EngineJob& job) override;
  EngineAnswer filesInPacks(const std::vector<std::string>& packs, std::vector<FoundEntry>& found,
                            EngineJob& job) override;
  EngineAnswer dropPacks(const std::vector<std::string>& packs, EngineJob& job) override;
  EngineAnswer size(std::uint64_t& bytes, EngineJob& job) override;
  EngineAnswer addKey(const std::string& passphrase, EngineJob& job) override;

 private:
  const RepositoryFiles files_;
  std::mutex mutex_;
  std::map<std::string, std::vector<std::string>> lookAlikes_;  // names that can look alike, by snapshot
};

}  // namespace keldane::testing
