// Node dictionaries: what the clients are told of a path.
#pragma once

#include <sys/stat.h>

#include <string>

#include "daemon/backup/BackupWorker.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/server/Permissions.h"
#include "daemon/store/Store.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// Where an item stands.
enum class Standing {
  barred,
  notSelected,
  partlySelected,
  fresh,
  changed,
  waiting,
  failed,
  backedUp,
  missing
};

/// Joins what the file system, the rules, the records and the worker know, as far as the one who asks may see
/// the files. Any thread; holds no state of its own.
class NodeBuilder {
 public:
  NodeBuilder(Store& store, const RuleBook& rules, const BackupWorker& worker)
      : store_(store), rules_(rules), worker_(worker) {}

  /// The dictionary of one path; absent when nothing is there and nothing was ever backed up from there. With
  /// folder sizes, as far as a walk of a fifth of a second gets.
  PropertyList node(const Sight& sight, const std::string& path, bool withDirSizes) const;
  /// The same without sizes, and with the stored versions of a file under "versions", newest first.
  PropertyList nodeWithVersions(const Sight& sight, const std::string& path) const;
  /// The dictionaries of a folder's entries, sorted by name, those included that are only in the backup;
  /// absent for what is no folder. Of a folder with more than `kLongestListing` the rest is left out.
  PropertyList children(const Sight& sight, const std::string& folder) const;
  /// The status colour of a path; 0 for one that may not be asked about.
  std::int32_t color(const Sight& sight, const std::string& path) const;

  static constexpr std::size_t kLongestListing = 250'000;

 private:
  PropertyList build(const Sight& sight, const std::string& path, const struct stat* status,
                     const BackupRecord* record, bool withDirSizes) const;
  std::string stateText(Standing standing, const std::string& path) const;

  Store& store_;
  const RuleBook& rules_;
  const BackupWorker& worker_;
};

}  // namespace keldane
