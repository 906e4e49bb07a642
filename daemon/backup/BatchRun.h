// One backup: a batch of files goes into one snapshot, and the catalogue learns what came of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/scan/PendingFiles.h"
#include "daemon/scan/Scanner.h"
#include "daemon/store/Store.h"

namespace keldane {

/// A file of a batch, and how it looked before the batch began. One that changes meanwhile is stored again.
struct BatchFile {
  std::string path;
  FileState state;
  bool isLink = false;
  std::uint32_t version = 0;  ///< of a file that is stored already and goes along; else 0
  double date = 0;            ///< of that version
};

/// What is to be stored together.
struct Batch {
  bool full = false;             ///< everything that is selected goes along
  std::vector<BatchFile> files;  ///< those that wait
  std::vector<BatchFile> again;  ///< those that an earlier batch of the same hour stored
  std::string parent;            ///< a snapshot whose unchanged files are not read again
};

struct BatchEnd {
  EngineAnswer answer;
  SnapshotRecord snapshot;  ///< its id is empty when nothing was stored
  std::vector<StoredFile> stored;
  std::uint64_t bytesAdded = 0;
};

/// Runs batches. Several threads may run one each.
class BatchRun {
 public:
  BatchRun(Store& store, const RuleBook& rules, BackupEngine& engine, const RepositoryFiles& files,
           Scanner& scanner, PendingFiles& pending)
      : store_(store), rules_(rules), engine_(engine), files_(files), scanner_(scanner), pending_(pending) {}

  using Progress = std::function<void(std::uint64_t files, std::uint64_t bytes, const std::string& current)>;
  /// Blocks until the batch is stored or has failed. A failure of the whole repository leaves all of it
  /// pending.
  BatchEnd run(const Batch& batch, EngineJob& job, const Progress& progress);

 private:
  struct Taken;
  std::string manifestFor(const Batch& batch, std::uint32_t number, double date, Taken& taken) const;
  std::vector<std::string> targetsOf(const Batch& batch) const;
  void settle(const Batch& batch, Taken& taken, BatchEnd& end, EngineJob& job);
  EngineAnswer fetchedOnce(const BatchFile& file, const SnapshotRecord& snapshot, EngineJob& job);
  std::vector<std::string> confirmed(const Batch& batch, const Taken& taken) const;
  void endPreference(const std::string& path);
  void couldNotStore(const BatchFile& file, const std::string& reason);

  Store& store_;
  const RuleBook& rules_;
  BackupEngine& engine_;
  const RepositoryFiles& files_;
  Scanner& scanner_;
  PendingFiles& pending_;
};

}  // namespace keldane
