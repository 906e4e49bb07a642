#include "hosts/core/status/FileDetails.h"

#include "Common/FileNode.h"
#include "hosts/core/status/FileStatus.h"

namespace keldane {

namespace {

constexpr char kAway[] = "The backup daemon cannot be reached.";

std::string nextBackup(const PropertyList& node, const PropertyList& state) {
  const std::uint32_t flags = node["backupFlags"].unsignedIntValue();
  const std::string_view heldBy = state["heldBy"].string();
  const std::string resting(state["restingBecause"].string());
  if ((flags & backup_flags::kBackup) == 0) {
    return "None, it is not selected for backup";
  }
  if (!state) {
    return "Unknown";
  }
  if (state["paused"].boolValue() || heldBy == "paused") {
    return "After the pause";
  }
  if (heldBy == "off") {
    return "When the backup is switched on again";
  }
  if (heldBy == "recovering") {
    return "After the recovery";
  }
  if (!resting.empty()) {
    return "The backup rests: " + resting;
  }
  const Emblem emblem = fileStatusOf(node).emblem;
  if (emblem == Emblem::backedUp) {
    return "When it changes";
  }
  if (heldBy == "manual") {
    return "When it is asked for, because automatic backup is off";
  }
  return emblem == Emblem::failed ? "With the next attempt" : "As soon as possible";
}

std::vector<StoredVersion> versionsOf(const PropertyList& node) {
  std::vector<StoredVersion> versions;
  const PropertyList list = node["versions"];
  for (std::size_t i = 0; i < list.count(); ++i) {
    const PropertyList each = list[i];
    const std::uint32_t number = each["version"].unsignedIntValue();
    if (number != 0) {
      versions.push_back({number, fileStatusOf(each).lastBackup, each["size"].unsignedLongLongValue()});
    }
  }
  return versions;
}

}  // namespace

FileDetails fileDetailsOf(const PropertyList& node, const PropertyList& state, const SizeText& sizeText) {
  FileDetails details;
  if (!node) {
    details.rows = {{"Status", "The backup knows nothing of it"}};
    return details;
  }
  const FileStatus status = fileStatusOf(node);
  details.isFolder = node["isDirectory"].boolValue();
  details.canBackUp = (node["simpleFlags"].unsignedIntValue() & simple_flags::kEnabled) != 0;
  details.versions = versionsOf(node);
  details.rows.emplace_back("Status", status.text);
  if (const PropertyList why = node["reasons"][0]["text"]; why.isString()) {
    details.rows.emplace_back("Why", std::string(why.string()));
  }
  if (!details.isFolder) {
    details.rows.emplace_back("Last backup",
                              status.lastBackup != 0 ? backupDateText(status.lastBackup) : "Never");
  }
  details.rows.emplace_back("Next backup", nextBackup(node, state));
  if (!details.versions.empty()) {
    details.rows.emplace_back("Size stored", sizeText(details.versions.front().size));
  }
  return details;
}

FileDetails askForDetails(DaemonLink* link, const std::string& path, const SizeText& sizeText) {
  FileDetails away;
  away.rows = {{"Status", kAway}};
  if (link == nullptr) {
    return away;
  }
  const PropertyList node = link->dictionaryForPath(path);
  const PropertyList state = link->daemonState();
  return link->isAtEnd() ? away : fileDetailsOf(node, state, sizeText);
}

std::string backUpNow(DaemonLink* link, const std::string& path, bool isFolder) {
  if (link == nullptr) {
    return kAway;
  }
  link->addFileToBackup(path);
  if (!isFolder) {
    link->setPriorityBackup(path);
  }
  const PropertyList node = link->dictionaryForPath(path, false);
  const bool isTaken =
      (node["backupFlags"].unsignedIntValue() & (backup_flags::kInclude | backup_flags::kFolderInclude)) != 0;
  return isTaken ? "It will be backed up as soon as possible."
                 : "The daemon did not take it: " + std::string(node["state"].string()) + ".";
}

StartedRestore startRestore(DaemonLink* link, const std::string& path, std::uint32_t version,
                            const std::string& folder) {
  if (link == nullptr) {
    return {0, kAway};
  }
  const std::uint32_t job = link->restoreFile(path, folder, version, 0U);
  if (job == 0) {
    return {0, "The daemon did not take it: only the owner of the stored file may restore it."};
  }
  return {job, "It is being restored."};
}

std::string restoreResult(DaemonLink* link, std::uint32_t job) {
  enum : std::uint32_t { unknown, waiting, running, done, doneWithProblems, failed, cancelled };
  switch (link == nullptr ? unknown : link->getRestoreJobStatus(job)) {
    case waiting:
    case running:
      return {};
    case done:
      return "It was restored. If the file was still there, the restored one has another name.";
    case doneWithProblems:
      return "It was restored, with problems.";
    case failed:
      return "It could not be restored.";
    case cancelled:
      return "The restore was cancelled.";
    default:
      return "Nothing is known of the restore any more.";
  }
}

}  // namespace keldane
