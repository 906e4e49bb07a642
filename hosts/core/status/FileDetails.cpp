#include "hosts/core/status/FileDetails.h"

#include "Common/DaemonText.h"
#include "Common/nodes/FileNode.h"
#include "hosts/core/status/FileStatus.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr const char* kAway = marked("The backup daemon cannot be reached.");

std::string nextBackup(const PropertyList& node, const PropertyList& state) {
  const std::uint32_t flags = node["backupFlags"].unsignedIntValue();
  const std::string_view heldBy = state["heldBy"].string();
  const std::string resting(state["restingBecause"].string());
  if ((flags & backup_flags::kBackup) == 0) {
    return tr("None, it is not selected for backup");
  }
  if (!state) {
    return tr("Unknown");
  }
  if (state["paused"].boolValue() || heldBy == "paused") {
    return tr("After the pause");
  }
  if (heldBy == "off") {
    return tr("When the backup is switched on again");
  }
  if (heldBy == "recovering") {
    return tr("After the recovery");
  }
  if (!resting.empty()) {
    return filled(tr("The backup rests: %s"), daemonText(resting));
  }
  const Emblem emblem = fileStatusOf(node).emblem;
  if (emblem == Emblem::backedUp) {
    return tr("When it changes");
  }
  if (heldBy == "manual") {
    return tr("When it is asked for, because automatic backup is off");
  }
  return emblem == Emblem::failed ? tr("With the next attempt") : tr("As soon as possible");
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
    details.rows = {{tr("Status"), tr("The backup knows nothing of it")}};
    return details;
  }
  const FileStatus status = fileStatusOf(node);
  details.isFolder = node["isDirectory"].boolValue();
  details.canBackUp = (node["simpleFlags"].unsignedIntValue() & simple_flags::kEnabled) != 0;
  details.versions = versionsOf(node);
  details.rows.emplace_back(tr("Status"), daemonText(status.text));
  if (const PropertyList why = node["reasons"][0]["text"]; why.isString()) {
    details.rows.emplace_back(tr("Why"), daemonText(why.string()));
  }
  if (!details.isFolder) {
    details.rows.emplace_back(tr("Last backup"),
                              status.lastBackup != 0 ? backupDateText(status.lastBackup) : tr("Never"));
  }
  details.rows.emplace_back(tr("Next backup"), nextBackup(node, state));
  if (!details.versions.empty()) {
    details.rows.emplace_back(tr("Size stored"), sizeText(details.versions.front().size));
  }
  return details;
}

FileDetails askForDetails(DaemonLink* link, const std::string& path, const SizeText& sizeText) {
  FileDetails away;
  away.rows = {{tr("Status"), tr(kAway)}};
  if (link == nullptr) {
    return away;
  }
  const PropertyList node = link->dictionaryForPath(path);
  const PropertyList state = link->daemonState();
  return link->isAtEnd() ? away : fileDetailsOf(node, state, sizeText);
}

std::string backUpNow(DaemonLink* link, const std::string& path, bool isFolder) {
  if (link == nullptr) {
    return tr(kAway);
  }
  link->addFileToBackup(path);
  if (!isFolder) {
    link->setPriorityBackup(path);
  }
  const PropertyList node = link->dictionaryForPath(path, false);
  const bool isTaken =
      (node["backupFlags"].unsignedIntValue() & (backup_flags::kInclude | backup_flags::kFolderInclude)) != 0;
  return isTaken ? tr("It will be backed up as soon as possible.")
                 : filled(tr("The daemon did not take it: %s."), daemonText(node["state"].string()));
}

StartedRestore startRestore(DaemonLink* link, const std::string& path, std::uint32_t version,
                            const std::string& folder) {
  if (link == nullptr) {
    return {0, tr(kAway)};
  }
  const std::uint32_t job = link->restoreFile(path, folder, version, 0U);
  if (job == 0) {
    return {0, tr("The daemon did not take it: only the owner of the stored file may restore it.")};
  }
  return {job, tr("It is being restored.")};
}

std::string restoreResult(DaemonLink* link, std::uint32_t job) {
  enum : std::uint32_t { unknown, waiting, running, done, doneWithProblems, failed, cancelled };
  switch (link == nullptr ? unknown : link->getRestoreJobStatus(job)) {
    case waiting:
    case running:
      return {};
    case done:
      return tr("It was restored. If the file was still there, the restored one has another name.");
    case doneWithProblems:
      return tr("It was restored, with problems.");
    case failed:
      return tr("It could not be restored.");
    case cancelled:
      return tr("The restore was cancelled.");
    default:
      return tr("Nothing is known of the restore any more.");
  }
}

}  // namespace keldane
