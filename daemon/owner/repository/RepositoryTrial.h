// Tries out another repository or another key before it replaces the current one.
#pragma once

#include <memory>
#include <string>

#include "daemon/care/catalogue/Reconciliation.h"
#include "daemon/owner/repository/RepositoryRequests.h"

namespace keldane {

/// The text of a key as the storage program takes it. A key that was typed in groups from a sheet is brought
/// into this form; a passphrase stays as it is.
std::string keyTextFrom(const std::string& typed);

/// A configuration, a key and an environment in a folder of their own, and an engine that uses them. The
/// destructor removes the folder.
class RepositoryRequests::Trial {
 public:
  /// Uses the repository that a request to set up or to recover names. Throws std::runtime_error when it
  /// cannot be used.
  Trial(Daemon& daemon, const EngineFactory& engine, const PropertyList& request);
  /// Uses the current repository with another key.
  Trial(Daemon& daemon, const EngineFactory& engine, const std::string& key);
  ~Trial();
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  BackupEngine& engine() { return *engine_; }
  const RepositoryConfig& configuration() const { return configuration_; }

  /// Makes a repository if nothing is in the way.
  EngineAnswer make(EngineJob& job);
  /// Makes a repository for a copy of another one. If a copy was begun there before, opens that repository
  /// with the same key.
  EngineAnswer makeForCopyOf(const RepositoryFiles& other, EngineJob& job);
  /// Opens the existing repository and keeps its id.
  EngineAnswer adopt(EngineJob& job);
  /// Sets the computer whose backups are recovered, the highest number of these backups, and whether this
  /// computer goes on under that computer's number.
  void goOnAs(std::uint32_t computer, std::uint32_t highest, bool takeOver);

  /// Sets the files of another folder aside and puts these in their place.
  void replaceIn(const RepositoryFiles& files) const;

 private:
  void begin(const EngineFactory& engine, const std::string& key,
             const std::map<std::string, std::string>& environment);

  RepositoryConfig configuration_;
  const RepositoryFiles files_;
  std::unique_ptr<BackupEngine> engine_;
};

}  // namespace keldane
