// Chooses the pending files for the next batch.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "daemon/backup/batch/FairShare.h"
#include "daemon/scan/waiting/PendingFiles.h"

namespace keldane {

/// A file of at least this size takes so long that it is stored by itself, so that no other file waits for
/// it.
inline constexpr std::uint64_t kLargeFile = std::uint64_t{1} << 30;

/// A pending large file.
struct LargeFile {
  std::string path;
  uid_t owner = 0;
  bool isPreferred = false;
};

/// Divides the batches among the owners of the files. Each of the operations is called by one thread at a
/// time.
class BatchChoice {
 public:
  explicit BatchChoice(const PendingFiles& pending) : pending_(pending) {}

  struct Choice {
    std::vector<PendingFiles::File> files;  ///< at least one, if a file is pending that is not large
    std::vector<LargeFile> large;           ///< all pending large files
  };
  /// Chooses from the files that are not preferred, each owner's in the order of the list.
  Choice ordinary(const BatchBounds& bounds);
  /// Chooses from the preferred files, each owner's in the order in which they were preferred.
  Choice preferred(const BatchBounds& bounds);
  /// The preferred files that are large, in their order.
  std::vector<LargeFile> preferredLarge() const;

 private:
  const PendingFiles& pending_;
  FairShare ordinaryShare_, preferredShare_;
};

}  // namespace keldane
