// The proof that what is stored can be had back: a sample is fetched and compared.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/store/Store.h"

namespace keldane {

/// What came of a drill.
struct DrillEnd {
  EngineAnswer answer;       ///< of the repository as a whole
  std::size_t compared = 0;  ///< files that are the same, byte by byte, as those on the disk
  std::size_t hashed = 0;    ///< files that have changed on the disk since; the repository's own hashes agree
  std::vector<std::string> failed;  ///< files that are not what was stored
  /// For people.
  std::string sentence() const;
};

/// Fetches random files from the repository and compares each with the file on the disk where that has not
/// changed since, else with the hashes that the repository keeps of it. A file that fails stops counting as
/// stored.
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
