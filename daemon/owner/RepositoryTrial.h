// Another repository, or another key, tried out before it takes the place of the one in use.
#pragma once

#include <memory>
#include <string>

#include "daemon/care/Reconciliation.h"
#include "daemon/owner/RepositoryRequests.h"

namespace keldane {

/// The text of a key as the storage program takes it: what a person typed from a sheet in groups, or a
/// passphrase as it is.
std::string keyTextFrom(const std::string& typed);

/// A configuration, a key and an environment in a folder of their own, and an engine that uses them. The
/// folder goes with the object.
class RepositoryRequests::Trial {
 public:
  /// What a request to set up or to recover names. Throws std::runtime_error for what cannot be used.
  Trial(Daemon& daemon, const EngineFactory& engine, const PropertyList& request);
  /// The repository in use with another key.
  Trial(Daemon& daemon, const EngineFactory& engine, const std::string& key);
  ~Trial();
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  BackupEngine& engine() { return *engine_; }
  const RepositoryConfig& configuration() const { return configuration_; }

  /// Makes a repository, where nothing is in the way.
  EngineAnswer make(EngineJob& job);
  /// Makes one for what another one holds, or opens one with the same key that is there: a copy that was
  /// begun.
  EngineAnswer makeForCopyOf(const RepositoryFiles& other, EngineJob& job);
  /// Opens the one that is there and keeps its id.
  EngineAnswer adopt(EngineJob& job);
  /// Whose backups are recovered, the highest of their numbers, and whether this computer goes on under that
  /// number.
  void goOnAs(std::uint32_t computer, std::uint32_t highest, bool takeOver);

  /// Sets aside what another folder's files say and puts these in their place.
  void replaceIn(const RepositoryFiles& files) const;

 private:
  void begin(const EngineFactory& engine, const std::string& key,
             const std::map<std::string, std::string>& environment);

  RepositoryConfig configuration_;
  const RepositoryFiles files_;
  std::unique_ptr<BackupEngine> engine_;
};

}  // namespace keldane
