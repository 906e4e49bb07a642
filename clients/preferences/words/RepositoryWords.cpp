#include "clients/preferences/words/RepositoryWords.h"

#include "Common/DaemonText.h"
#include "clients/core/words/HealthText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/words/Headline.h"

namespace keldane {

namespace {

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
    return healthText(repository["health"].string()) + (detail.empty() ? "" : "\n" + detail);
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
