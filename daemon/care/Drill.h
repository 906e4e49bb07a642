// The drill: proves that stored files can be restored, by fetching and comparing a sample.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/store/Store.h"

namespace keldane {

/// The result of a drill.
struct DrillEnd {
  EngineAnswer answer;       ///< about the repository as a whole
  std::size_t compared = 0;  ///< files that are the same, byte by byte, as those on the disk
  std::size_t hashed = 0;    ///< files that have changed on the disk since; the repository's own hashes agree
  std::vector<std::string> failed;  ///< files whose stored bytes are wrong
  /// The result as a sentence for people.
  std::string sentence() const;
};

/// Fetches random files from the repository. Each is compared with the file on the disk, or with the
/// repository's own hashes when the file has changed since. A file that fails no longer counts as stored.
class Drill {
 public:
  Drill(Store& store, BackupEngine& engine) : store_(store), engine_(engine) {}
  DrillEnd run(std::size_t files, EngineJob& job);

 private:
  void tryFile(const std::string& path, DrillEnd& end, EngineJob& job);

  Store& store_;
  BackupEngine& engine_;
};

}  // namespace keldane
