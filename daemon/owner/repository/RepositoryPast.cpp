// The requests about past states of the backup, and about the effect of a pattern.
#include <sys/stat.h>

#include <algorithm>

#include "Common/nodes/FileNode.h"
#include "daemon/ByteSum.h"
#include "daemon/owner/repository/RepositoryCall.h"
#include "daemon/restore/users/RestoreTargets.h"
#include "daemon/rules/IgnoreList.h"
#include "platform/files/Path.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr std::uint64_t kUsualPreview = 100, kMostPreview = 10'000;

bool isGone(const std::string& path, bool wasFolder) {
  struct stat status {};
  return lstat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode) != wasFolder;
}

/// The node of an item as it was stored then, and with whether it is gone now.
PropertyList nodeAt(const std::string& path, const VersionRecord* version) {
  const bool isFolder = version == nullptr, isMissing = isGone(path, isFolder);
  const std::string name(lastPathComponent(path));
  const std::uint32_t flags = backup_flags::kBackup | backup_flags::kBackedUp |
                              (isFolder ? backup_flags::kFolder : 0U) |
                              (isMissing ? backup_flags::kMissing : 0U);
  PropertyList::Entries entries = {
      {"fileName", name},
      {"displayName", name},
      {"path", path},
      {"isDirectory", PropertyList::boolean(isFolder)},
      {"state", isMissing ? "Deleted here, still in the backup" : "Backed up"},
      {"backupFlags", flags},
      {"simpleFlags", std::uint32_t{simple_flags::kEnabled}},
  };
  if (version != nullptr) {
    entries.emplace_back("backupDate", Date::fromUnixTime(version->date));
    entries.emplace_back("version", version->version);
    entries.emplace_back("size", version->size);
  }
  return PropertyList::dictionary(std::move(entries));
}

/// Whether a list excludes a file: it matches the file or a folder above it, up to the nearest one with a
/// person's own rule, which outranks the list.
bool isLeftOut(const std::string& path, const IgnoreList& list, const std::map<std::string, bool>& rules) {
  bool isFolder = false;
  for (std::string each = path; each != "/" && !rules.contains(each); each = folderAbove(each)) {
    if (!list.match(each, isFolder).empty()) {
      return true;
    }
    isFolder = true;
  }
  return false;
}

}  // namespace

PropertyList RepositoryRequests::previewPattern(const PropertyList& request) {
  const IgnoreList list(request["pattern"].string());
  const std::map<std::string, bool> rules = daemon_->store().rules();
  const std::uint64_t asked = request["most"].unsignedLongLongValue();
  const std::uint64_t most = asked == 0 ? kUsualPreview : std::min(asked, kMostPreview);
  PropertyList::Array entries;
  std::uint64_t count = 0, bytes = 0;
  daemon_->store().visitRecords("/", [&](const std::string& path, const BackupRecord& record) {
    if (!record.removed && isLeftOut(path, list, rules)) {
      ++count;
      bytes = saturatedSum(bytes, record.size);
      if (entries.size() < most && isValidUtf8(path)) {
        entries.emplace_back(path);
      }
    }
    return true;
  });
  return PropertyList::dictionary(
      {{"entries", PropertyList::array(std::move(entries))}, {"count", count}, {"bytes", bytes}});
}

PropertyList RepositoryRequests::backups(const PropertyList&) {
  std::vector<double> times;
  for (const SnapshotRecord& snapshot : daemon_->store().snapshots()) {
    if (snapshot.prefix.empty()) {  // gathered versions are copies from other snapshots
      times.push_back(snapshot.time);
    }
  }
  std::sort(times.begin(), times.end());
  PropertyList::Array dates;
  dates.reserve(times.size());
  for (const double time : times) {
    dates.emplace_back(Date::fromUnixTime(time));
  }
  return PropertyList::dictionary({{"dates", PropertyList::array(std::move(dates))}});
}

PropertyList RepositoryRequests::storedFolder(const PropertyList& request) {
  const std::optional<std::string> folder = normalizedPath(request["path"].string());
  if (!folder) {
    return errorAnswer("The path of the folder is not usable.");
  }
  const Store::FolderState state = daemon_->store().folderAt(*folder, request["before"].date().unixTime());
  std::map<std::string, const VersionRecord*> found;  // null for a folder
  for (const auto& [path, version] : state.files) {
    found.emplace(path, &version);
  }
  for (const std::string& path : state.folders) {
    found.insert_or_assign(path, nullptr);
  }
  PropertyList::Array children;
  for (const auto& [path, version] : found) {
    if (isValidUtf8(path)) {  // a dictionary cannot hold a name that is not UTF-8
      children.push_back(nodeAt(path, version));
    }
  }
  return PropertyList::dictionary({{"children", PropertyList::array(std::move(children))}});
}

}  // namespace keldane
