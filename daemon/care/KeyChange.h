// Replaces the key of the repository by a new one.
#pragma once

#include <optional>
#include <string>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"

namespace keldane {

/// Stored data is not encrypted anew: the new key opens the same data. A file of the data folder holds both
/// keys from before the new one is added until the former one is removed. So a crash at any time leaves a key
/// that opens the repository, and `goOn` completes or undoes the change. While a change runs, the caller
/// keeps all other users of the repository from beginning.
class KeyChange {
 public:
  KeyChange(BackupEngine& engine, const RepositoryFiles& files) : engine_(engine), files_(files) {}

  /// `ready` means that the new key is in use and the former one opens nothing. Otherwise the sentence says
  /// whether the new key is in use.
  EngineAnswer run(EngineJob& job);
  /// Completes or undoes a change that was interrupted. `ready` when that is done, or when there was none.
  EngineAnswer goOn(EngineJob& job);

 private:
  struct Record {
    std::string formerId, formerKey, newKey;
  };
  std::optional<Record> record() const;
  void keep(const Record& record) const;
  void forget() const;
  EngineAnswer takeIntoUse(const Record& record, EngineJob& job);
  EngineAnswer removeFormer(const Record& record, EngineJob& job);

  BackupEngine& engine_;
  const RepositoryFiles& files_;
};

}  // namespace keldane
