// The engine that runs restic.
#pragma once

#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/engine/restic/ResticSession.h"
#include "daemon/engine/restic/program/ResticProgram.h"

namespace keldane {

/// Runs restic, version 0.14 or newer, as a child process, one or a few for each call. The configuration is
/// read at each call, so that a change takes effect at once. Calls may run on several threads at once; each
/// blocks its own.
class ResticEngine final : public BackupEngine {
 public:
  /// `program` is a name to be found in PATH, or an absolute path. Files that an earlier process left in the
  /// work folder are removed.
  explicit ResticEngine(RepositoryFiles files, std::string program = "restic");

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
  EngineAnswer keys(std::vector<KeyRecord>& found, EngineJob& job) override;
  EngineAnswer removeKey(const std::string& id, EngineJob& job) override;
  EngineAnswer initializeLike(const RepositoryFiles& other, EngineJob& job) override;
  EngineAnswer copyFrom(const RepositoryFiles& other, const std::function<void(std::size_t)>& copied,
                        EngineJob& job) override;

 private:
  using Purpose = ResticSession::Purpose;
  ResticSession open(Purpose purpose, EngineJob& job) { return {files_, program_, purpose, job}; }
  EngineAnswer readId(ResticSession& session, std::string& id);
  EngineAnswer initialize(const RepositoryFiles* like, EngineJob& job);
  EngineAnswer make(ResticSession& session, const RepositoryFiles* like, EngineJob& job);
  /// The file that names the place where a repository is being made. It exists only meanwhile.
  std::string markOfMaking() const { return files_.folder().work() + "/making"; }

  const RepositoryFiles files_;
  ResticProgram program_;
};

}  // namespace keldane
