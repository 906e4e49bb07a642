// One backup: a batch of files is stored in one snapshot, and the catalogue records the result.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/scan/Scanner.h"
#include "daemon/scan/waiting/PendingFiles.h"
#include "daemon/store/Store.h"

namespace keldane {

/// A file of a batch and its state before the batch began. A file that changes meanwhile is stored again.
struct BatchFile {
  std::string path;
  FileState state;
  bool isLink = false;
  std::uint32_t version = 0;  ///< the version of a file that is already stored; 0 for any other file
  double date = 0;            ///< the date of that version
};

/// The files that are stored together.
struct Batch {
  bool full = false;             ///< everything that is selected is stored
  std::vector<BatchFile> files;  ///< the pending files
  std::vector<BatchFile> again;  ///< the files of earlier batches of the same hour
  std::string parent;            ///< a snapshot whose unchanged files are not read again
  std::uint64_t lastWish = 0;    ///< the last wish for a preference before the files were looked at
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
  /// Blocks until the batch is stored or has failed. After a failure of the whole repository all files stay
  /// pending.
  BatchEnd run(const Batch& batch, EngineJob& job, const Progress& progress);

 private:
  struct Taken;
  std::string manifestFor(const Batch& batch, std::uint32_t number, double date, Taken& taken) const;
  std::vector<std::string> targetsOf(const Batch& batch) const;
  void settle(const Batch& batch, Taken& taken, BatchEnd& end, EngineJob& job);
  EngineAnswer fetchedOnce(const BatchFile& file, const SnapshotRecord& snapshot, EngineJob& job);
  PathsByFolder confirmed(const Batch& batch, const Taken& taken) const;
  void endPreference(const std::string& path, std::uint64_t lastWish);
  void couldNotStore(const BatchFile& file, const std::string& reason);

  Store& store_;
  const RuleBook& rules_;
  BackupEngine& engine_;
  const RepositoryFiles& files_;
  Scanner& scanner_;
  PendingFiles& pending_;
};

}  // namespace keldane
