// Files whose names the engine's word cannot tell apart.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// A name as the engine tells it: each byte that is no UTF-8 comes back as U+FFFD.
std::string asTold(const std::string& path);
/// Whether another file can have the same name as the engine tells it.
bool canLookLikeAnother(const std::string& path);

/// The files of one snapshot whose names can look alike, and what the repository says of them. Most of them
/// look like no other file, and then the engine's own word counts. Of several that look alike the repository
/// is asked how many it has; when it has all of them, one is fetched, and otherwise each. One thread.
class LookAlikes {
 public:
  enum class Word {
    engines,    ///< what the engine told while it stored counts
    stored,     ///< the snapshot holds it
    notStored,  ///< it does not
    unknown     ///< the repository could not be asked
  };

  /// A file that the snapshot may hold. One that looks like no other is passed over.
  void add(const std::string& path);
  /// Asks about all of which the engine's word is not enough. `took` and `failed` say what it told, by name
  /// as told. The first answer that tells of trouble with the repository ends it; what is left is unknown
  /// then.
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

  std::map<std::string, Group> groups_;  // by name as told
  std::map<std::string, std::uint64_t> counts_;
  std::map<std::string, Word> words_;  // by path
};

}  // namespace keldane
