// Files whose names look alike in the engine's reports.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// A name as the engine reports it, with U+FFFD for each byte that is not UTF-8.
std::string asTold(const std::string& path);
/// Whether another file can have the same reported name.
bool canLookLikeAnother(const std::string& path);

/// Finds out which files of one snapshot were stored although their names can look alike in the engine's
/// reports. Most of them look like no other file, and then the report counts. For several that look alike,
/// the repository is asked how many of them it has. When it has all of them, one is fetched as a test;
/// otherwise each of them is. Used on one thread.
class LookAlikes {
 public:
  enum class Word {
    engines,    ///< the engine's report counts
    stored,     ///< the snapshot holds it
    notStored,  ///< the snapshot does not hold it
    unknown     ///< the repository could not be asked
  };

  /// Adds a file that the snapshot may hold. A file that looks like no other is ignored.
  void add(const std::string& path);
  /// Asks about all files for which the engine's report is not enough. `took` and `failed` return what it
  /// reported for a reported name. The first problem with the repository ends this; the remaining files are
  /// then unknown.
  using Told = std::function<bool(const std::string& name)>;
  EngineAnswer settle(BackupEngine& engine, const std::string& snapshot, const Told& took, const Told& failed,
                      EngineJob& job);
  Word wordOn(const std::string& path) const;

 private:
  using Group = std::vector<std::string>;
  EngineAnswer count(BackupEngine& engine, const std::string& snapshot,
                     const std::map<std::string, Group*>& doubtful, EngineJob& job);
  EngineAnswer fetch(BackupEngine& engine, const std::string& snapshot, const std::string& path,
                     bool& isThere, EngineJob& job) const;
  EngineAnswer settleGroup(BackupEngine& engine, const std::string& snapshot, const Group& group,
                           bool areAllThere, EngineJob& job);

  std::map<std::string, Group> groups_;  // by reported name
  std::map<std::string, std::uint64_t> counts_;
  std::map<std::string, Word> words_;  // by path
};

}  // namespace keldane
