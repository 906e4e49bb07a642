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
  unseen,
  waiting,
  storing,
  failed,
  backedUp,
  missing,
  pipe,
  device,
  socket
};

/// Joins what the file system, the rules, the records and the worker know, as far as the one who asks may see
/// the files. Any thread; holds no state of its own.
class NodeBuilder {
 public:
  NodeBuilder(Store& store, const RuleBook& rules, const BackupWorker& worker)
      : store_(store), rules_(rules), worker_(worker) {}

  /// The dictionary of one path; absent when nothing is there and nothing was ever backed up from there. A
  /// folder that is gone has one as long as something of it is in the backup. With folder sizes, as far as a
  /// walk of a fifth of a second gets.
  PropertyList node(const PeerAccess& access, const std::string& path, bool withDirSizes) const;
  /// The same without sizes, with the rules that the path comes under as "reasons", and with the stored
  /// versions of a file under "versions", newest first.
  PropertyList nodeWithVersions(const PeerAccess& access, const std::string& path) const;
  /// The dictionaries of a folder's entries, sorted by name, those included that are only in the backup,
  /// folders too; absent for what is no folder. Of a folder with more than `kLongestListing` the rest is left
  /// out.
  PropertyList children(const PeerAccess& access, const std::string& folder) const;
  /// The status colour of a path; 0 for one that may not be asked about.
  std::int32_t color(const PeerAccess& access, const std::string& path) const;

  static constexpr std::size_t kLongestListing = 250'000;

 private:
  /// What is known of a path before the rules are asked.
  struct Subject {
    std::string path;
    const struct stat* status = nullptr;   // null: it is not there
    const BackupRecord* record = nullptr;  // null: it is not stored
    bool isFolder = false;
  };
  PropertyList build(const PeerAccess& access, const Subject& subject, bool withDirSizes) const;
  Standing standingOf(const Decision& decision, const Subject& subject) const;
  std::string stateText(Standing standing, const Subject& subject) const;

  Store& store_;
  const RuleBook& rules_;
  const BackupWorker& worker_;
};

}  // namespace keldane
