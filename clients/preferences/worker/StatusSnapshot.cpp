#include "clients/preferences/worker/StatusSnapshot.h"

#include <algorithm>

#include "Common/DaemonText.h"
#include "clients/core/words/Printable.h"

namespace keldane {

namespace {

std::string text(const PropertyList& value) { return value ? printable(value.description()) : std::string(); }

std::string words(const PropertyList& value) {
  return value ? printable(daemonText(value.description())) : std::string();
}

}  // namespace

double StatusSnapshot::quotaFraction() const {
  const auto used = static_cast<double>(backedUpBytes.value_or(0));
  return quotaBytes == 0 ? 1 : std::clamp(used / static_cast<double>(quotaBytes), 0.0, 1.0);
}

Account askForAccount(const BackupState& state) {
  const PropertyList number = state.computerNumber();
  return {text(state.userEmail()), text(state.serverURL()),
          number.longLongValue() == 0 ? std::string() : text(number)};
}

StatusSnapshot statusSnapshot(const BackupState& state, const BackupProgress& progress, Account account) {
  StatusSnapshot snapshot;
  snapshot.connected = state.connected();
  snapshot.account = std::move(account);
  snapshot.quotaLimited = state.isQuotaLimited();
  if (!snapshot.connected) {
    return snapshot;
  }
  snapshot.status = words(state.statusString());
  snapshot.currentFile = text(state.currentBackupFile());
  if (state.backedUpFileCountAvailable()) {
    snapshot.backedUpFiles = state.backedUpFileCount();
  }
  if (state.backedupFileSizeAvailable()) {
    snapshot.backedUpBytes = state.backedupFileSize();
  }
  snapshot.pendingFiles = state.pendingFileCount();
  snapshot.pendingBytes = state.pendingFileSize();
  snapshot.fraction = progress.fraction();
  snapshot.bytesPerSecond = progress.bytesPerSecond();
  if (progress.bytesPerSecond() > 0 || progress.filesPerSecond() > 0) {
    snapshot.timeLeft = progress.timeLeft();
  }
  snapshot.paused = state.paused();
  snapshot.pausedMinutes = state.pausedMinutes();
  snapshot.automatic = state.automaticMode();
  snapshot.lowPriority = state.lowerPriorityMode();
  snapshot.overQuota = state.isOverQuota();
  const PropertyList& all = state.daemonState();
  snapshot.health = text(all["health"]);
  snapshot.heldBy = text(all["heldBy"]);
  snapshot.restingBecause = words(all["restingBecause"]);
  snapshot.storeTrouble = words(all["storeTrouble"]);
  snapshot.looksForMore = state.isBackupNeeded();
  snapshot.failures = all["failureCount"].unsignedIntValue();
  snapshot.lastGoodBackup = all["lastGoodBackup"].isDate() ? all["lastGoodBackup"] : PropertyList();
  snapshot.restoreJob = state.currentRestoreJob();
  snapshot.quotaBytes = std::uint64_t{state.quotaMB()} << 20;
  return snapshot;
}

}  // namespace keldane
