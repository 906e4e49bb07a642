// Puts a new key in place of the repository's.
#pragma once

#include <optional>
#include <string>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"

namespace keldane {

/// What is stored is not encrypted anew: the new key opens what the former one opened. Both are in a file of
/// the data folder from before the new one is added until the former one is removed, so that a crash at any
/// time leaves a key that opens the repository, and `goOn` ends what was begun. While a change runs the
/// caller keeps everything else that uses the repository from beginning.
class KeyChange {
 public:
  KeyChange(BackupEngine& engine, const RepositoryFiles& files) : engine_(engine), files_(files) {}

  /// Ready: the new key is in use and the former one opens nothing. Otherwise the sentence says whether the
  /// new one is in use.
  EngineAnswer run(EngineJob& job);
  /// Ends a change that was interrupted. Ready when there is none, and when it was ended either way.
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
