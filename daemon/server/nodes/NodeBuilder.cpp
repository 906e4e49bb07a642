#include "daemon/server/nodes/NodeBuilder.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "Common/nodes/FileNode.h"
#include "daemon/ByteSum.h"
#include "daemon/scan/disk/FileFacts.h"
#include "daemon/server/nodes/NodeReasons.h"
#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"
#include "platform/text/Unicode.h"

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
    case Standing::unseen:
      return {"Waiting to be looked at", BackupColor::yellow};
    case Standing::waiting:
      return {"Waiting to be backed up", BackupColor::yellow};
    case Standing::storing:
      return {"Being backed up", BackupColor::yellow};
    case Standing::failed:
      return {"Could not be backed up", BackupColor::blue};
    case Standing::backedUp:
      return {"Backed up", BackupColor::green};
    case Standing::missing:
      return {"Deleted here, still in the backup", BackupColor::blue};
    case Standing::pipe:
      return {"Pipe, goes with its folder", BackupColor::none};
    case Standing::device:
      return {"Device, goes with its folder", BackupColor::none};
    case Standing::socket:
      return {"Socket, never backed up", BackupColor::none};
  }
  return {"", BackupColor::undefined};
}

std::uint32_t backupFlagsOf(const Decision& decision, Standing standing, bool isThere, bool isFolder,
                            bool prioritized, bool isStored) {
  using namespace backup_flags;
  std::uint32_t flags = prioritized ? 1 : 0;
  flags |= decision.selected ? kBackup : 0;
  flags |= isStored ? kBackedUp : 0;
  flags |= decision.barred ? kSystem | kExclude : 0;
  flags |= decision.ownRule == false ? kExclude : 0;
  flags |= decision.ownRule == true ? kInclude : 0;
  flags |= isFolder ? kFolder : 0;
  flags |= isFolder && decision.ownRule == true ? kFolderInclude : 0;
  flags |= isFolder && decision.ownRule == false ? kNoFolder : 0;
  flags |= isFolder && !decision.selected ? kNotActive : 0;
  flags |= standing == Standing::missing ? kMissing : 0;
  flags |= decision.barred && isThere ? kExcludedVisible : 0;
  return flags;
}

bool mayBePreferred(Standing standing) {
  return standing != Standing::backedUp && standing != Standing::missing && standing != Standing::pipe &&
         standing != Standing::device && standing != Standing::socket;
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
    if (mayBePreferred(standing)) {
      flags |= kPriorityEnabled | kPriorityVisible | (prioritized ? kPriorityChecked : 0U);
    }
  }
  return flags;
}

// The keys are made once and never freed, because threads may still build nodes while the process ends.
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

FolderSize measure(const PeerAccess& access, const std::string& folder) {
  FolderSize size;
  const auto end = std::chrono::steady_clock::now() + kLongestWalk;
  std::vector<std::string> folders = {folder};
  bool goOn = true;
  while (goOn && !folders.empty()) {
    const std::string current = std::move(folders.back());
    folders.pop_back();
    access.list(current, [&](const std::string& name, const struct stat& status) {
      if (S_ISDIR(status.st_mode)) {
        folders.push_back(appendPathComponent(current, name));
      } else if (S_ISREG(status.st_mode)) {
        size.bytes = saturatedSum(size.bytes, static_cast<std::uint64_t>(status.st_size));
        ++size.files;
      }
      goOn = std::chrono::steady_clock::now() < end;
      return goOn;
    });
  }
  return size;
}

// The size of a folder that no longer exists, from the stored files.
FolderSize measureStored(Store& store, const std::string& folder) {
  FolderSize size;
  const auto end = std::chrono::steady_clock::now() + kLongestWalk;
  store.visitRecords(folder, [&](const std::string&, const BackupRecord& record) {
    size.bytes = saturatedSum(size.bytes, record.size);
    ++size.files;
    return std::chrono::steady_clock::now() < end;
  });
  return size;
}

}  // namespace

Standing NodeBuilder::standingOf(const Decision& decision, const Subject& subject) const {
  const std::string& path = subject.path;
  const struct stat* status = subject.status;
  if (decision.barred) {
    return Standing::barred;
  }
  if (status == nullptr) {
    return Standing::missing;
  }
  if (!decision.selected) {
    return decision.rulesBelow ? Standing::partlySelected : Standing::notSelected;
  }
  if (subject.isFolder) {
    return worker_.isPendingBelow(path)   ? Standing::waiting
           : worker_.isToBeScanned(path)  ? Standing::unseen
           : store_.hasFailureBelow(path) ? Standing::failed
                                          : Standing::backedUp;
  }
  if (!isStorable(*status)) {
    return S_ISFIFO(status->st_mode)   ? Standing::pipe
           : S_ISSOCK(status->st_mode) ? Standing::socket
                                       : Standing::device;
  }
  if (subject.record != nullptr && isUnchanged(*status, *subject.record)) {
    return Standing::backedUp;
  }
  return worker_.isPending(path)       ? worker_.partStored(path) ? Standing::storing : Standing::waiting
         : store_.failure(path)        ? Standing::failed
         : worker_.isToBeScanned(path) ? Standing::unseen
         : subject.record == nullptr   ? Standing::fresh
                                       : Standing::changed;
}

PropertyList NodeBuilder::build(const PeerAccess& access, const Subject& subject, bool withDirSizes) const {
  const auto& [path, status, record, isFolder] = subject;
  Decision decision = rules_.decide(path, isFolder);
  if (decision.rulesBelow && !access.isPrivileged()) {
    const std::vector<std::string> below = rules_.rulesBelow(path);
    decision.rulesBelow =
        std::any_of(below.begin(), below.end(), [&](const std::string& rule) { return access.sees(rule); });
  }
  const bool prioritized = worker_.isPrioritized(path);
  const Standing standing = standingOf(decision, subject);
  FolderSize size;
  if (isFolder && withDirSizes) {
    size = status != nullptr ? measure(access, path) : measureStored(store_, path);
  } else if (!isFolder) {
    size = {status != nullptr   ? static_cast<std::uint64_t>(status->st_size)
            : record != nullptr ? record->size
                                : 0,
            1};
  }
  const PropertyList name = lastPathComponent(path);
  const PropertyList::Keys& keys = record != nullptr ? keysWithRecord() : keysWithoutRecord();
  const PropertyList state = stateText(standing, subject);
  const PropertyList isDirectory = PropertyList::boolean(isFolder);
  const std::uint32_t backupFlags =
      backupFlagsOf(decision, standing, status != nullptr, isFolder, prioritized,
                    record != nullptr || (isFolder && standing == Standing::missing));
  const std::uint32_t simpleFlags = simpleFlagsOf(decision, standing, isFolder, prioritized);
  const auto color = static_cast<std::uint32_t>(factsOf(standing).color);
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

// The text of a failed file has the reason, that of a file that is being stored its progress.
std::string NodeBuilder::stateText(Standing standing, const Subject& subject) const {
  if (standing == Standing::missing && worker_.isNotConnected(subject.path)) {
    return "On a disk that is not connected";
  }
  const std::string text = factsOf(standing).state;
  if (standing == Standing::failed) {
    const std::optional<std::string> reason = store_.failure(subject.path);
    return reason ? text + ": " + *reason : text;
  }
  if (standing == Standing::storing) {
    const auto percent = static_cast<int>(100 * worker_.partStored(subject.path).value_or(0));
    return text + ": " + std::to_string(percent) + "%";
  }
  return text;
}

PropertyList NodeBuilder::nodeWithVersions(const PeerAccess& access, const std::string& path) const {
  const PropertyList plain = node(access, path, false);
  if (!plain) {
    return plain;
  }
  const bool isFolder = plain["isDirectory"].boolValue();
  PropertyList::Array versions;
  for (const VersionRecord& version :
       isFolder ? std::vector<VersionRecord>() : store_.versions(path, kMostVersions)) {
    if (!version.damaged) {
      versions.push_back(PropertyList::dictionary({{"version", version.version},
                                                   {"backupDate", Date::fromUnixTime(version.date)},
                                                   {"size", version.size}}));
    }
  }
  PropertyList::Entries entries;
  for (std::size_t i = 0; i < plain.count(); ++i) {
    entries.push_back(plain.entry(i));
  }
  entries.emplace_back("reasons", reasonsFor(rules_, path, isFolder));
  if (!versions.empty()) {
    entries.emplace_back("versions", PropertyList::array(std::move(versions)));
  }
  return PropertyList::dictionary(std::move(entries));
}

PropertyList NodeBuilder::node(const PeerAccess& access, const std::string& path, bool withDirSizes) const {
  const std::optional<PeerAccess::Item> item = access.look(path);
  if (!item) {
    return {};
  }
  const struct stat* status = item->status ? &*item->status : nullptr;
  const std::optional<BackupRecord> record = store_.record(path);
  const bool isFolder = status != nullptr ? S_ISDIR(status->st_mode) : !record && store_.hasRecordBelow(path);
  if (status == nullptr && !record && !isFolder) {
    return {};
  }
  return build(access, {path, status, record ? &*record : nullptr, isFolder}, withDirSizes);
}

PropertyList NodeBuilder::children(const PeerAccess& access, const std::string& folder) const {
  std::map<std::string, std::optional<struct stat>> entries;
  const auto isFull = [&] { return entries.size() >= kLongestListing; };
  const bool isFolder = access.list(folder, [&](const std::string& name, const struct stat& status) {
    if (isValidUtf8(name)) {  // a dictionary cannot hold a name that is not UTF-8
      entries.emplace(appendPathComponent(folder, name), status);
    }
    return !isFull();
  });
  std::map<std::string, BackupRecord> records;
  std::vector<std::string> foldersWithRecords;
  if (isFolder || access.sees(folder)) {
    records = store_.recordsIn(folder, &foldersWithRecords);
  }
  const auto addStored = [&](const std::string& path) {
    if (!isFull() && isValidUtf8(path) && !entries.contains(path)) {
      if (const std::optional<PeerAccess::Item> item = access.look(path)) {
        entries.emplace(path, item->status);
      }
    }
  };
  for (const auto& [path, record] : records) {
    addStored(path);
  }
  for (const std::string& name : foldersWithRecords) {
    addStored(appendPathComponent(folder, name));
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
    const bool isStored = record != records.end();
    const bool isChildFolder = status ? S_ISDIR(status->st_mode) : !isStored;
    children.push_back(build(
        access, {path, status ? &*status : nullptr, isStored ? &record->second : nullptr, isChildFolder},
        false));
  }
  return PropertyList::array(std::move(children));
}

std::int32_t NodeBuilder::color(const PeerAccess& access, const std::string& path) const {
  return node(access, path, false)["backupColor"].intValue();
}

}  // namespace keldane
