// Node dictionaries, which describe a path to clients.
#pragma once

#include <sys/stat.h>

#include <string>

#include "daemon/backup/BackupWorker.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/server/Permissions.h"
#include "daemon/store/Store.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// The state of an item in the backup.
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

/// Combines the knowledge of the file system, the rules, the records and the worker, as far as the asking
/// peer may see the files. Used on any thread; it has no state of its own.
class NodeBuilder {
 public:
  NodeBuilder(Store& store, const RuleBook& rules, const BackupWorker& worker)
      : store_(store), rules_(rules), worker_(worker) {}

  /// The dictionary of one path; absent when nothing is there and nothing was ever backed up from there. A
  /// folder that no longer exists has one as long as something of it is in the backup. Folder sizes are
  /// counted for at most a fifth of a second.
  PropertyList node(const PeerAccess& access, const std::string& path, bool withDirSizes) const;
  /// The same without sizes. "reasons" has the rules that apply to the path, "versions" the stored versions
  /// of a file, newest first.
  PropertyList nodeWithVersions(const PeerAccess& access, const std::string& path) const;
  /// The dictionaries of a folder's entries, sorted by name, including files and folders that are only in the
  /// backup. Absent for anything but a folder. A listing ends after `kLongestListing` entries.
  PropertyList children(const PeerAccess& access, const std::string& folder) const;
  /// The status colour of a path; 0 when the peer may not ask about it.
  std::int32_t color(const PeerAccess& access, const std::string& path) const;

  static constexpr std::size_t kLongestListing = 250'000;

 private:
  /// The facts about a path that are needed to ask the rules.
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
