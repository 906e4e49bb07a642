#include "daemon/server/NodeBuilder.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "Common/FileNode.h"
#include "daemon/backup/FileFacts.h"
#include "platform/files/Path.h"
#include "platform/plist/Unicode.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr std::size_t kMostVersions = 100;

constexpr auto kLongestWalk = std::chrono::milliseconds(200);

struct StandingFacts {
  const char* state;
  BackupColor color;
};

StandingFacts factsOf(Standing standing) {
  switch (standing) {
    case Standing::barred:
      return {"Excluded by policy", BackupColor::gray};
    case Standing::notSelected:
      return {"Not selected for backup", BackupColor::none};
    case Standing::partlySelected:
      return {"Partly selected for backup", BackupColor::none};
    case Standing::fresh:
      return {"New", BackupColor::blue};
    case Standing::changed:
      return {"Changed since last backup", BackupColor::blue};
    case Standing::waiting:
      return {"Waiting to be backed up", BackupColor::yellow};
    case Standing::failed:
      return {"Could not be backed up", BackupColor::blue};
    case Standing::backedUp:
      return {"Backed up", BackupColor::green};
    case Standing::missing:
      return {"Deleted here, still in the backup", BackupColor::blue};
  }
  return {"", BackupColor::undefined};
}

Standing standingOf(const Decision& decision, const std::string& path, const struct stat* status,
                    const BackupRecord* record, const BackupWorker& worker, Store& store) {
  if (decision.barred) {
    return Standing::barred;
  }
  if (status == nullptr) {
    return Standing::missing;
  }
  if (!decision.selected) {
    return decision.rulesBelow ? Standing::partlySelected : Standing::notSelected;
  }
  if (S_ISDIR(status->st_mode)) {
    return worker.isPendingBelow(path)   ? Standing::waiting
           : store.hasFailureBelow(path) ? Standing::failed
                                         : Standing::backedUp;
  }
  if (record != nullptr && isUnchanged(*status, *record)) {
    return Standing::backedUp;
  }
  return worker.isPending(path) ? Standing::waiting
         : store.failure(path)  ? Standing::failed
         : record == nullptr    ? Standing::fresh
                                : Standing::changed;
}

std::uint32_t backupFlagsOf(const Decision& decision, Standing standing, const struct stat* status,
                            bool prioritized, const BackupRecord* record) {
  using namespace backup_flags;
  const bool isFolder = status != nullptr && S_ISDIR(status->st_mode);
  std::uint32_t flags = prioritized ? 1 : 0;
  flags |= decision.selected ? kBackup : 0;
  flags |= record != nullptr ? kBackedUp : 0;
  flags |= decision.barred ? kSystem | kExclude : 0;
  flags |= decision.ownRule == false ? kExclude : 0;
  flags |= decision.ownRule == true ? kInclude : 0;
  flags |= isFolder ? kFolder : 0;
  flags |= isFolder && decision.ownRule == true ? kFolderInclude : 0;
  flags |= isFolder && decision.ownRule == false ? kNoFolder : 0;
  flags |= isFolder && !decision.selected ? kNotActive : 0;
  flags |= standing == Standing::missing ? kMissing : 0;
  flags |= decision.barred && status != nullptr ? kExcludedVisible : 0;
  return flags;
}

std::uint32_t simpleFlagsOf(const Decision& decision, Standing standing, bool isFolder, bool prioritized) {
  using namespace simple_flags;
  if (decision.barred) {
    return 0;
  }
  std::uint32_t flags = kEnabled;
  flags |= decision.selected ? kChecked : 0;
  flags |= isFolder && decision.rulesBelow ? kGrayed : 0;
  if (!isFolder) {
    flags |= kTypeEnabled | kTypeVisible | (decision.typeToggle == kTypeBackup ? kTypeChecked : 0U);
    if (standing != Standing::backedUp && standing != Standing::missing) {
      flags |= kPriorityEnabled | kPriorityVisible | (prioritized ? kPriorityChecked : 0U);
    }
  }
  return flags;
}

// Made once and never given back, since threads may still build nodes while the process ends.
const PropertyList::Keys& keysWithRecord() {
  static const auto& keys = *new PropertyList::Keys{
      "fileName",    "displayName", "path",    "isDirectory", "state", "backupFlags", "simpleFlags",
      "backupColor", "backupDate",  "version", "totalCount",  "size",  "uid",         "gid"};
  return keys;
}

const PropertyList::Keys& keysWithoutRecord() {
  static const auto& keys = *new PropertyList::Keys{"fileName",   "displayName", "path",        "isDirectory",
                                                    "state",      "backupFlags", "simpleFlags", "backupColor",
                                                    "totalCount", "size",        "uid",         "gid"};
  return keys;
}

struct FolderSize {
  std::uint64_t bytes = 0;
  std::uint32_t files = 0;
};

FolderSize measure(const Sight& sight, const std::string& folder) {
  FolderSize size;
  const auto end = std::chrono::steady_clock::now() + kLongestWalk;
  std::vector<std::string> folders = {folder};
  bool goOn = true;
  while (goOn && !folders.empty()) {
    const std::string current = std::move(folders.back());
    folders.pop_back();
    sight.list(current, [&](const std::string& name, const struct stat& status) {
      if (S_ISDIR(status.st_mode)) {
        folders.push_back(appendPathComponent(current, name));
      } else if (S_ISREG(status.st_mode)) {
        size.bytes += static_cast<std::uint64_t>(status.st_size);
        ++size.files;
      }
      goOn = std::chrono::steady_clock::now() < end;
      return goOn;
    });
  }
  return size;
}

}  // namespace

PropertyList NodeBuilder::build(const Sight& sight, const std::string& path, const struct stat* status,
                                const BackupRecord* record, bool withDirSizes) const {
  const bool isFolder = status != nullptr && S_ISDIR(status->st_mode);
  Decision decision = rules_.decide(path, isFolder);
  if (decision.rulesBelow && !sight.isPrivileged()) {
    const std::vector<std::string> below = rules_.rulesBelow(path);
    decision.rulesBelow =
        std::any_of(below.begin(), below.end(), [&](const std::string& rule) { return sight.sees(rule); });
  }
  const bool prioritized = worker_.isPrioritized(path);
  const Standing standing = standingOf(decision, path, status, record, worker_, store_);
  const StandingFacts facts = factsOf(standing);
  FolderSize size;
  if (isFolder && withDirSizes) {
    size = measure(sight, path);
  } else if (!isFolder) {
    size = {status != nullptr   ? static_cast<std::uint64_t>(status->st_size)
            : record != nullptr ? record->size
                                : 0,
            1};
  }
  const PropertyList name = lastPathComponent(path);
  const PropertyList::Keys& keys = record != nullptr ? keysWithRecord() : keysWithoutRecord();
  const PropertyList state = stateText(standing, path);
  const PropertyList isDirectory = PropertyList::boolean(isFolder);
  const std::uint32_t backupFlags = backupFlagsOf(decision, standing, status, prioritized, record);
  const std::uint32_t simpleFlags = simpleFlagsOf(decision, standing, isFolder, prioritized);
  const auto color = static_cast<std::uint32_t>(facts.color);
  const std::uint32_t uid = status != nullptr ? std::uint32_t{status->st_uid} : 0U;
  const std::uint32_t gid = status != nullptr ? std::uint32_t{status->st_gid} : 0U;
  if (record == nullptr) {
    return PropertyList::dictionary(keys, {name, name, path, isDirectory, state, backupFlags, simpleFlags,
                                           color, size.files, size.bytes, uid, gid});
  }
  return PropertyList::dictionary(
      keys, {name, name, path, isDirectory, state, backupFlags, simpleFlags, color,
             Date::fromUnixTime(record->date), record->version, size.files, size.bytes, uid, gid});
}

// A file that failed says why.
std::string NodeBuilder::stateText(Standing standing, const std::string& path) const {
  if (standing == Standing::missing && worker_.isNotConnected(path)) {
    return "On a disk that is not connected";
  }
  const std::string text = factsOf(standing).state;
  const std::optional<std::string> reason =
      standing == Standing::failed ? store_.failure(path) : std::nullopt;
  return reason ? text + ": " + *reason : text;
}

PropertyList NodeBuilder::nodeWithVersions(const Sight& sight, const std::string& path) const {
  const PropertyList plain = node(sight, path, false);
  if (!plain || plain["isDirectory"].boolValue()) {
    return plain;
  }
  PropertyList::Array versions;
  for (const VersionRecord& version : store_.versions(path, kMostVersions)) {
    if (!version.damaged) {
      versions.push_back(PropertyList::dictionary({{"version", version.version},
                                                   {"backupDate", Date::fromUnixTime(version.date)},
                                                   {"size", version.size}}));
    }
  }
  if (versions.empty()) {
    return plain;
  }
  PropertyList::Entries entries;
  for (std::size_t i = 0; i < plain.count(); ++i) {
    entries.push_back(plain.entry(i));
  }
  entries.emplace_back("versions", PropertyList::array(std::move(versions)));
  return PropertyList::dictionary(std::move(entries));
}

PropertyList NodeBuilder::node(const Sight& sight, const std::string& path, bool withDirSizes) const {
  const std::optional<Sight::Item> item = sight.look(path);
  if (!item) {
    return {};
  }
  const std::optional<BackupRecord> record = store_.record(path);
  if (!item->status && !record) {
    return {};
  }
  return build(sight, path, item->status ? &*item->status : nullptr, record ? &*record : nullptr,
               withDirSizes);
}

PropertyList NodeBuilder::children(const Sight& sight, const std::string& folder) const {
  std::map<std::string, std::optional<struct stat>> entries;
  const auto isFull = [&] { return entries.size() >= kLongestListing; };
  const bool isFolder = sight.list(folder, [&](const std::string& name, const struct stat& status) {
    if (isValidUtf8(name)) {  // a name that is no text has no place in a dictionary
      entries.emplace(appendPathComponent(folder, name), status);
    }
    return !isFull();
  });
  const std::map<std::string, BackupRecord> records =
      isFolder || sight.sees(folder) ? store_.recordsIn(folder) : decltype(store_.recordsIn(folder))();
  for (const auto& [path, record] : records) {
    if (!isFull() && !entries.contains(path)) {
      if (const std::optional<Sight::Item> item = sight.look(path)) {
        entries.emplace(path, item->status);
      }
    }
  }
  if (!isFolder && entries.empty()) {
    return {};
  }
  if (isFull()) {
    systemLog("%@ has more entries than are listed", folder);
  }
  PropertyList::Array children;
  children.reserve(entries.size());
  for (const auto& [path, status] : entries) {
    const auto record = records.find(path);
    children.push_back(build(sight, path, status ? &*status : nullptr,
                             record == records.end() ? nullptr : &record->second, false));
  }
  return PropertyList::array(std::move(children));
}

std::int32_t NodeBuilder::color(const Sight& sight, const std::string& path) const {
  return node(sight, path, false)["backupColor"].intValue();
}

}  // namespace keldane
