#include "daemon/NodeBuilder.h"

#include <chrono>
#include <filesystem>
#include <set>

#include "Common/FileNode.h"
#include "daemon/FileFacts.h"
#include "platform/files/Path.h"
#include "platform/plist/Unicode.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

constexpr auto kLongestWalk = std::chrono::milliseconds(200);

/// Where an item stands.
enum class Standing { barred, notSelected, partlySelected, fresh, changed, waiting, backedUp, missing };

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
    case Standing::backedUp:
      return {"Backed up", BackupColor::green};
    case Standing::missing:
      return {"Deleted here, still in the backup", BackupColor::blue};
  }
  return {"", BackupColor::undefined};
}

Standing standingOf(const Decision& decision, const std::string& path, const struct stat* status,
                    const BackupRecord* record, const BackupWorker& worker) {
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
    return worker.isPendingBelow(path) ? Standing::waiting : Standing::backedUp;
  }
  if (record != nullptr && isUnchanged(*status, *record)) {
    return Standing::backedUp;
  }
  return worker.isPending(path) ? Standing::waiting : record == nullptr ? Standing::fresh : Standing::changed;
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

FolderSize measure(const std::string& folder) {
  FolderSize size;
  const auto end = std::chrono::steady_clock::now() + kLongestWalk;
  std::error_code error;
  fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, error);
  for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
    const std::optional<struct stat> status = statusOf(at->path().string());
    if (status && S_ISREG(status->st_mode)) {
      size.bytes += static_cast<std::uint64_t>(status->st_size);
      ++size.files;
    }
    if (std::chrono::steady_clock::now() > end) {
      break;
    }
  }
  return size;
}

}  // namespace

PropertyList NodeBuilder::build(const std::string& path, const struct stat* status,
                                const BackupRecord* record, bool withDirSizes) const {
  const bool isFolder = status != nullptr && S_ISDIR(status->st_mode);
  const Decision decision = rules_.decide(path, isFolder);
  const bool prioritized = worker_.isPrioritized(path);
  const Standing standing = standingOf(decision, path, status, record, worker_);
  const StandingFacts facts = factsOf(standing);
  FolderSize size;
  if (isFolder && withDirSizes) {
    size = measure(path);
  } else if (!isFolder) {
    size = {status != nullptr   ? static_cast<std::uint64_t>(status->st_size)
            : record != nullptr ? record->size
                                : 0,
            1};
  }
  const PropertyList name = lastPathComponent(path);
  const PropertyList::Keys& keys = record != nullptr ? keysWithRecord() : keysWithoutRecord();
  const PropertyList isDirectory = PropertyList::boolean(isFolder);
  const std::uint32_t backupFlags = backupFlagsOf(decision, standing, status, prioritized, record);
  const std::uint32_t simpleFlags = simpleFlagsOf(decision, standing, isFolder, prioritized);
  const auto color = static_cast<std::uint32_t>(facts.color);
  const std::uint32_t uid = status != nullptr ? std::uint32_t{status->st_uid} : 0U;
  const std::uint32_t gid = status != nullptr ? std::uint32_t{status->st_gid} : 0U;
  if (record == nullptr) {
    return PropertyList::dictionary(keys, {name, name, path, isDirectory, facts.state, backupFlags,
                                           simpleFlags, color, size.files, size.bytes, uid, gid});
  }
  return PropertyList::dictionary(
      keys, {name, name, path, isDirectory, facts.state, backupFlags, simpleFlags, color,
             Date::fromUnixTime(record->date), record->version, size.files, size.bytes, uid, gid});
}

PropertyList NodeBuilder::node(const std::string& path, bool withDirSizes) const {
  const std::optional<struct stat> status = statusOf(path);
  const std::optional<BackupRecord> record = store_.record(path);
  if (!status && !record) {
    return {};
  }
  return build(path, status ? &*status : nullptr, record ? &*record : nullptr, withDirSizes);
}

PropertyList NodeBuilder::children(const std::string& folder) const {
  const std::map<std::string, BackupRecord> records = store_.recordsIn(folder);
  std::set<std::string> paths;
  for (const auto& [path, record] : records) {
    paths.insert(path);
  }
  std::error_code error;
  fs::directory_iterator at(folder, error);
  if (error && records.empty()) {
    return {};
  }
  for (; !error && at != fs::directory_iterator(); at.increment(error)) {
    std::string path = at->path().string();
    if (isValidUtf8(path)) {  // a name that is no text has no place in a dictionary
      paths.insert(std::move(path));
    }
  }
  PropertyList::Array children;
  children.reserve(paths.size());
  for (const std::string& path : paths) {
    const std::optional<struct stat> status = statusOf(path);
    const auto record = records.find(path);
    children.push_back(
        build(path, status ? &*status : nullptr, record == records.end() ? nullptr : &record->second, false));
  }
  return PropertyList::array(std::move(children));
}

std::int32_t NodeBuilder::color(const std::string& path) const {
  return node(path, false)["backupColor"].intValue();
}

}  // namespace keldane
