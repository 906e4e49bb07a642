// The daemon's state at one time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "client-state/BackupState.h"
#include "clients/core/BackupProgress.h"

namespace keldane {

/// Whose backup it is. The daemon's, and remembered for when it is away.
struct Account {
  std::string userEmail, serverURL, computerNumber;
};

/// All that the window shows of the daemon but its rules. A value: made on the daemon's thread, read on the
/// window's.
struct StatusSnapshot {
  bool connected = false;
  Account account;
  bool quotaLimited = false;       ///< remembered as well
  std::uint32_t settingsMade = 0;  ///< how many of the user's wishes for settings the daemon had been sent

  // Of no meaning while it is away.
  std::string status;  ///< in the daemon's words; empty when it tells none
  std::string currentFile;
  std::optional<std::uint32_t> backedUpFiles;
  std::optional<std::uint64_t> backedUpBytes;
  std::uint32_t pendingFiles = 0;
  std::uint64_t pendingBytes = 0;
  double fraction = 0;  ///< done of what there was to do, 0 to 1
  double bytesPerSecond = 0;
  std::optional<std::chrono::seconds> timeLeft;  ///< absent while nothing moves
  bool paused = false;
  std::uint32_t pausedMinutes = 0;  ///< still to go
  bool automatic = false, lowPriority = false;
  bool overQuota = false;
  std::uint64_t quotaBytes = 0;
  std::string health;           ///< the daemon's word for how the repository stands; empty when it tells none
  std::string heldBy;           ///< what keeps all that waits from being stored, in the daemon's word
  std::string restingBecause;   ///< why power or network let the backup rest; empty when they do not
  std::string storeTrouble;     ///< a sentence while the daemon cannot write what it is to keep
  bool looksForMore = false;    ///< something waits, or is being looked for
  std::uint32_t failures = 0;   ///< files that could not be stored
  PropertyList lastGoodBackup;  ///< a date; absent before the first
  std::uint32_t restoreJob = 0;  ///< the number of the restore that runs; 0 for none

  /// Part of the quota that is used, 0 to 1; 1 for a quota of nothing.
  double quotaFraction() const;
};

/// Asks the daemon, if it is there.
Account askForAccount(const BackupState& state);
/// Asks the daemon for what its last state does not hold, but not for the account.
StatusSnapshot statusSnapshot(const BackupState& state, const BackupProgress& progress, Account account);

}  // namespace keldane
