#include "clients/preferences/words/RepositoryWords.h"

#include "Common/DaemonText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/words/Headline.h"

namespace keldane {

namespace {

constexpr std::pair<const char*, const char*> kHealthWords[] = {
    {"ready", marked("ready")},
    {"notSetUp", marked("not set up")},
    {"missing", marked("gone: there was a backup at its place, and there is none now")},
    {"otherRepository", marked("another one: its place holds a backup that is not this computer's")},
    {"wrongKey", marked("closed: the key does not open it")},
    {"notConnected", marked("away: its disk is not connected")},
    {"unreachable", marked("away: the network or the server cannot be reached")},
    {"denied", marked("closed: the system or the server refuses access")},
    {"locked", marked("busy: another computer, or one that crashed, holds a lock")},
    {"full", marked("full: no room is left, or the quota is used up")},
    {"damaged", marked("damaged: what is stored is not what it was")},
    {"engineMissing", marked("out of use: the storage program restic is not installed")},
    {"engineTooOld", marked("out of use: the storage program restic is too old")},
    {"failed", marked("failing")},
};

std::uint64_t countIn(const PropertyList& values, const char* key) {
  return values[key].unsignedLongLongValue();
}

std::string drillWords(const PropertyList& repository) {
  return filled(tr("%s compared, %s by their hashes, %s failed"),
                filesWords(countIn(repository, "drillCompared")),
                countText(countIn(repository, "drillHashed")), countText(countIn(repository, "drillFailed")));
}

/// "never", or the date and the result.
std::string eventWords(const PropertyList& repository, const char* key, const std::string& result) {
  const std::string date = dateText(repository[key]);
  return date.empty() ? tr("never") : result.empty() ? date : date + ": " + result;
}

}  // namespace

std::string healthWords(const std::string& health) {
  for (const auto& [word, text] : kHealthWords) {
    if (health == word) {
      return tr(text);
    }
  }
  return printable(health);
}

bool isUntouched(const StatusSnapshot& status, const PropertyList& repository) {
  const std::string own = std::string(repository["dataFolder"].string()) + "/repository";
  const bool isNobodys =
      repository["health"].string() == "notSetUp" ||
      (repository["location"].string() == own && repository["files"].unsignedLongLongValue() == 0);
  return repository && isNobodys && !status.lastGoodBackup && !status.looksForMore &&
         status.pendingFiles == 0 && status.backedUpFiles.value_or(1) == 0;
}

std::string repositoryText(const std::string& key, const PropertyList& repository) {
  if (key == "health") {
    const std::string detail = printable(daemonText(repository["detail"].string()));
    return healthWords(std::string(repository["health"].string())) + (detail.empty() ? "" : "\n" + detail);
  }
  if (key == "size") {
    return repository["size"] ? bytesText(countIn(repository, "size")) : std::string();
  }
  if (key == "snapshots") {
    const std::uint64_t snapshots = countIn(repository, "snapshots");
    return filled(trn("%s in %s version", "%s in %s versions", static_cast<unsigned long>(snapshots)),
                  filesWords(countIn(repository, "files")), countText(snapshots));
  }
  if (key == "lastCheck") {
    return eventWords(repository, "lastCheck", printable(daemonText(repository["lastCheckResult"].string())));
  }
  if (key == "lastDrill") {
    return eventWords(repository, "lastDrill", repository["lastDrill"] ? drillWords(repository) : "");
  }
  if (key == "lastGoodBackup") {
    return eventWords(repository, "lastGoodBackup", {});
  }
  return printable(repository[key].string());
}

}  // namespace keldane
